#pragma once

// What the host asks of the operating system beyond platform/ and the standard library; one file for each
// system implements it.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <system_error>

namespace KorvelVideo::Host {

// Turns the first request of the user to end the program (an interrupt from the keyboard, a signal to end)
// into a call; the next one ends the process at once. Made before any thread is started, one at a time.
class EndSignals {
public:
    // `requested` is called once at most, on a thread of its own, while this object lives.
    explicit EndSignals(std::function<void()> requested);
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;
    ~EndSignals();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// A file that did not exist before.
class NewFile {
public:
    NewFile() = default;
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() { static_cast<void>(close()); }

    // std::errc::file_exists when there is such a file.
    [[nodiscard]] std::error_code create(const std::string& path);
    [[nodiscard]] bool isOpen() const noexcept { return m_descriptor >= 0; }
    // Returns how many bytes were written: fewer than all only with an error.
    [[nodiscard]] std::size_t write(std::span<const std::uint8_t> bytes, std::error_code& error);
    std::error_code close();

private:
    int m_descriptor = -1;
};

// No error when files can be created in the folder, or the file can be read.
[[nodiscard]] std::error_code checkWritableFolder(const std::string& path);
[[nodiscard]] std::error_code checkReadableFile(const std::string& path);

struct TerminalSize {
    std::size_t columns = 80;
    std::size_t rows = 24;
};

// Whether standard output is a terminal that takes escape sequences, and its size as far as it tells.
[[nodiscard]] bool isOutputTerminal();
[[nodiscard]] TerminalSize terminalSize();

// Before any thread is started.
void setEnvironmentVariable(const char* name, const char* value);

} // namespace KorvelVideo::Host
