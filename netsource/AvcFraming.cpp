#include "AvcFraming.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace KorvelVideo::NetworkSource {

namespace {

// Far above what encoders make; bounds what a hostile sender can have kept.
constexpr std::size_t kLargestParameterSet = 4096;
constexpr std::int32_t kSequenceSets = 32; // ISO/IEC 14496-10, 7.4.2.1.1
constexpr std::int32_t kPictureSets = 256; // 7.4.2.2

// Index of the next 00 00 01 at or after `from`; the size when there is none.
std::size_t findStartCode(Bytes bytes, std::size_t from) noexcept {
    std::size_t at = from + 2;
    while (at < bytes.size()) {
        const void* hit = std::memchr(bytes.data() + at, 1, bytes.size() - at);
        if (hit == nullptr) {
            break;
        }
        at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(hit) - bytes.data());
        if (bytes[at - 1] == 0 && bytes[at - 2] == 0) {
            return at - 2;
        }
        ++at;
    }
    return bytes.size();
}

void splitAnnexB(Bytes bytes, std::vector<Bytes>& nals) {
    std::size_t start = findStartCode(bytes, 0);
    while (start < bytes.size()) {
        const std::size_t begin = start + 3;
        const std::size_t next = findStartCode(bytes, begin);
        std::size_t end = next;
        while (end > begin && bytes[end - 1] == 0) {
            --end; // trailing zeros, among them the first byte of a 4-byte start code
        }
        if (end > begin) {
            nals.push_back(bytes.subspan(begin, end - begin));
        }
        start = next;
    }
}

void splitLengthPrefixed(Bytes bytes, unsigned lengthSize, std::vector<Bytes>& nals) {
    while (bytes.size() > lengthSize) {
        std::uint32_t length = 0;
        for (unsigned i = 0; i < lengthSize; ++i) {
            length = length << 8 | bytes[i];
        }
        bytes = bytes.subspan(lengthSize);
        const std::size_t taken = std::min<std::size_t>(length, bytes.size());
        if (taken > 0) {
            nals.push_back(bytes.first(taken));
        }
        bytes = bytes.subspan(taken);
    }
}

// Reads the bits of a NAL unit's first bytes past the emulation prevention bytes.
class RbspBits {
public:
    explicit RbspBits(Bytes nal) noexcept {
        std::size_t zeros = 0;
        for (std::size_t i = 1; i < nal.size() && m_size < m_bytes.size(); ++i) {
            if (zeros >= 2 && nal[i] == 3) {
                zeros = 0;
                continue;
            }
            zeros = nal[i] == 0 ? zeros + 1 : 0;
            m_bytes[m_size++] = nal[i];
        }
    }

    void skipBytes(std::size_t count) noexcept { m_bit += count * 8; }

    // ue(v), ISO/IEC 14496-10, 9.1; -1 past the end.
    [[nodiscard]] std::int32_t exponentialGolomb() noexcept {
        unsigned zeros = 0;
        while (bit() == 0) {
            if (++zeros > 16) {
                return -1;
            }
        }
        std::int32_t value = 1;
        for (unsigned i = 0; i < zeros; ++i) {
            const int next = bit();
            if (next < 0) {
                return -1;
            }
            value = value * 2 + next;
        }
        return m_past ? -1 : value - 1;
    }

private:
    int bit() noexcept {
        if (m_bit >= m_size * 8) {
            m_past = true;
            return -1;
        }
        const int value = m_bytes[m_bit / 8] >> (7 - m_bit % 8) & 1;
        ++m_bit;
        return value;
    }

    std::array<std::uint8_t, 12> m_bytes{};
    std::size_t m_size = 0;
    std::size_t m_bit = 0;
    bool m_past = false;
};

bool equal(Bytes left, Bytes right) noexcept {
    return left.size() == right.size() && std::memcmp(left.data(), right.data(), left.size()) == 0;
}

void appendAnnexB(const ParameterSets::ById& sets, std::vector<std::uint8_t>& bytes) {
    for (const auto& [id, nal] : sets) {
        bytes.insert(bytes.end(), kStartCode.begin(), kStartCode.end());
        bytes.insert(bytes.end(), nal.begin(), nal.end());
    }
}

} // namespace

void splitNalUnits(Bytes bytes, unsigned lengthSize, std::vector<Bytes>& nals) {
    nals.clear();
    if (lengthSize == 0) {
        splitAnnexB(bytes, nals);
    } else {
        splitLengthPrefixed(bytes, std::min(lengthSize, 4U), nals);
    }
}

std::int32_t parameterSetId(Bytes nal) noexcept {
    RbspBits bits(nal);
    switch (nalUnitType(nal)) {
    case keNalSequenceParameterSet:
        bits.skipBytes(3); // profile_idc, constraint flags, level_idc
        return bits.exponentialGolomb();
    case keNalPictureParameterSet:
        return bits.exponentialGolomb();
    default:
        return -1;
    }
}

std::int32_t ParameterSets::keep(Bytes nal) {
    const std::int32_t id = parameterSetId(nal);
    const bool isSequence = nalUnitType(nal) == keNalSequenceParameterSet;
    if (id < 0 || id >= (isSequence ? kSequenceSets : kPictureSets) || nal.size() > kLargestParameterSet) {
        return -1;
    }
    const auto number = static_cast<std::uint32_t>(id);
    std::vector<std::uint8_t>& kept = (isSequence ? m_sequence : m_picture)[number];
    if (!equal(kept, nal)) {
        kept.assign(nal.begin(), nal.end());
    }
    return id;
}

bool ParameterSets::complete() const noexcept { return !m_sequence.empty() && !m_picture.empty(); }

std::vector<std::uint8_t> ParameterSets::annexB() const {
    std::vector<std::uint8_t> bytes;
    if (!m_sequence.empty()) {
        appendAnnexB(m_sequence, bytes);
        appendAnnexB(m_picture, bytes);
    }
    return bytes;
}

AvcConfiguration readAvcConfiguration(Bytes configuration) {
    // configurationVersion 1, profile, compatibility, level, lengthSizeMinusOne in 2 bits, then counted lists
    // of sequence (count in 5 bits) and picture parameter sets, each behind a 16-bit length.
    AvcConfiguration result;
    if (configuration.size() < 7 || configuration[0] != 1) {
        splitNalUnits(configuration, 0, result.parameterSets);
        return result;
    }
    result.lengthSize = (configuration[4] & 3U) + 1;
    std::size_t at = 5;
    for (const unsigned countMask : {0x1FU, 0xFFU}) {
        if (at >= configuration.size()) {
            return result;
        }
        const unsigned count = configuration[at++] & countMask;
        for (unsigned i = 0; i < count; ++i) {
            if (configuration.size() - at < 2) {
                return result;
            }
            const std::size_t length = std::size_t{configuration[at]} << 8 | configuration[at + 1];
            at += 2;
            if (length > configuration.size() - at) {
                return result;
            }
            result.parameterSets.push_back(configuration.subspan(at, length));
            at += length;
        }
    }
    return result;
}

std::span<const Bytes> AccessUnitFormatter::format(Bytes accessUnit, unsigned lengthSize,
                                                   ParameterSets& sets) {
    splitNalUnits(accessUnit, lengthSize, m_nals);
    m_pieces.clear();
    const std::size_t afterDelimiter =
        !m_nals.empty() && nalUnitType(m_nals[0]) == keNalAccessUnitDelimiter ? 1 : 0;
    // Picture parameter sets refer to sequence parameter sets, so they follow those of the access unit.
    std::size_t afterSequenceSets = afterDelimiter;
    bool hasIdr = false;
    Identifiers inBandSequence;
    Identifiers inBandPicture;
    for (std::size_t i = 0; i < m_nals.size(); ++i) {
        const std::uint8_t type = nalUnitType(m_nals[i]);
        hasIdr = hasIdr || type == keNalIdrSlice;
        if (type == keNalSequenceParameterSet || type == keNalPictureParameterSet) {
            const std::int32_t id = sets.keep(m_nals[i]);
            if (id >= 0) {
                (type == keNalSequenceParameterSet ? inBandSequence : inBandPicture)
                    .set(static_cast<std::size_t>(id));
            }
            if (type == keNalSequenceParameterSet && !hasIdr) {
                afterSequenceSets = i + 1;
            }
        }
    }
    for (std::size_t i = 0; i <= m_nals.size(); ++i) {
        if (hasIdr && i == afterDelimiter) {
            appendMissing(sets.sequence(), inBandSequence);
        }
        if (hasIdr && i == afterSequenceSets) {
            appendMissing(sets.picture(), inBandPicture);
        }
        if (i < m_nals.size()) {
            append(m_nals[i]);
        }
    }
    return m_pieces;
}

void AccessUnitFormatter::append(Bytes nal) {
    m_pieces.emplace_back(kStartCode);
    m_pieces.push_back(nal);
}

void AccessUnitFormatter::appendMissing(const ParameterSets::ById& known, const Identifiers& inBand) {
    for (const auto& [id, nal] : known) {
        if (!inBand.test(id)) {
            append(nal);
        }
    }
}

} // namespace KorvelVideo::NetworkSource
