#include "ContinuityCheck.h"

#include <gtest/gtest.h>

#include "ClientTestSupport.h"

namespace {

using namespace ClientTest;

// Transport packets, each an identifier in hexadecimal, a counter, and a letter where it is not plain.
Octets write(const std::string& packets) {
    Octets data;
    for (const std::string& packet : split(packets, ' ')) {
        const std::size_t colon = packet.find(':');
        const int identifier = std::stoi(packet, nullptr, 16);
        const char manner = packet.back();
        const int control = manner == 'a' ? 2 : manner == 'b' || manner == 'j' ? 3 : 1;
        Octets bytes(188, 0xFF);
        bytes[0] = manner == 's' ? 0x48 : 0x47;
        bytes[1] = static_cast<std::uint8_t>((manner == 'e' ? 0x80 : 0) | identifier >> 8);
        bytes[2] = static_cast<std::uint8_t>(identifier);
        bytes[3] = static_cast<std::uint8_t>(control << 4 | std::stoi(packet.substr(colon + 1)));
        if (control != 1) {
            bytes[4] = 7;
            bytes[5] = manner == 'j' ? 0x80 : 0;
        }
        append(data, bytes);
    }
    return data;
}

TEST(ContinuityCheck, CountsErrors) {
    for (const auto& row : readTable("continuity.txt")) {
        ContinuityCheck check;
        EXPECT_EQ(std::to_string(check.check(write(row.at(1)))), row.at(2)) << row[0];
        // The same in pieces of one packet: the state is kept from call to call.
        check.reset();
        std::uint64_t errors = 0;
        for (const std::string& packet : split(row[1], ' ')) {
            errors += check.check(write(packet));
        }
        EXPECT_EQ(std::to_string(errors), row[2]) << row[0];
    }
}

TEST(ContinuityCheck, LooksAtWholePacketsOnly) {
    const Octets data = write("100:3 100:9");
    for (std::size_t length = 0; length <= data.size(); ++length) {
        const Octets cut(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(ContinuityCheck().check(cut), length == data.size() ? 1U : 0U);
    }
}

} // namespace
