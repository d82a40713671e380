#pragma once

// Writes what is received on a thread of its own, so that a disk never holds up reception. Between the two
// is a queue of limited size. When the disk falls so far behind that the queue is full, whole access units
// are left out of the file, counted, and the file is said to have a gap; reception goes on untouched.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "OutputFile.h"

namespace KorvelVideo::Host {

class OutputWriter {
public:
    static constexpr std::size_t mostUnits = 8192;
    static constexpr std::uint64_t mostBytes = 64U << 20U;

    explicit OutputWriter(std::string directory, std::size_t units = mostUnits,
                          std::uint64_t bytes = mostBytes);
    OutputWriter(const OutputWriter&) = delete;
    OutputWriter& operator=(const OutputWriter&) = delete;
    ~OutputWriter();

    // Creates a file that lives as long as the writer. Throws std::system_error. Any thread.
    OutputFile& create(const std::string& name, const std::string& extension, Framing framing);

    // Puts a filled buffer into the queue, which adds its own reference; never waits for the disk. Any
    // thread.
    void push(OutputFile& file, MediaBuffer& unit) noexcept;

    // Writes what is queued and closes every file. What is pushed afterwards is lost.
    void close();

    // A file that was asked for could not be created.
    void setFailed() noexcept { m_hasFailed = true; }
    // Whether any file is missing or not whole.
    [[nodiscard]] bool hasFailed();

private:
    struct Entry {
        OutputFile* file;
        MediaBuffer* unit;
    };

    void run();
    // Takes all that is queued; false when the writer is closed and nothing is left.
    [[nodiscard]] bool takeQueued(std::vector<Entry>& entries);
    void write(const std::vector<Entry>& entries);

    const std::string m_directory;
    const std::size_t m_mostUnits;
    const std::uint64_t m_mostBytes;

    std::atomic<bool> m_hasFailed{false};
    std::mutex m_filesLock;
    std::list<OutputFile> m_files;

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<Entry> m_queue;
    std::size_t m_units = 0;   // queued or being written
    std::uint64_t m_bytes = 0; // likewise
    bool m_isClosing = false;
    std::thread m_thread;
};

} // namespace KorvelVideo::Host
