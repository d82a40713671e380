#include "OutputFile.h"

#include <system_error>
#include <utility>

namespace KorvelVideo::Host {

namespace {

constexpr std::size_t gatherSize = 64U << 10U;
constexpr int mostNames = 10000;

// Whether a sequence parameter set comes before the picture in an access unit in Annex B form
// (ISO/IEC 14496-10, 7.4.1.2.3).
bool hasSequenceParameterSet(std::span<const std::uint8_t> unit) noexcept {
    constexpr unsigned lastSliceType = 5;
    constexpr unsigned sequenceParameterSetType = 7;
    for (std::size_t at = 0; at + 3 < unit.size(); ++at) {
        if (unit[at] != 0 || unit[at + 1] != 0 || unit[at + 2] != 1) {
            continue;
        }
        const unsigned type = unit[at + 3] & 0x1FU;
        if (type == sequenceParameterSetType) {
            return true;
        }
        if (type >= 1 && type <= lastSliceType) {
            return false;
        }
    }
    return false;
}

} // namespace

OutputFile::OutputFile(const std::string& directory, const std::string& name, const std::string& extension,
                       Framing framing)
    : m_framing(framing) {
    const std::string stem = directory + "/" + name;
    m_path = stem + extension;
    std::error_code error = m_file.create(m_path);
    for (int number = 2; error == std::errc::file_exists && number < mostNames; ++number) {
        m_path = stem;
        m_path.append("-").append(std::to_string(number)).append(extension);
        error = m_file.create(m_path);
    }
    if (error) {
        throw std::system_error(error, "cannot create " + m_path);
    }
    m_gathered.reserve(gatherSize);
}

OutputFile::~OutputFile() { close(); }

void OutputFile::append(const MediaBuffer& unit) {
    m_hasBegun = m_hasBegun || begins(unit);
    if (!m_hasBegun) {
        return;
    }
    const bool isFramed = m_framing != Framing::adts || appendAdtsHeader(unit);
    if (!isFramed || m_isBroken) {
        countLost();
        return;
    }
    gather(unit.bytes());
}

void OutputFile::flush() {
    writeAll(m_gathered);
    m_gathered.clear();
}

void OutputFile::close() {
    if (!m_file.isOpen()) {
        return;
    }
    flush();
    if (const std::error_code error = m_file.close()) {
        setProblem(error.message());
    }
}

std::string OutputFile::problem() const {
    const std::lock_guard lock(m_lock);
    return m_problem;
}

void OutputFile::setProblem(const std::string& problem) {
    const std::lock_guard lock(m_lock);
    if (m_problem.empty()) {
        m_problem = problem;
    }
}

bool OutputFile::begins(const MediaBuffer& unit) const noexcept {
    return m_framing != Framing::annexB || hasSequenceParameterSet(unit.bytes());
}

bool OutputFile::appendAdtsHeader(const MediaBuffer& unit) {
    if (unit.configuration() != m_configuration.get() || !m_adts) {
        m_configuration = Reference(unit.configuration());
        std::span<const std::uint8_t> bytes;
        if (m_configuration) {
            bytes = m_configuration->bytes();
        }
        auto header = AdtsHeader::fromConfiguration(bytes);
        if (const auto* problem = std::get_if<std::string>(&header)) {
            setProblem(*problem);
            return false;
        }
        m_adts = std::get<AdtsHeader>(header);
    }
    const auto header = m_adts->frame(unit.bytes().size());
    if (!header) {
        setProblem("an access unit is too large for an .aac file");
        return false;
    }
    gather(*header);
    return true;
}

void OutputFile::gather(std::span<const std::uint8_t> bytes) {
    if (m_gathered.size() + bytes.size() > gatherSize) {
        flush();
    }
    if (bytes.size() >= gatherSize) {
        writeAll(bytes);
        return;
    }
    m_gathered.insert(m_gathered.end(), bytes.begin(), bytes.end());
}

void OutputFile::writeAll(std::span<const std::uint8_t> bytes) {
    if (m_isBroken) {
        return;
    }
    std::error_code error;
    m_writtenBytes += m_file.write(bytes, error);
    if (error) {
        m_isBroken = true;
        setProblem(error.message());
    }
}

} // namespace KorvelVideo::Host
