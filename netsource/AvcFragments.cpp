#include "AvcFragments.h"

#include <algorithm>
#include <utility>

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::uint8_t kSupplementalInformation = 6;
// Clock corrections by RTCP move the time of fragments of one access unit apart by less than that.
constexpr std::int64_t kSameTime = std::int64_t{2} * 10'000;

bool isSlice(Bytes nal) noexcept {
    const std::uint8_t type = nalUnitType(nal);
    return type >= 1 && type <= 5;
}

// ISO/IEC 14496-10, 7.4.1.2.3, as far as the first bytes tell: what may not follow a slice of its own access
// unit, or a slice that begins a picture (first_mb_in_slice is 0).
bool mayBeginPicture(Bytes nal) noexcept {
    const std::uint8_t type = nalUnitType(nal);
    return (type >= kSupplementalInformation && type <= keNalAccessUnitDelimiter) ||
           (isSlice(nal) && nal.size() > 1 && (nal[1] & 0x80) != 0);
}

// A buffering period (payloadType 0) comes with IDR pictures and refers to their sequence parameter set.
bool isBufferingPeriod(Bytes nal) noexcept {
    return nalUnitType(nal) == kSupplementalInformation && nal.size() > 1 && nal[1] == 0;
}

std::size_t startCodeLength(Bytes bytes) noexcept {
    std::size_t zeros = 0;
    while (zeros < bytes.size() && zeros < 3 && bytes[zeros] == 0) {
        ++zeros;
    }
    return zeros >= 2 && zeros < bytes.size() && bytes[zeros] == 1 ? zeros + 1 : 0;
}

} // namespace

bool AvcFragmentWriter::beginsAccessUnit(Bytes fragment, std::optional<std::int64_t> time) const {
    if (!m_time) {
        return true;
    }
    const std::size_t startCode = startCodeLength(fragment);
    if (startCode == 0 || !time || *time == *m_time) {
        return false;
    }
    const bool farAway = *time - *m_time >= kSameTime || *m_time - *time >= kSameTime;
    return farAway || (m_hasSlice && mayBeginPicture(fragment.subspan(startCode)));
}

std::size_t AvcFragmentWriter::write(Bytes fragment, std::optional<std::int64_t> time, ParameterSets& sets,
                                     std::size_t stream, SourceSink& sink) {
    m_sink = &sink;
    m_stream = stream;
    m_leftOut = 0;
    if (!m_time && startCodeLength(fragment) == 0) {
        return fragment.size(); // the rest of a NAL unit whose start came before we did
    }
    const bool begins = beginsAccessUnit(fragment, time);
    if (begins) {
        handOn();
        m_time = time.value_or(m_time.value_or(0));
        m_timeStamp = m_stamps.next(time, 0);
        m_hasSlice = m_hasSets = false;
        m_sequenceSets.reset();
        m_pictureSets.reset();
    }
    if (startCodeLength(fragment) == 0) {
        copy(fragment);
    } else {
        splitNalUnits(fragment, 0, m_nals);
        // Zeros at the end may belong to a NAL unit that the next fragment continues.
        if (!m_nals.empty()) {
            const std::uint8_t* const last = m_nals.back().data();
            m_nals.back() = {last, static_cast<std::size_t>(fragment.data() + fragment.size() - last)};
        }
        for (const Bytes nal : m_nals) {
            writeNal(nal, sets);
        }
    }
    if (begins) {
        handOn();
    }
    return m_leftOut;
}

void AvcFragmentWriter::flush(std::size_t stream, SourceSink& sink) {
    m_sink = &sink;
    m_stream = stream;
    handOn();
}

void AvcFragmentWriter::writeNal(Bytes nal, ParameterSets& sets) {
    const std::uint8_t type = nalUnitType(nal);
    if (type == keNalSequenceParameterSet || type == keNalPictureParameterSet) {
        const std::int32_t id = sets.keep(nal);
        if (id >= 0) {
            (type == keNalSequenceParameterSet ? m_sequenceSets : m_pictureSets)
                .set(static_cast<std::size_t>(id));
        }
    }
    if ((type == keNalIdrSlice || isBufferingPeriod(nal)) && !m_hasSets) {
        m_hasSets = true;
        writeMissing(sets.sequence(), m_sequenceSets);
        writeMissing(sets.picture(), m_pictureSets);
    }
    m_hasSlice = m_hasSlice || isSlice(nal);
    copy(kStartCode);
    copy(nal);
}

void AvcFragmentWriter::writeMissing(const ParameterSets::ById& known, const std::bitset<256>& inBand) {
    for (const auto& [id, nal] : known) {
        if (!inBand.test(id)) {
            copy(kStartCode);
            copy(nal);
        }
    }
}

void AvcFragmentWriter::copy(Bytes bytes) {
    while (!bytes.empty()) {
        if (m_filled == m_buffer.size()) {
            handOn();
            m_buffer = m_sink->borrow(m_stream);
            if (m_buffer.empty()) {
                m_leftOut += bytes.size();
                return;
            }
        }
        const std::size_t length = std::min(bytes.size(), m_buffer.size() - m_filled);
        std::copy_n(bytes.begin(), length, m_buffer.begin() + static_cast<std::ptrdiff_t>(m_filled));
        m_filled += length;
        bytes = bytes.subspan(length);
    }
}

void AvcFragmentWriter::handOn() {
    if (m_buffer.empty()) {
        return;
    }
    const std::span<std::uint8_t> full = std::exchange(m_buffer, {});
    const auto length = static_cast<std::uint32_t>(std::exchange(m_filled, 0));
    m_sink->deliver(m_stream, full.data(), length, m_timeStamp);
}

} // namespace KorvelVideo::NetworkSource
