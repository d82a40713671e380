#include "DatagramAddress.h"

#include <algorithm>
#include <charconv>

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::string_view kUdpScheme = "udp://";
constexpr std::string_view kRtpScheme = "rtp://";

bool startsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    const auto lower = [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    };
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(),
                      [lower](char left, char right) { return left == lower(right); });
}

// Takes a host off the front of `text`: up to a ':' , or what stands in brackets.
std::string takeHost(std::string_view& text, std::string& host) {
    if (!text.empty() && text.front() == '[') {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) {
            return "the bracket before the IPv6 address is not closed";
        }
        host = text.substr(1, end - 1);
        text.remove_prefix(end + 1);
        return host.empty() ? "there is nothing between the brackets" : "";
    }
    const std::size_t end = std::min(text.find(':'), text.size());
    host = text.substr(0, end);
    text.remove_prefix(end);
    if (text.find(':', 1) != std::string_view::npos) {
        return "an IPv6 address must stand in brackets";
    }
    return "";
}

std::string parsePort(std::string_view text, std::uint16_t& port) {
    if (text.size() < 2 || text.front() != ':') {
        return "the port is missing";
    }
    text.remove_prefix(1);
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (failure != std::errc{} || end != text.data() + text.size()) {
        return std::string("\"").append(text).append("\" is not a port between 0 and 65535");
    }
    return "";
}

std::string parseAfterScheme(std::string_view text, DatagramAddress& address) {
    text = text.substr(0, text.find('?'));
    if (!text.empty() && text.back() == '/') {
        text.remove_suffix(1);
    }
    if (const std::size_t at = text.find('@'); at != std::string_view::npos) {
        std::string_view source = text.substr(0, at);
        text.remove_prefix(at + 1);
        std::string problem = source.empty() ? "" : takeHost(source, address.source);
        if (problem.empty() && !source.empty()) {
            problem = "only an address may stand before the @";
        }
        if (!problem.empty()) {
            return problem;
        }
    }
    std::string problem = takeHost(text, address.address);
    return problem.empty() ? parsePort(text, address.port) : problem;
}

} // namespace

bool isDatagramUrl(std::string_view url) {
    return startsWithIgnoringCase(url, kUdpScheme) || startsWithIgnoringCase(url, kRtpScheme);
}

std::string parseDatagramAddress(std::string_view url, DatagramAddress& address) {
    address = {};
    address.framing = startsWithIgnoringCase(url, kRtpScheme) ? DatagramAddress::Framing::rtp
                                                              : DatagramAddress::Framing::transportStream;
    const bool printable = std::all_of(url.begin(), url.end(),
                                       [](char character) { return character > ' ' && character < '\x7F'; });
    const std::string problem = !isDatagramUrl(url) ? "the URL must begin with udp:// or rtp://"
                                : !printable        ? "the URL holds a space or another character it may not"
                                             : parseAfterScheme(url.substr(kUdpScheme.size()), address);
    return problem.empty() ? "" : std::string(url.substr(0, 200)).append(": ").append(problem).append(".");
}

} // namespace KorvelVideo::NetworkSource
