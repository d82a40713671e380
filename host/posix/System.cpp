#include "System.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <semaphore>
#include <thread>
#include <utility>

namespace KorvelVideo::Host {

namespace {

std::error_code lastError() { return {errno, std::generic_category()}; }

} // namespace

// The signals are blocked in every thread and taken by one that waits for them.
struct EndSignals::State {
    std::function<void()> requested;
    sigset_t signals{};
    std::mutex lock;
    bool isTaken = false; // by the thread
    bool isOver = false;
    std::binary_semaphore over{0};
    std::thread thread;

    void take() {
        int signal = 0;
        sigwait(&signals, &signal);
        {
            const std::lock_guard guard(lock);
            if (isOver) {
                return;
            }
            isTaken = true;
        }
        requested();
        // From here on a signal finds a thread that does not block it.
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
        over.acquire();
    }
};

EndSignals::EndSignals(std::function<void()> requested) : m_state(std::make_unique<State>()) {
    State& state = *m_state;
    state.requested = std::move(requested);
    sigemptyset(&state.signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&state.signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &state.signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    state.thread = std::thread(&State::take, &state);
}

EndSignals::~EndSignals() {
    State& state = *m_state;
    {
        const std::lock_guard guard(state.lock);
        state.isOver = true;
        if (!state.isTaken) {
            pthread_kill(state.thread.native_handle(), SIGHUP); // blocked there, so it only ends the wait
        }
    }
    state.over.release();
    state.thread.join();
}

std::error_code NewFile::create(const std::string& path) {
    m_descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    return isOpen() ? std::error_code() : lastError();
}

std::size_t NewFile::write(std::span<const std::uint8_t> bytes, std::error_code& error) {
    std::size_t total = 0;
    while (total < bytes.size()) {
        const ssize_t written = ::write(m_descriptor, bytes.data() + total, bytes.size() - total);
        if (written > 0) {
            total += static_cast<std::size_t>(written);
        } else if (errno != EINTR) {
            error = lastError();
            break;
        }
    }
    return total;
}

std::error_code NewFile::close() {
    const bool isClosed = !isOpen() || ::close(std::exchange(m_descriptor, -1)) == 0;
    return isClosed ? std::error_code() : lastError();
}

std::error_code checkWritableFolder(const std::string& path) {
    return access(path.c_str(), W_OK | X_OK) == 0 ? std::error_code() : lastError();
}

std::error_code checkReadableFile(const std::string& path) {
    return access(path.c_str(), R_OK) == 0 ? std::error_code() : lastError();
}

bool isOutputTerminal() { return isatty(STDOUT_FILENO) != 0; }

TerminalSize terminalSize() {
    winsize size{};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 2;
    return isKnown ? TerminalSize{size.ws_col, size.ws_row} : TerminalSize{};
}

void setEnvironmentVariable(const char* name, const char* value) {
    setenv(name, value, 1); // NOLINT(concurrency-mt-unsafe): no other thread runs yet
}

} // namespace KorvelVideo::Host
