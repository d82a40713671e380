#include "OutputFile.h"

#include <system_error>
#include <utility>

namespace KorvelVideo::Host {

namespace {

constexpr std::size_t gatherSize = 64U << 10U;
constexpr int mostNames = 10000;

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
    const bool isFramed = m_framing == Framing::none || appendAdtsHeader(unit);
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
