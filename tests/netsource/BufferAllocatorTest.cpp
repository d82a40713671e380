#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "StreamingSdk.h"

namespace {

using Allocator = std::unique_ptr<MainConcept::NetworkStreaming::SdkBufferAllocator>;
using Lent = std::vector<std::uint8_t*>;

Allocator makeAllocator() { return Allocator(CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr)); }

std::uint8_t* take(const Allocator& allocator) {
    std::uint32_t capacity = 0;
    std::uint8_t* const buffer = allocator->AllocateBuffer(&capacity, nullptr);
    EXPECT_EQ(capacity, buffer == nullptr ? 0U : 0x10000U);
    return buffer;
}

TEST(BufferAllocator, LendsSixteenTimesTheLimitAndTakesAllBack) {
    const Allocator allocator = makeAllocator();
    for (int round = 0; round < 2; ++round) {
        Lent buffers;
        for (std::uint8_t* buffer = take(allocator); buffer != nullptr; buffer = take(allocator)) {
            buffer[0] = buffer[0xFFFF] = static_cast<std::uint8_t>(buffers.size());
            buffers.push_back(buffer);
        }
        EXPECT_EQ(buffers.size(), 256U) << "16 MiB in one access unit";
        for (std::size_t index = 0; index < buffers.size(); ++index) {
            EXPECT_EQ(buffers[index][0xFFFF], static_cast<std::uint8_t>(index));
            EXPECT_EQ(allocator->ConfirmBufferSize(buffers[index], 0x10000), 0);
            if (index == 40) { // what is lent outlives a reset
                EXPECT_NE(allocator->Reset(1), 0);
                EXPECT_EQ(allocator->Reset(0), 0);
            }
            allocator->ReleaseBuffer(buffers[index]);
        }
    }
}

TEST(BufferAllocator, IgnoresWhatIsNotLent) {
    const Allocator allocator = makeAllocator();
    std::uint8_t* const buffer = take(allocator);
    std::uint8_t foreign = 0;
    for (std::uint8_t* const wrong : Lent{nullptr, &foreign, buffer + 1, buffer + 0x10000}) {
        EXPECT_NE(allocator->ConfirmBufferSize(wrong, 1), 0);
        allocator->ReleaseBuffer(wrong);
    }
    EXPECT_NE(allocator->ConfirmBufferSize(buffer, 0x10001), 0);
    allocator->ReleaseBuffer(buffer);
    allocator->ReleaseBuffer(buffer);
    EXPECT_NE(allocator->ConfirmBufferSize(buffer, 1), 0);
    EXPECT_NE(take(allocator), take(allocator)) << "given back twice, lent twice";
    for (const auto& [count, size, alignment] : std::vector<std::array<std::uint32_t, 3>>{
             {0, 1, 1}, {1, 0, 1}, {0xFFFFFFFF, 0xFFFFFFFF, 1}, {8, 0x10000, 4096}}) {
        EXPECT_EQ(CreateBufferAllocator(2, count, 0x100000, size, alignment, nullptr), nullptr);
    }
}

TEST(BufferAllocator, SharesFreeBuffersAndNothingElse) {
    const Allocator allocator = makeAllocator();
    std::uint8_t* const buffer = take(allocator);
    Allocator other = makeAllocator();
    other->ReleaseBuffer(buffer);
    EXPECT_EQ(allocator->ConfirmBufferSize(buffer, 1), 0) << "still lent";
    allocator->ReleaseBuffer(buffer);
    EXPECT_EQ(take(other), buffer) << "the last one given back, whoever had it";
}

} // namespace
