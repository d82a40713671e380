#pragma once

// One file of received data, written without a gap or said to have one.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "AdtsHeader.h"
#include "MediaPool.h"
#include "System.h"

namespace KorvelVideo::Host {

// What makes a playable file of access units as they come.
enum class Framing {
    none,
    annexB, // the file begins with the first access unit that has parameter sets: nothing before it can be
            // decoded
    adts,   // a header before each access unit
};

class OutputFile {
public:
    // Creates a new file in `directory`, named `name` + `extension`, or `name`-2, `name`-3 ... where that
    // exists: nothing is ever overwritten. Throws std::system_error that names the file.
    OutputFile(const std::string& directory, const std::string& name, const std::string& extension,
               Framing framing);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    // The three below are called on one thread.

    // Appends the access unit. What cannot be written is counted as lost; what comes before the file can
    // begin is not.
    void append(const MediaBuffer& unit);
    // Hands to the system what is gathered.
    void flush();
    void close();

    // Any thread.

    [[nodiscard]] const std::string& path() const noexcept { return m_path; }
    [[nodiscard]] std::uint64_t writtenBytes() const noexcept { return m_writtenBytes; }
    [[nodiscard]] std::uint64_t lostUnits() const noexcept { return m_lostUnits; }
    // An access unit that never came to `append`.
    void countLost() noexcept { ++m_lostUnits; }
    // Why the file is not whole; empty while it is.
    [[nodiscard]] std::string problem() const;
    // Keeps the first problem only.
    void setProblem(const std::string& problem);

private:
    [[nodiscard]] bool begins(const MediaBuffer& unit) const noexcept;
    [[nodiscard]] bool appendAdtsHeader(const MediaBuffer& unit);
    void gather(std::span<const std::uint8_t> bytes);
    void writeAll(std::span<const std::uint8_t> bytes);

    std::string m_path;
    Framing m_framing;
    NewFile m_file;
    bool m_hasBegun = false;
    bool m_isBroken = false;
    std::vector<std::uint8_t> m_gathered;
    std::atomic<std::uint64_t> m_writtenBytes{0};
    std::atomic<std::uint64_t> m_lostUnits{0};

    Reference<AacConfiguration> m_configuration; // that of m_adts
    std::optional<AdtsHeader> m_adts;

    mutable std::mutex m_lock;
    std::string m_problem;
};

} // namespace KorvelVideo::Host
