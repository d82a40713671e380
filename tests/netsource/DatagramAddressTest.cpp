#include "DatagramAddress.h"

#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace {

using KorvelVideo::NetworkSource::DatagramAddress;
using KorvelVideo::NetworkSource::isDatagramUrl;
using KorvelVideo::NetworkSource::parseDatagramAddress;

std::string describe(const DatagramAddress& address) {
    return std::string(address.framing == DatagramAddress::Framing::rtp ? "rtp" : "udp") +
           " source=" + address.source + " address=" + address.address +
           " port=" + std::to_string(address.port);
}

struct Row {
    const char* url;
    const char* expected; // the address in words, or what is wrong
};

constexpr Row kRows[] = {
    {"udp://239.1.2.3:5000", "udp source= address=239.1.2.3 port=5000"},
    {"udp://127.0.0.1:1", "udp source= address=127.0.0.1 port=1"},
    {"udp://@239.1.2.3:5000", "udp source= address=239.1.2.3 port=5000"},
    {"udp://10.0.0.9@232.1.2.3:5000", "udp source=10.0.0.9 address=232.1.2.3 port=5000"},
    {"udp://sender.example@232.1.2.3:5000", "udp source=sender.example address=232.1.2.3 port=5000"},
    {"udp://[fd00::9]@[ff3e::1]:5000", "udp source=fd00::9 address=ff3e::1 port=5000"},
    {"udp://:5000", "udp source= address= port=5000"},
    {"udp://@:5000", "udp source= address= port=5000"},
    {"udp://[::1]:65535", "udp source= address=::1 port=65535"},
    {"udp://[fe80::1%eth0]:5000", "udp source= address=fe80::1%eth0 port=5000"},
    {"udp://localhost:5000/", "udp source= address=localhost port=5000"},
    {"udp://239.1.2.3:5000?pkt_size=1316&fifo_size=1@2", "udp source= address=239.1.2.3 port=5000"},
    {"UDP://127.0.0.1:5000", "udp source= address=127.0.0.1 port=5000"},
    {"rtp://239.1.2.3:5004", "rtp source= address=239.1.2.3 port=5004"},
    {"Rtp://[::1]:0", "rtp source= address=::1 port=0"},

    {"", ": the URL must begin with udp:// or rtp://."},
    {"rtsp://host/udp", "rtsp://host/udp: the URL must begin with udp:// or rtp://."},
    {"udp:/127.0.0.1:5000", "udp:/127.0.0.1:5000: the URL must begin with udp:// or rtp://."},
    {"udp://", "udp://: the port is missing."},
    {"udp://239.1.2.3", "udp://239.1.2.3: the port is missing."},
    {"udp://239.1.2.3:", "udp://239.1.2.3:: the port is missing."},
    {"udp://[::1]", "udp://[::1]: the port is missing."},
    {"udp://[::1]5000", "udp://[::1]5000: the port is missing."},
    {"udp://h:65536", "udp://h:65536: \"65536\" is not a port between 0 and 65535."},
    {"udp://h:-1", "udp://h:-1: \"-1\" is not a port between 0 and 65535."},
    {"udp://h:5000x", "udp://h:5000x: \"5000x\" is not a port between 0 and 65535."},
    {"udp://h:5000/path", "udp://h:5000/path: \"5000/path\" is not a port between 0 and 65535."},
    {"udp://::1:5000", "udp://::1:5000: an IPv6 address must stand in brackets."},
    {"udp://[::1:5000", "udp://[::1:5000: the bracket before the IPv6 address is not closed."},
    {"udp://[]:5000", "udp://[]:5000: there is nothing between the brackets."},
    {"udp://10.0.0.9:77@232.1.2.3:5000",
     "udp://10.0.0.9:77@232.1.2.3:5000: only an address may stand before the @."},
    {"udp://a b:5000", "udp://a b:5000: the URL holds a space or another character it may not."},
    {"udp://a\n:5000", "udp://a\n:5000: the URL holds a space or another character it may not."},
};

TEST(DatagramAddress, IsParsedOrRefusedWithOneReason) {
    for (const Row& row : kRows) {
        DatagramAddress address;
        const std::string problem = parseDatagramAddress(row.url, address);
        EXPECT_EQ(problem.empty() ? describe(address) : problem, row.expected);
    }
}

// A source@group parse, cut anywhere, gives an address or a reason, and reads nothing beyond the cut.
TEST(DatagramAddress, CutAnywhere) {
    const std::string url = "udp://[fd00::9]@[ff3e::1%lo]:5000?a=b";
    for (std::size_t length = 0; length <= url.size(); ++length) {
        DatagramAddress address;
        const std::string cut(url.data(), length);
        const bool hasPort = length > url.find(":5000") + 1;
        EXPECT_EQ(parseDatagramAddress(cut, address).empty(), hasPort) << cut;
    }
}

TEST(DatagramAddress, SchemeDecides) {
    EXPECT_TRUE(isDatagramUrl("udp://x"));
    EXPECT_TRUE(isDatagramUrl("rtp://x"));
    EXPECT_FALSE(isDatagramUrl("rtsp://x"));
    EXPECT_FALSE(isDatagramUrl("v=0\r\no=- udp://"));
}

} // namespace
