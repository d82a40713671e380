#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace KorvelVideo::NetworkSource {

// A parsed datagram URL:
//   udp://[source@][address]:port   MPEG-2 transport stream packets in datagrams
//   rtp://[source@][address]:port   the same in RTP packets of payload type 33 (RFC 2250, RFC 3550)
// `address` is a multicast group, or a local address or name to receive on; without it every local IPv4
// address is meant ([::] is for both families). `source` is the one sender of a source-specific group. IPv6
// addresses stand in brackets. Port 0 leaves the port to the system. "?name=value" options, which other tools
// put into such URLs, are accepted and have no effect.
struct DatagramAddress {
    enum class Framing { transportStream, rtp };
    Framing framing = Framing::transportStream;
    std::string source;
    std::string address;
    std::uint16_t port = 0;
};

// Whether the URL is one that parseDatagramAddress is for, by its scheme.
[[nodiscard]] bool isDatagramUrl(std::string_view url);

// Returns an empty text and fills `address`, or returns what is wrong with the URL.
[[nodiscard]] std::string parseDatagramAddress(std::string_view url, DatagramAddress& address);

} // namespace KorvelVideo::NetworkSource
