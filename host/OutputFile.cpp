#include "OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace KorvelVideo::Host {

namespace {

constexpr std::size_t gatherSize = 64U << 10U;
constexpr int mostNames = 10000;

int createNew(const std::string& path) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
}

} // namespace

OutputFile::OutputFile(const std::string& directory, const std::string& name, const std::string& extension,
                       Framing framing)
    : m_framing(framing) {
    const std::string stem = directory + "/" + name;
    m_path = stem + extension;
    m_descriptor = createNew(m_path);
    for (int number = 2; m_descriptor < 0 && errno == EEXIST && number < mostNames; ++number) {
        m_path = stem;
        m_path.append("-").append(std::to_string(number)).append(extension);
        m_descriptor = createNew(m_path);
    }
    if (m_descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot create " + m_path);
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
    if (m_descriptor < 0) {
        return;
    }
    flush();
    if (::close(std::exchange(m_descriptor, -1)) != 0) {
        setProblem(std::generic_category().message(errno));
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
    while (!bytes.empty() && !m_isBroken) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written > 0) {
            m_writtenBytes += static_cast<std::uint64_t>(written);
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            m_isBroken = true;
            setProblem(std::generic_category().message(errno));
        }
    }
}

} // namespace KorvelVideo::Host
