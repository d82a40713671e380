// kvreceive: receives live audio and video through the component, shows what comes and writes it to files.

#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include "Application.h"
#include "HostLogger.h"
#include "Options.h"
#include "Terminal.h"

namespace {

using namespace KorvelVideo::Host;

constexpr std::uint32_t errorsOnly = 4;

// Turns the signals that end a program into something to wait for. Made before any thread, so that none is
// hit by them.
class EndSignals {
public:
    EndSignals() {
        sigemptyset(&m_signals);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&m_signals, signal);
        }
        pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        m_descriptor = signalfd(-1, &m_signals, SFD_CLOEXEC | SFD_NONBLOCK);
        if (m_descriptor < 0) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;
    ~EndSignals() { close(m_descriptor); }

    [[nodiscard]] int descriptor() const noexcept { return m_descriptor; }

    // Takes the signal that came; the next one ends the process.
    void letNextKill() {
        signalfd_siginfo signal{};
        [[maybe_unused]] const ssize_t taken = read(m_descriptor, &signal, sizeof signal);
        pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
    }

private:
    sigset_t m_signals{};
    int m_descriptor = -1;
};

std::size_t terminalColumns() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

int receive(const Options& options) {
    EndSignals signals;
    const bool isLive = !options.json && isatty(STDOUT_FILENO) != 0;
    static Terminal terminal(stdout, stderr, isLive, terminalColumns());
    registerLogger(options.logLevel.value_or(errorsOnly), terminal);
    Application application(options, terminal, {signals.descriptor(), [&signals] { signals.letNextKill(); }});
    return application.run();
}

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        const std::span<const char* const> all(arguments, static_cast<std::size_t>(argumentCount));
        const auto parsed = parseOptions(all.empty() ? all : all.subspan(1));
        if (const auto* error = std::get_if<UsageError>(&parsed)) {
            std::fprintf(stderr, "kvreceive: %s\nTry kvreceive --help.\n", error->message.c_str());
            return exitUsage;
        }
        const auto& options = std::get<Options>(parsed);
        switch (options.action) {
        case Action::showHelp:
            std::fputs(helpText(), stdout);
            return 0;
        case Action::showVersion:
            std::puts("kvreceive " KV_VERSION);
            return 0;
        case Action::receive:
            break;
        }
        return receive(options);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "kvreceive: %s\n", exception.what());
        return exitOpenFailed;
    }
}
