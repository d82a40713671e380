#pragma once

// What a stream is, as it was announced, in words.

#include <cstdint>
#include <string>

#include "KvStreamInformation.h"

namespace KorvelVideo::Host {

struct StreamDescription {
    EKvStreamType type = keKvStreamTypeTransportStream;
    // H.264
    SKvVideoFormatDescription format{};
    std::uint32_t colourClass = 0;
    std::uint32_t profile = 0;
    std::uint32_t level = 0;
    // AAC
    std::uint32_t samplingRate = 0;
    std::uint32_t channels = 0;
};

// Reads the information object that a detector callback was given.
[[nodiscard]] StreamDescription describe(IKvNetworkReceiverStreamInformation& information);

// For example "H.264 1920x1080 progressive 25 fps 16:9 BT.709 High@4.0", "AAC 48000 Hz stereo".
[[nodiscard]] std::string inWords(const StreamDescription& description);

// The pieces; empty where the stream did not say.
[[nodiscard]] std::string mediaName(const StreamDescription& description);
[[nodiscard]] std::string scanName(std::uint32_t scanMode);
[[nodiscard]] std::string frameRateName(std::uint32_t frameRate); // frames per second
[[nodiscard]] std::string aspectRatioName(std::uint32_t aspectRatio);
[[nodiscard]] std::string colourName(std::uint32_t colourClass);
[[nodiscard]] std::string profileName(std::uint32_t profile);
[[nodiscard]] std::string levelName(std::uint32_t level);
[[nodiscard]] std::string channelsName(std::uint32_t channels);

// What the counted pieces of the stream are: access units, or buffers of a transport stream.
[[nodiscard]] const char* unitsName(const StreamDescription& description) noexcept;

// ".h264", ".aac" or ".ts".
[[nodiscard]] const char* fileExtension(const StreamDescription& description) noexcept;

} // namespace KorvelVideo::Host
