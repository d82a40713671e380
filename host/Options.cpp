#include "Options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <initializer_list>

namespace KorvelVideo::Host {

namespace {

using Problem = std::optional<std::string>;

std::string joined(std::initializer_list<std::string_view> parts) {
    std::string text;
    for (const std::string_view part : parts) {
        text += part;
    }
    return text;
}

template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

Problem setSeconds(std::string_view name, std::string_view value, Seconds& seconds) {
    constexpr double longest = 1e9;
    const std::optional<double> number = parseNumber<double>(value);
    if (!number || !std::isfinite(*number) || *number < 0 || *number > longest) {
        return joined({name, " needs a number of seconds, not \"", value, "\""});
    }
    seconds = Seconds(*number);
    return std::nullopt;
}

Problem setOutput(Options& options, std::string_view value) {
    if (value.empty()) {
        return "--output needs a directory";
    }
    options.outputDirectory = value;
    return std::nullopt;
}

Problem setInterface(Options& options, std::string_view value) {
    options.networkInterface = value;
    return std::nullopt;
}

Problem setPort(Options& options, std::string_view value) {
    const std::optional<std::uint16_t> port = parseNumber<std::uint16_t>(value);
    if (!port || *port == 0) {
        return joined({"--port needs a number from 1 to 65535, not \"", value, "\""});
    }
    options.port = *port;
    return std::nullopt;
}

Problem setClientOption(Options& options, std::string_view value) {
    const std::optional<std::uint32_t> option = parseNumber<std::uint32_t>(value);
    if (!option) {
        return joined({"--client-option needs a number from 0 to 4294967295, not \"", value, "\""});
    }
    options.clientOption = *option;
    return std::nullopt;
}

Problem setDuration(Options& options, std::string_view value) {
    return setSeconds("--duration", value, options.duration.emplace());
}

Problem setRedirect(Options& options, std::string_view value) {
    std::variant<Source, UsageError> source = parseSource(value);
    if (const auto* error = std::get_if<UsageError>(&source)) {
        return joined({"--redirect: ", error->message});
    }
    options.redirect = std::get<Source>(std::move(source));
    return std::nullopt;
}

Problem setRedirectAfter(Options& options, std::string_view value) {
    return setSeconds("--redirect-after", value, options.redirectAfter);
}

Problem setLogLevel(Options& options, std::string_view value) {
    constexpr std::array<std::string_view, 5> names{"trace", "info", "notice", "warning", "error"};
    const auto found = std::find(names.begin(), names.end(), value);
    if (found == names.end()) {
        return joined({"--log needs trace, info, notice, warning or error, not \"", value, "\""});
    }
    options.logLevel = static_cast<std::uint32_t>(found - names.begin());
    return std::nullopt;
}

struct ValueOption {
    std::string_view name;
    Problem (*set)(Options&, std::string_view value);
};

constexpr ValueOption valueOptions[] = {
    {"--output", setOutput},
    {"--nic", setInterface},
    {"--port", setPort},
    {"--client-option", setClientOption},
    {"--duration", setDuration},
    {"--redirect", setRedirect},
    {"--redirect-after", setRedirectAfter},
    {"--log", setLogLevel},
};

// What must hold between the options; empty when it does.
Problem checkTogether(const Options& options) {
    if (options.sources.empty()) {
        return "no address given";
    }
    const auto any = [&options](auto... kinds) {
        return std::any_of(options.sources.begin(), options.sources.end(),
                           [=](const Source& source) { return ((source.kind == kinds) || ...); });
    };
    if (options.port != 0 && !any(ReceiverKind::rtsp, ReceiverKind::rtmp)) {
        return "--port applies to rtsp:// and rtmp:// only; other addresses carry their port";
    }
    if (options.clientOption != 0 && !any(ReceiverKind::rtp)) {
        return "--client-option applies to rtp:// and description files only";
    }
    if (options.redirect && options.sources.size() != 1) {
        return "--redirect needs exactly one address to redirect from";
    }
    if (options.redirect && options.redirect->kind != options.sources.front().kind) {
        return "--redirect needs an address of the same protocol";
    }
    return std::nullopt;
}

class Parser {
public:
    explicit Parser(std::span<const char* const> arguments) : m_arguments(arguments) {}

    std::variant<Options, UsageError> parse() {
        while (m_next < m_arguments.size()) {
            if (Problem problem = parseOne(m_arguments[m_next++])) {
                return UsageError{std::move(*problem)};
            }
            if (m_options.action != Action::receive) {
                return m_options;
            }
        }
        if (Problem problem = checkTogether(m_options)) {
            return UsageError{std::move(*problem)};
        }
        return m_options;
    }

private:
    Problem parseOne(std::string_view argument) {
        if (m_optionsEnded || argument.size() < 2 || argument.front() != '-') {
            return addSource(argument);
        }
        if (argument == "--") {
            m_optionsEnded = true;
        } else if (argument == "--help" || argument == "-h") {
            m_options.action = Action::showHelp;
        } else if (argument == "--version") {
            m_options.action = Action::showVersion;
        } else if (argument == "--json") {
            m_options.json = true;
        } else {
            return parseWithValue(argument);
        }
        return std::nullopt;
    }

    Problem addSource(std::string_view argument) {
        std::variant<Source, UsageError> source = parseSource(argument);
        if (auto* error = std::get_if<UsageError>(&source)) {
            return std::move(error->message);
        }
        m_options.sources.push_back(std::get<Source>(std::move(source)));
        return std::nullopt;
    }

    // "--name value" or "--name=value".
    Problem parseWithValue(std::string_view argument) {
        const std::size_t equals = argument.find('=');
        const std::string_view name = argument.substr(0, equals);
        const auto* found = std::find_if(std::begin(valueOptions), std::end(valueOptions),
                                         [name](const ValueOption& option) { return option.name == name; });
        if (found == std::end(valueOptions)) {
            return joined({"unknown option \"", name, "\""});
        }
        if (equals != std::string_view::npos) {
            return found->set(m_options, argument.substr(equals + 1));
        }
        if (m_next == m_arguments.size()) {
            return joined({name, " needs a value"});
        }
        return found->set(m_options, m_arguments[m_next++]);
    }

    std::span<const char* const> m_arguments;
    std::size_t m_next = 0;
    bool m_optionsEnded = false;
    Options m_options;
};

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

} // namespace

std::variant<Options, UsageError> parseOptions(std::span<const char* const> arguments) {
    return Parser(arguments).parse();
}

std::variant<Source, UsageError> parseSource(std::string_view text) {
    struct Scheme {
        std::string_view name;
        ReceiverKind kind;
    };
    constexpr Scheme schemes[] = {{"rtsp", ReceiverKind::rtsp},
                                  {"rtmp", ReceiverKind::rtmp},
                                  {"rtp", ReceiverKind::rtp},
                                  {"udp", ReceiverKind::tsOverUdp}};
    const std::size_t end = text.find("://");
    if (end == std::string_view::npos) {
        if (text.find(".sdp") != std::string_view::npos) {
            return Source{ReceiverKind::rtp, std::string(text)};
        }
        return UsageError{joined({"\"", text,
                                  "\" is neither an address (rtsp://, rtmp://, rtp://, udp://) nor a "
                                  "description file (its name must contain .sdp)"})};
    }
    const std::string name = lowerCase(text.substr(0, end));
    for (const Scheme& scheme : schemes) {
        if (scheme.name == name) {
            return Source{scheme.kind, joined({name, text.substr(end)})};
        }
    }
    return UsageError{joined({"\"", name, "://\" is not supported; use rtsp://, rtmp://, rtp:// or udp://"})};
}

std::string withoutPassword(std::string_view url) {
    const std::size_t scheme = url.find("://");
    if (scheme == std::string_view::npos) {
        return std::string(url);
    }
    const std::size_t begin = scheme + 3;
    const std::string_view authority = url.substr(begin, url.find_first_of("/?#", begin) - begin);
    const std::size_t at = authority.rfind('@');
    const std::size_t colon = authority.find(':');
    if (at == std::string_view::npos || colon == std::string_view::npos || colon > at) {
        return std::string(url);
    }
    return joined({url.substr(0, begin + colon + 1), "***", url.substr(begin + at)});
}

const char* helpText() noexcept {
    return "Usage: kvreceive [options] URL|FILE.sdp ...\n"
           "Receives live audio and video and shows what comes.\n"
           "\n"
           "  rtsp://[user:password@]host[:port]/path     H.264 and AAC from an RTSP server\n"
           "  rtmp://host[:port]/application/name         H.264 and AAC from an RTMP server\n"
           "  rtp://address:port                          MPEG-2 transport stream over RTP\n"
           "  udp://[source@]address:port                 MPEG-2 transport stream over UDP\n"
           "  FILE.sdp                                    RTP as a session description file says\n"
           "\n"
           "  --output DIR         write each stream to a file in DIR (.ts, .h264, .aac)\n"
           "  --duration SECONDS   stop after this time of reception\n"
           "  --json               one JSON object a line on standard output\n"
           "  --nic NAME|ADDRESS   network interface to receive on (udp, rtp, FILE.sdp)\n"
           "  --port PORT          local receive port (rtsp, rtmp)\n"
           "  --client-option N    option value for the network client (rtp)\n"
           "  --redirect URL       go on with another address of the same protocol\n"
           "  --redirect-after S   ... after S seconds of reception (default 5)\n"
           "  --log LEVEL          trace, info, notice, warning or error (default: errors only)\n"
           "  --version, --help\n"
           "\n"
           "Ctrl-C stops and closes the files; a second one leaves at once.\n"
           "Exit codes: 0 received something, 1 a file could not be written in full, 2 usage,\n"
           "3 could not open, 4 opened but nothing came, 5 lost the connection.\n";
}

} // namespace KorvelVideo::Host
