// kvreceive: receives live audio and video through the component, shows what comes and writes it to files.

#include <cstdio>
#include <exception>

#include "Application.h"
#include "HostLogger.h"
#include "Options.h"
#include "System.h"
#include "Terminal.h"

namespace {

using namespace KorvelVideo::Host;

constexpr std::uint32_t errorsOnly = 4;

int receive(const Options& options) {
    const bool isLive = !options.json && isOutputTerminal();
    static Terminal terminal(stdout, stderr, isLive, terminalSize());
    registerLogger(options.logLevel.value_or(errorsOnly), terminal);
    Application application(options, terminal);
    const EndSignals signals([&application] { application.requestEnd(); });
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
