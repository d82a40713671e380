#pragma once

// H.264 access units on their way from a sender's framing to what consumers are lent: Annex B with 4-byte
// start codes (ISO/IEC 14496-10 Annex B), parameter sets before every IDR picture. Nothing here copies
// payload: an access unit becomes a list of pieces that point into the received bytes.

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace KorvelVideo::NetworkSource {

using Bytes = std::span<const std::uint8_t>;

inline constexpr std::array<std::uint8_t, 4> kStartCode{0, 0, 0, 1};

// nal_unit_type, ISO/IEC 14496-10 table 7-1.
enum NalUnitType : std::uint8_t {
    keNalIdrSlice = 5,
    keNalSequenceParameterSet = 7,
    keNalPictureParameterSet = 8,
    keNalAccessUnitDelimiter = 9,
};

[[nodiscard]] inline std::uint8_t nalUnitType(Bytes nal) noexcept {
    return nal.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(nal[0] & 0x1F);
}

// The NAL units of one run of bytes, in order, without start codes or length fields. `lengthSize` 0 means
// Annex B with 3- or 4-byte start codes, 1 to 4 the size of the length field before each NAL unit (ISO/IEC
// 14496-15). A length that passes the end is cut there. Clears `nals` first.
void splitNalUnits(Bytes bytes, unsigned lengthSize, std::vector<Bytes>& nals);

// The parameter sets of one stream, the last of each identifier. What it holds is bounded.
class ParameterSets {
public:
    // Takes the NAL unit when it is a parameter set of sane size and returns its identifier, else -1.
    std::int32_t keep(Bytes nal);
    // A sequence and a picture parameter set are known.
    [[nodiscard]] bool complete() const noexcept;
    // All of them with start codes, sequence parameter sets first; empty without one of those.
    [[nodiscard]] std::vector<std::uint8_t> annexB() const;

    using ById = std::map<std::uint32_t, std::vector<std::uint8_t>>;
    [[nodiscard]] const ById& sequence() const noexcept { return m_sequence; }
    [[nodiscard]] const ById& picture() const noexcept { return m_picture; }

private:
    ById m_sequence;
    ById m_picture;
};

// The identifier of a parameter set NAL unit; -1 when it cannot be read.
[[nodiscard]] std::int32_t parameterSetId(Bytes nal) noexcept;

// What a sender gives as configuration: an AVCDecoderConfigurationRecord (ISO/IEC 14496-15) or Annex B.
struct AvcConfiguration {
    unsigned lengthSize = 0; // as for splitNalUnits: how the access units are framed
    std::vector<Bytes> parameterSets;
};
[[nodiscard]] AvcConfiguration readAvcConfiguration(Bytes configuration);

// Makes pieces of access units.
class AccessUnitFormatter {
public:
    // The pieces of one access unit in Annex B, with the known parameter sets that it lacks put before its
    // IDR picture. In-band parameter sets are kept in `sets`. The pieces point into `accessUnit`, `sets` and
    // this object and are valid until any of them changes.
    [[nodiscard]] std::span<const Bytes> format(Bytes accessUnit, unsigned lengthSize, ParameterSets& sets);

private:
    using Identifiers = std::bitset<256>;

    void append(Bytes nal);
    void appendMissing(const ParameterSets::ById& known, const Identifiers& inBand);

    std::vector<Bytes> m_nals;
    std::vector<Bytes> m_pieces;
};

} // namespace KorvelVideo::NetworkSource
