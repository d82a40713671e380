#pragma once

// AAC on its way from a sender's framing to what consumers are lent: raw access units with their
// AudioSpecificConfig out of ADTS (ISO/IEC 14496-3, 1.A.2.2), and LOAS frames (1.7) that each carry their
// StreamMuxConfig.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace KorvelVideo::NetworkSource {

using Bytes = std::span<const std::uint8_t>;

// What an AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1) says of the decoder's output.
struct AacFormat {
    std::uint32_t samplingRate = 0;    // Hz; with spectral band replication signalled, the doubled rate
    std::uint32_t channels = 0;        // 0: described by a program_config_element
    std::uint32_t frameSamples = 1024; // of the core, at `coreRate`
    std::uint32_t coreRate = 0;        // Hz
};

// Empty when the bytes are no AudioSpecificConfig of an AAC object type.
[[nodiscard]] std::optional<AacFormat> readAudioSpecificConfig(Bytes config);

// One ADTS frame at the start of the bytes.
struct AdtsFrame {
    Bytes payload;                    // the raw_data_block, empty when the frame holds several
    std::size_t frameLength = 0;      // header included
    std::vector<std::uint8_t> config; // the AudioSpecificConfig that the header stands for
};
// Empty when the bytes do not begin with a whole ADTS frame.
[[nodiscard]] std::optional<AdtsFrame> readAdtsFrame(Bytes bytes);

// The length of the LOAS frame at the start of the bytes, header included; 0 when they do not begin with a
// whole frame.
[[nodiscard]] std::size_t loasFrameLength(Bytes bytes) noexcept;

// Makes every LOAS frame of a stream carry its StreamMuxConfig: senders repeat it now and then only, but who
// receives the frames keeps nothing between them.
class LoasConfigurator {
public:
    // The frame with a StreamMuxConfig: itself, or a copy (valid until the next call) with the last one seen
    // put in. Empty when there is none to put in, or no room for it.
    [[nodiscard]] Bytes withConfiguration(Bytes frame);
    // The AudioSpecificConfig of the last StreamMuxConfig that could be read, with its bits moved to the
    // start of a byte; empty before.
    [[nodiscard]] const std::vector<std::uint8_t>& audioSpecificConfig() const noexcept { return m_config; }

private:
    void readConfiguration(Bytes muxElement);

    std::vector<std::uint8_t> m_muxBits; // the StreamMuxConfig, one element a bit
    std::vector<std::uint8_t> m_config;
    std::vector<std::uint8_t> m_mended;
};

} // namespace KorvelVideo::NetworkSource
