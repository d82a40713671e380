#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "StreamingSdk.h"

namespace {

using MainConcept::NetworkStreaming::SdkBufferAllocator;

std::unique_ptr<SdkBufferAllocator> makeAllocator() {
    return std::unique_ptr<SdkBufferAllocator>(CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr));
}

std::uint8_t* take(SdkBufferAllocator& allocator) {
    std::uint32_t capacity = 0;
    std::uint8_t* const buffer = allocator.AllocateBuffer(&capacity, nullptr);
    EXPECT_EQ(capacity, buffer == nullptr ? 0U : 0x10000U);
    return buffer;
}

TEST(BufferAllocator, LendsSixteenTimesTheLimitAndTakesAllBack) {
    const auto allocator = makeAllocator();
    for (int round = 0; round < 2; ++round) {
        std::vector<std::uint8_t*> buffers;
        for (std::uint8_t* buffer = take(*allocator); buffer != nullptr; buffer = take(*allocator)) {
            buffer[0] = buffer[0xFFFF] = static_cast<std::uint8_t>(buffers.size());
            buffers.push_back(buffer);
        }
        EXPECT_EQ(buffers.size(), 256U) << "16 MiB in one access unit";
        EXPECT_EQ(std::set<std::uint8_t*>(buffers.begin(), buffers.end()).size(), 256U);
        for (std::size_t index = 0; index < buffers.size(); ++index) {
            EXPECT_EQ(buffers[index][0xFFFF], static_cast<std::uint8_t>(index));
            EXPECT_EQ(allocator->ConfirmBufferSize(buffers[index], 0x10000), 0);
            allocator->ReleaseBuffer(buffers[index]);
        }
    }
}

TEST(BufferAllocator, LendsTheWarmestFirst) {
    const auto allocator = makeAllocator();
    std::uint8_t* const first = take(*allocator);
    std::uint8_t* const second = take(*allocator);
    allocator->ReleaseBuffer(first);
    allocator->ReleaseBuffer(second);
    EXPECT_EQ(take(*allocator), second);
    EXPECT_EQ(take(*allocator), first);
}

TEST(BufferAllocator, IgnoresWhatIsNotLent) {
    const auto allocator = makeAllocator();
    std::uint8_t* const buffer = take(*allocator);
    std::uint8_t foreign = 0;
    for (std::uint8_t* const wrong : {static_cast<std::uint8_t*>(nullptr), &foreign, buffer + 1,
                                      buffer + 0x10000, buffer + std::size_t{8} * 0x10000}) {
        EXPECT_NE(allocator->ConfirmBufferSize(wrong, 1), 0);
        allocator->ReleaseBuffer(wrong);
    }
    EXPECT_NE(allocator->ConfirmBufferSize(buffer, 0x10001), 0);
    allocator->ReleaseBuffer(buffer);
    allocator->ReleaseBuffer(buffer); // twice
    EXPECT_NE(allocator->ConfirmBufferSize(buffer, 1), 0);
    EXPECT_NE(take(*allocator), take(*allocator)) << "a buffer given back twice must not be lent twice";
}

TEST(BufferAllocator, ResetKeepsWhatIsLent) {
    const auto allocator = makeAllocator();
    std::vector<std::uint8_t*> buffers;
    buffers.reserve(64);
    for (int count = 0; count < 64; ++count) {
        buffers.push_back(take(*allocator));
    }
    std::uint8_t* const kept = buffers[40];
    for (std::uint8_t* const buffer : buffers) {
        if (buffer != kept) {
            allocator->ReleaseBuffer(buffer);
        }
    }
    EXPECT_NE(allocator->Reset(1), 0);
    EXPECT_EQ(allocator->Reset(0), 0);
    EXPECT_EQ(allocator->ConfirmBufferSize(kept, 1), 0);
    kept[0xFFFF] = 1;
    std::size_t count = 0;
    for (; take(*allocator) != nullptr; ++count) {
    }
    EXPECT_EQ(count, 255U) << "it grows again to its limit";
}

TEST(BufferAllocator, RefusesSenselessSettings) {
    struct Row {
        std::uint32_t count;
        std::uint32_t bufferSize;
        std::uint32_t alignment;
    };
    for (const Row& row :
         {Row{0, 1, 1}, Row{1, 0, 1}, Row{0xFFFFFFFF, 0xFFFFFFFF, 1}, Row{8, 0x10000, 4096}}) {
        EXPECT_EQ(CreateBufferAllocator(2, row.count, 0x100000, row.bufferSize, row.alignment, nullptr),
                  nullptr);
    }
}

TEST(BufferAllocator, ServesThreads) {
    const auto allocator = makeAllocator();
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([&allocator, index] {
            for (int round = 0; round < 2000; ++round) {
                std::uint8_t* const buffer = take(*allocator);
                ASSERT_NE(buffer, nullptr);
                buffer[0] = static_cast<std::uint8_t>(index);
                EXPECT_EQ(allocator->ConfirmBufferSize(buffer, 1), 0);
                EXPECT_EQ(buffer[0], index);
                allocator->ReleaseBuffer(buffer);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
