#include "StreamDescription.h"

#include <gtest/gtest.h>

namespace KorvelVideo::Host {

namespace {

StreamDescription video(SKvVideoFormatDescription format, std::uint32_t colour, std::uint32_t profile,
                        std::uint32_t level) {
    StreamDescription description;
    description.type = keKvStreamTypeH264;
    description.format = format;
    description.colourClass = colour;
    description.profile = profile;
    description.level = level;
    return description;
}

StreamDescription audio(std::uint32_t samplingRate, std::uint32_t channels) {
    StreamDescription description;
    description.type = keKvStreamTypeAac;
    description.samplingRate = samplingRate;
    description.channels = channels;
    return description;
}

TEST(StreamDescription, InWords) {
    struct Row {
        StreamDescription description;
        const char* words;
    };
    const Row rows[] = {
        {video({28, 1920, 1080, 8, keKvAspectRatio16x9, keKvFrameRate25, keKvScanModeProgressive},
               keKvColourClassBt709, 100, 40),
         "H.264 1920x1080 progressive 25 fps 16:9 BT.709 High@4.0"},
        {video({28, 720, 480, 8, keKvAspectRatio4x3, keKvFrameRate29_97, keKvScanModeInterlaced480},
               keKvColourClassUnknown, 77, 30),
         "H.264 720x480 interlaced 29.97 fps 4:3 Main@3.0"},
        {video({28, 4096, 2160, 10, keKvAspectRatio256x135, keKvFrameRate59_94, keKvScanModeProgressive},
               keKvColourClassBt2020Hlg, 122, 52),
         "H.264 4096x2160 progressive 59.94 fps 256:135 BT.2020 HLG 10 bit High 4:2:2@5.2"},
        {video({28, 176, 144, 8, keKvAspectRatioUnknown, keKvFrameRateUnknown, keKvScanModeProgressive},
               keKvColourClassUnknown, 66, 9),
         "H.264 176x144 progressive Baseline@1b"},
        {video({28, 100, 100, 8, 77, 77, 77}, 77, 200, 13), "H.264 100x100 profile 200@1.3"},
        {video({28, 0, 0, 0, 0, 0, 0}, 0, 0, 0), "H.264, format not described"},
        {audio(48000, 2), "AAC 48000 Hz stereo"},
        {audio(44100, 1), "AAC 44100 Hz mono"},
        {audio(48000, 6), "AAC 48000 Hz 5.1"},
        {audio(0, 5), "AAC 5 channels"},
        {audio(0, 0), "AAC"},
        {StreamDescription{}, "MPEG-2 transport stream"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(inWords(row.description), row.words);
    }
}

} // namespace

} // namespace KorvelVideo::Host
