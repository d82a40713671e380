#include "ContinuityCheck.h"

#include <gtest/gtest.h>

#include "ClientTestSupport.h"

namespace {

using ClientTest::Bytes;
using KorvelVideo::NetworkSource::ContinuityCheck;

// One packet of the identifier: `flags` is the adaptation field control (1 payload, 2 adaptation field, 3
// both).
struct Packet {
    int identifier;
    int counter;
    int control = 1;
    bool discontinuity = false;
    bool error = false;
    int sync = 0x47;
};

Bytes write(const std::vector<Packet>& packets) {
    Bytes data;
    for (const Packet& packet : packets) {
        Bytes bytes(188, 0xFF);
        bytes[0] = static_cast<std::uint8_t>(packet.sync);
        bytes[1] = static_cast<std::uint8_t>((packet.error ? 0x80 : 0) | packet.identifier >> 8);
        bytes[2] = static_cast<std::uint8_t>(packet.identifier);
        bytes[3] = static_cast<std::uint8_t>(packet.control << 4 | packet.counter);
        if ((packet.control & 2) != 0) {
            bytes[4] = 7;
            bytes[5] = packet.discontinuity ? 0x80 : 0;
        }
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    return data;
}

TEST(ContinuityCheck, CountsErrors) {
    struct Row {
        const char* name;
        std::vector<Packet> packets;
        std::uint64_t errors;
    };
    const Row rows[] = {
        {"none", {}, 0},
        {"counts up", {{0x100, 14}, {0x100, 15}, {0x100, 0}}, 0},
        {"identifiers count apart", {{0x100, 3}, {0x101, 9}, {0x100, 4}, {0x101, 10}}, 0},
        {"one missing", {{0x100, 3}, {0x100, 5}, {0x100, 6}}, 1},
        {"fifteen missing look like a repeat", {{0x100, 3}, {0x100, 3}}, 0},
        {"repeated once", {{0x100, 3}, {0x100, 3}, {0x100, 4}}, 0},
        {"repeated twice", {{0x100, 3}, {0x100, 3}, {0x100, 3}}, 1},
        {"without payload the counter stays", {{0x100, 3}, {0x100, 3, 2}, {0x100, 3, 2}, {0x100, 4}}, 0},
        {"without payload the counter must not rise", {{0x100, 3}, {0x100, 4, 2}}, 1},
        {"announced jump", {{0x100, 3}, {0x100, 9, 3, true}, {0x100, 10}}, 0},
        {"adaptation field without announcement", {{0x100, 3}, {0x100, 9, 3}}, 1},
        {"null packets", {{0x1FFF, 3}, {0x1FFF, 7}}, 0},
        {"no sync byte", {{0x100, 3}, {0x100, 4, 1, false, false, 0x48}, {0x100, 4}}, 1},
        {"transport error", {{0x100, 3}, {0x100, 9, 1, false, true}, {0x100, 4}}, 1},
    };
    for (const Row& row : rows) {
        ContinuityCheck check;
        EXPECT_EQ(check.check(write(row.packets)), row.errors) << row.name;
        // The same in pieces of one packet: the state is kept from call to call.
        check.reset();
        std::uint64_t errors = 0;
        for (const Packet& packet : row.packets) {
            errors += check.check(write({packet}));
        }
        EXPECT_EQ(errors, row.errors) << row.name;
    }
}

TEST(ContinuityCheck, LooksAtWholePacketsOnly) {
    const Bytes data = write({{0x100, 3}, {0x100, 9}});
    for (std::size_t length = 0; length <= data.size(); ++length) {
        const Bytes cut(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(length));
        ContinuityCheck check;
        EXPECT_EQ(check.check(cut), length == data.size() ? 1U : 0U);
    }
}

} // namespace
