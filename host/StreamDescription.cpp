#include "StreamDescription.h"

#include <span>

#include "ComObject.h"

namespace KorvelVideo::Host {

namespace {

struct Name {
    std::uint32_t value;
    const char* text;
};

std::string nameOf(std::uint32_t value, std::span<const Name> names) {
    for (const Name& name : names) {
        if (name.value == value) {
            return name.text;
        }
    }
    return {};
}

void append(std::string& words, const std::string& word) {
    if (!word.empty()) {
        words += words.empty() ? word : " " + word;
    }
}

std::string videoInWords(const StreamDescription& description) {
    const SKvVideoFormatDescription& format = description.format;
    if (format.m_width == 0 || format.m_height == 0) {
        return "H.264, format not described";
    }
    std::string words = "H.264 " + std::to_string(format.m_width) + "x" + std::to_string(format.m_height);
    append(words, scanName(format.m_scanMode));
    if (const std::string rate = frameRateName(format.m_frameRate); !rate.empty()) {
        append(words, rate + " fps");
    }
    append(words, aspectRatioName(format.m_aspectRatio));
    append(words, colourName(description.colourClass));
    if (format.m_bitDepth > 8) {
        append(words, std::to_string(format.m_bitDepth) + " bit");
    }
    append(words, profileName(description.profile) + "@" + levelName(description.level));
    return words;
}

std::string audioInWords(const StreamDescription& description) {
    std::string words = "AAC";
    if (description.samplingRate != 0) {
        append(words, std::to_string(description.samplingRate) + " Hz");
    }
    append(words, channelsName(description.channels));
    return words;
}

} // namespace

StreamDescription describe(IKvNetworkReceiverStreamInformation& information) {
    StreamDescription description;
    description.type = static_cast<EKvStreamType>(information.GetStreamType());
    Reference<IKvNetworkReceiverH264Information> video;
    Reference<IKvNetworkReceiverAacInformation> audio;
    if (description.type == keKvStreamTypeH264 &&
        SUCCEEDED(information.QueryInterface(IID_IKvNetworkReceiverH264Information, video.receiveVoid()))) {
        description.format = video->GetVideoFormat();
        description.colourClass = video->GetColourClass();
        description.profile = video->GetProfile();
        description.level = video->GetLevel();
    }
    if (description.type == keKvStreamTypeAac &&
        SUCCEEDED(information.QueryInterface(IID_IKvNetworkReceiverAacInformation, audio.receiveVoid()))) {
        description.samplingRate = audio->GetFirstValue();
        description.channels = audio->GetSecondValue();
    }
    return description;
}

std::string inWords(const StreamDescription& description) {
    switch (description.type) {
    case keKvStreamTypeH264:
        return videoInWords(description);
    case keKvStreamTypeAac:
        return audioInWords(description);
    case keKvStreamTypeTransportStream:
        return "MPEG-2 transport stream";
    }
    return "stream of unknown type";
}

std::string mediaName(const StreamDescription& description) {
    static constexpr Name names[] = {
        {keKvStreamTypeH264, "H.264"}, {keKvStreamTypeAac, "AAC"}, {keKvStreamTypeTransportStream, "TS"}};
    return nameOf(description.type, names);
}

std::string scanName(std::uint32_t scanMode) {
    static constexpr Name names[] = {{keKvScanModeInterlaced, "interlaced"},
                                     {keKvScanModeInterlaced480, "interlaced"},
                                     {keKvScanModeProgressive, "progressive"}};
    return nameOf(scanMode, names);
}

std::string frameRateName(std::uint32_t frameRate) {
    static constexpr Name names[] = {{keKvFrameRate24, "24"},       {keKvFrameRate23_976, "23.976"},
                                     {keKvFrameRate25, "25"},       {keKvFrameRate30, "30"},
                                     {keKvFrameRate29_97, "29.97"}, {keKvFrameRate50, "50"},
                                     {keKvFrameRate60, "60"},       {keKvFrameRate59_94, "59.94"}};
    return nameOf(frameRate, names);
}

std::string aspectRatioName(std::uint32_t aspectRatio) {
    static constexpr Name names[] = {{keKvAspectRatio4x3, "4:3"},
                                     {keKvAspectRatio16x9, "16:9"},
                                     {keKvAspectRatio2x1, "2:1"},
                                     {keKvAspectRatio256x135, "256:135"}};
    return nameOf(aspectRatio, names);
}

std::string colourName(std::uint32_t colourClass) {
    static constexpr Name names[] = {{keKvColourClassBt709, "BT.709"},
                                     {keKvColourClassBt2020, "BT.2020"},
                                     {keKvColourClassBt2020Pq, "BT.2020 PQ"},
                                     {keKvColourClassBt2020Hlg, "BT.2020 HLG"},
                                     {keKvColourClassBt2020FullRange, "BT.2020 full range"}};
    return nameOf(colourClass, names);
}

// profile_idc: ISO/IEC 14496-10, Annex A and the extensions' annexes.
std::string profileName(std::uint32_t profile) {
    static constexpr Name names[] = {{66, "Baseline"},   {77, "Main"},         {88, "Extended"},
                                     {100, "High"},      {110, "High 10"},     {122, "High 4:2:2"},
                                     {118, "Multiview"}, {128, "Stereo High"}, {244, "High 4:4:4"},
                                     {44, "CAVLC 4:4:4"}};
    const std::string name = nameOf(profile, names);
    return name.empty() ? "profile " + std::to_string(profile) : name;
}

// level_idc is ten times the level's number; 9 is level 1b (ISO/IEC 14496-10, A.3).
std::string levelName(std::uint32_t level) {
    return level == 9 ? "1b" : std::to_string(level / 10) + "." + std::to_string(level % 10);
}

std::string channelsName(std::uint32_t channels) {
    static constexpr Name names[] = {{0, ""}, {1, "mono"}, {2, "stereo"}, {6, "5.1"}, {8, "7.1"}};
    const std::string name = nameOf(channels, names);
    return name.empty() && channels != 0 ? std::to_string(channels) + " channels" : name;
}

const char* unitsName(const StreamDescription& description) noexcept {
    return description.type == keKvStreamTypeTransportStream ? "buffers" : "access units";
}

const char* fileExtension(const StreamDescription& description) noexcept {
    switch (description.type) {
    case keKvStreamTypeH264:
        return ".h264";
    case keKvStreamTypeAac:
        return ".aac";
    case keKvStreamTypeTransportStream:
        break;
    }
    return ".ts";
}

} // namespace KorvelVideo::Host
