#pragma once

// The command line.

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace KorvelVideo::Host {

using Seconds = std::chrono::duration<double>;

// Which factory makes the receiver of an address.
enum class ReceiverKind { rtsp, rtmp, rtp, tsOverUdp };

struct Source {
    ReceiverKind kind;
    std::string url; // as the module gets it: scheme in lower case

    bool operator==(const Source&) const = default;
};

enum class Action { receive, showHelp, showVersion };

struct Options {
    Action action = Action::receive;
    std::vector<Source> sources;
    std::string outputDirectory;  // empty: nothing is written
    std::string networkInterface; // name or local address; empty leaves the choice to the system
    std::int32_t port = 0;        // 0 leaves the choice to the system
    std::uint32_t clientOption = 0;
    std::optional<Seconds> duration; // none: until the sources end
    std::optional<Source> redirect;
    Seconds redirectAfter{5};
    std::optional<std::uint32_t> logLevel; // 0 (everything) to 4 (errors)
    bool json = false;
};

struct UsageError {
    std::string message;
};

// Reads the arguments that follow the program's name.
[[nodiscard]] std::variant<Options, UsageError> parseOptions(std::span<const char* const> arguments);

// What `text` addresses: by its scheme, or, without one, a session description file.
[[nodiscard]] std::variant<Source, UsageError> parseSource(std::string_view text);

// The address for people and logs: a password in it is replaced.
[[nodiscard]] std::string withoutPassword(std::string_view url);

[[nodiscard]] const char* helpText() noexcept;

} // namespace KorvelVideo::Host
