#include <cstddef>
#include <cstdint>
#include <vector>

#include "BitReader.h"
#include "NaiveBitReader.h"
#include "Require.h"

// The first bytes are operations, each with its bit count, up to a zero byte; the rest is what they read.

using namespace KorvelVideo::Network;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::size_t operations = 0;
    while (operations < size && data[operations] != 0) {
        ++operations;
    }
    // An exact heap buffer of its own
    const std::vector<std::uint8_t> bytes(data + operations, data + size);
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    NaiveBitReader naive(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    for (std::size_t i = 0; i < operations; ++i) {
        const std::int32_t n = data[i] / 4;
        KV_REQUIRE(reader.peekBits(n) == naive.peekBits(n));
        KV_REQUIRE(reader.peekRbspBits(n) == naive.peekRbspBits(n));
        switch (data[i] % 4) {
        case 0:
            reader.skipBits(n);
            naive.skipBits(n);
            break;
        case 1:
            reader.skipRbspBits(n);
            naive.skipRbspBits(n);
            break;
        case 2:
            reader.byteAlign();
            naive.byteAlign();
            break;
        default: {
            std::vector<std::uint8_t> copy(static_cast<std::size_t>(n));
            reader.readBytes(copy.data(), static_cast<std::uint32_t>(n));
            for (const std::uint8_t byte : copy) {
                KV_REQUIRE(byte == naive.readUnsigned(8));
            }
        }
        }
        KV_REQUIRE(reader.bitsConsumed() == naive.bitsConsumed());
    }
    return 0;
}
