#include "System.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "PlatformKernel.h"

namespace KorvelVideo::Host {

namespace {

// How long the system waits at most for a program whose console is closed.
constexpr DWORD kCloseGrace = 10'000;

constexpr int kReadMode = 4;
constexpr int kWriteMode = 2;

std::mutex g_lock;
std::function<void()> g_requested; // empty once it has been called

std::error_code lastError() { return {errno, std::generic_category()}; }

BOOL WINAPI onControl(DWORD event) {
    {
        const std::lock_guard guard(g_lock);
        if (!g_requested) {
            return FALSE;
        }
        std::exchange(g_requested, nullptr)();
    }
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        Sleep(kCloseGrace); // returning would end the process; it ends by itself before
    }
    return TRUE;
}

std::error_code checkAccess(const std::string& path, int mode) {
    return _access(path.c_str(), mode) == 0 ? std::error_code() : lastError();
}

} // namespace

struct EndSignals::State {};

EndSignals::EndSignals(std::function<void()> requested) {
    const std::lock_guard guard(g_lock);
    g_requested = std::move(requested);
    SetConsoleCtrlHandler(onControl, TRUE);
}

EndSignals::~EndSignals() {
    SetConsoleCtrlHandler(onControl, FALSE);
    const std::lock_guard guard(g_lock);
    g_requested = nullptr;
}

std::error_code NewFile::create(const std::string& path) {
    m_descriptor =
        _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    return isOpen() ? std::error_code() : lastError();
}

std::size_t NewFile::write(std::span<const std::uint8_t> bytes, std::error_code& error) {
    std::size_t total = 0;
    while (total < bytes.size()) {
        const std::size_t size = std::min<std::size_t>(bytes.size() - total, INT_MAX);
        const int written = _write(m_descriptor, bytes.data() + total, static_cast<unsigned>(size));
        if (written <= 0) {
            error = lastError();
            break;
        }
        total += static_cast<std::size_t>(written);
    }
    return total;
}

std::error_code NewFile::close() {
    const bool isClosed = !isOpen() || _close(std::exchange(m_descriptor, -1)) == 0;
    return isClosed ? std::error_code() : lastError();
}

std::error_code checkWritableFolder(const std::string& path) { return checkAccess(path, kWriteMode); }

std::error_code checkReadableFile(const std::string& path) { return checkAccess(path, kReadMode); }

bool isOutputTerminal() {
    HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(output, &mode) != 0 &&
           SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

TerminalSize terminalSize() {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    const bool isKnown = GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info) != 0;
    const int columns = info.srWindow.Right - info.srWindow.Left + 1;
    const int rows = info.srWindow.Bottom - info.srWindow.Top + 1;
    return isKnown && columns > 1 && rows > 2
               ? TerminalSize{static_cast<std::size_t>(columns), static_cast<std::size_t>(rows)}
               : TerminalSize{};
}

void setEnvironmentVariable(const char* name, const char* value) { _putenv_s(name, value); }

} // namespace KorvelVideo::Host
