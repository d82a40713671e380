#include "DatagramAddress.h"

#include <gtest/gtest.h>

#include "ClientTestSupport.h"

namespace {

using namespace KorvelVideo::NetworkSource;

TEST(DatagramAddress, IsParsedOrRefusedWithOneReason) {
    for (const auto& row : ClientTest::readTable("datagram-addresses.txt")) {
        DatagramAddress address;
        std::string found = parseDatagramAddress(row.at(0), address);
        if (found.empty()) {
            found = (address.framing == DatagramAddress::Framing::rtp ? "rtp source=" : "udp source=") +
                    address.source + " address=" + address.address + " port=" + std::to_string(address.port);
        }
        EXPECT_EQ(found, row.at(1));
    }
    EXPECT_FALSE(isDatagramUrl("v=0\r\no=- udp://"));
}

// A source@group parse, cut anywhere, gives an address or a reason, and reads nothing beyond the cut.
TEST(DatagramAddress, CutAnywhere) {
    const std::string url = "udp://[fd00::9]@[ff3e::1%lo]:5000?a=b";
    for (std::size_t length = 0; length <= url.size(); ++length) {
        DatagramAddress address;
        const std::string cut(url.data(), length);
        EXPECT_EQ(parseDatagramAddress(cut, address).empty(), length > url.find(":5000") + 1) << cut;
    }
}

} // namespace
