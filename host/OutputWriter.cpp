#include "OutputWriter.h"

#include <algorithm>
#include <utility>

namespace KorvelVideo::Host {

OutputWriter::OutputWriter(std::string directory, std::size_t units, std::uint64_t bytes)
    : m_directory(std::move(directory)), m_mostUnits(units), m_mostBytes(bytes) {
    m_queue.reserve(m_mostUnits);
    m_thread = std::thread(&OutputWriter::run, this);
}

OutputWriter::~OutputWriter() { close(); }

OutputFile& OutputWriter::create(const std::string& name, const std::string& extension, Framing framing) {
    const std::lock_guard lock(m_filesLock);
    return m_files.emplace_back(m_directory, name, extension, framing);
}

void OutputWriter::push(OutputFile& file, MediaBuffer& unit) noexcept {
    const std::uint64_t size = unit.bytes().size();
    {
        const std::lock_guard lock(m_lock);
        if (!m_isClosing && m_units < m_mostUnits && m_bytes + size <= m_mostBytes) {
            unit.keep();
            m_queue.push_back({&file, &unit}); // within what was reserved
            ++m_units;
            m_bytes += size;
        } else {
            file.countLost();
            return;
        }
    }
    m_changed.notify_one();
}

void OutputWriter::close() {
    {
        const std::lock_guard lock(m_lock);
        m_isClosing = true;
    }
    m_changed.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    const std::lock_guard lock(m_filesLock);
    for (OutputFile& file : m_files) {
        file.close();
    }
}

bool OutputWriter::hasFailed() {
    const std::lock_guard lock(m_filesLock);
    return m_hasFailed || std::any_of(m_files.begin(), m_files.end(), [](const OutputFile& file) {
               return file.lostUnits() != 0 || !file.problem().empty();
           });
}

void OutputWriter::run() {
    std::vector<Entry> entries;
    entries.reserve(m_mostUnits);
    while (takeQueued(entries)) {
        write(entries);
        entries.clear();
    }
}

bool OutputWriter::takeQueued(std::vector<Entry>& entries) {
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [this] { return m_isClosing || !m_queue.empty(); });
    m_queue.swap(entries);
    return !entries.empty();
}

void OutputWriter::write(const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
        const std::uint64_t size = entry.unit->bytes().size();
        entry.file->append(*entry.unit);
        entry.unit->giveBack();
        const std::lock_guard lock(m_lock);
        --m_units;
        m_bytes -= size;
    }
    // A file is never further behind than the queue, so that it can be watched while it grows.
    for (const Entry& entry : entries) {
        entry.file->flush();
    }
}

} // namespace KorvelVideo::Host
