#include <memory>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "StreamingSdk.h"

namespace {

class BufferAllocator : public testing::Test {
protected:
    std::uint8_t* take() {
        std::uint32_t capacity = 0;
        std::uint8_t* const buffer = m_allocator->AllocateBuffer(&capacity, nullptr);
        EXPECT_EQ(capacity, buffer == nullptr ? 0U : 0x10000U);
        return buffer;
    }

    const std::unique_ptr<MainConcept::NetworkStreaming::SdkBufferAllocator> m_allocator{
        CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr)};
};

TEST_F(BufferAllocator, LendsSixteenTimesTheLimitAndTakesAllBack) {
    for (int round = 0; round < 2; ++round) {
        std::vector<std::uint8_t*> buffers;
        for (std::uint8_t* buffer = take(); buffer != nullptr; buffer = take()) {
            buffer[0] = buffer[0xFFFF] = static_cast<std::uint8_t>(buffers.size());
            buffers.push_back(buffer);
        }
        EXPECT_EQ(std::set<std::uint8_t*>(buffers.begin(), buffers.end()).size(), 256U)
            << "16 MiB in one access unit";
        for (std::size_t index = 0; index < buffers.size(); ++index) {
            EXPECT_EQ(buffers[index][0xFFFF], static_cast<std::uint8_t>(index));
            EXPECT_EQ(m_allocator->ConfirmBufferSize(buffers[index], 0x10000), 0);
            if (round == 0 || index != 40) {
                m_allocator->ReleaseBuffer(buffers[index]);
            }
        }
        EXPECT_NE(m_allocator->Reset(1), 0);
        EXPECT_EQ(m_allocator->Reset(0), 0);
        if (round == 1) { // what is lent outlives a reset
            EXPECT_EQ(m_allocator->ConfirmBufferSize(buffers[40], 1), 0);
            buffers[40][0xFFFF] = 1;
        }
    }
    std::size_t count = 0;
    for (; take() != nullptr; ++count) {
    }
    EXPECT_EQ(count, 255U) << "it grows again to its limit";
}

TEST_F(BufferAllocator, IgnoresWhatIsNotLent) {
    std::uint8_t* const buffer = take();
    std::uint8_t foreign = 0;
    for (std::uint8_t* const wrong : {static_cast<std::uint8_t*>(nullptr), &foreign, buffer + 1,
                                      buffer + 0x10000, buffer + std::size_t{8} * 0x10000}) {
        EXPECT_NE(m_allocator->ConfirmBufferSize(wrong, 1), 0);
        m_allocator->ReleaseBuffer(wrong);
    }
    EXPECT_NE(m_allocator->ConfirmBufferSize(buffer, 0x10001), 0);
    m_allocator->ReleaseBuffer(buffer);
    m_allocator->ReleaseBuffer(buffer); // twice
    EXPECT_NE(m_allocator->ConfirmBufferSize(buffer, 1), 0);
    EXPECT_NE(take(), take()) << "a buffer given back twice must not be lent twice";
    for (const auto& [count, size, alignment] : std::vector<std::array<std::uint32_t, 3>>{
             {0, 1, 1}, {1, 0, 1}, {0xFFFFFFFF, 0xFFFFFFFF, 1}, {8, 0x10000, 4096}}) {
        EXPECT_EQ(CreateBufferAllocator(2, count, 0x100000, size, alignment, nullptr), nullptr);
    }
}

TEST_F(BufferAllocator, SharesFreeBuffersAndNothingElse) {
    const auto makeAllocator = [] {
        return std::unique_ptr<MainConcept::NetworkStreaming::SdkBufferAllocator>(
            CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr));
    };
    std::uint8_t* const buffer = take();
    auto other = makeAllocator();
    EXPECT_NE(other->ConfirmBufferSize(buffer, 1), 0);
    other->ReleaseBuffer(buffer);
    EXPECT_EQ(m_allocator->ConfirmBufferSize(buffer, 1), 0) << "still lent";
    m_allocator->ReleaseBuffer(buffer);
    std::uint32_t capacity = 0;
    EXPECT_EQ(other->AllocateBuffer(&capacity, nullptr), buffer) << "the last one given back, whoever had it";
    other.reset();
    other = makeAllocator();
    EXPECT_NE(m_allocator->ConfirmBufferSize(buffer, 1), 0);
    EXPECT_NE(take(), nullptr);
}

TEST_F(BufferAllocator, ServesThreads) {
    std::vector<std::thread> threads;
    for (std::uint8_t index = 0; index < 4; ++index) {
        threads.emplace_back([this, index] {
            for (int round = 0; round < 2000; ++round) {
                std::uint8_t* const buffer = take();
                ASSERT_NE(buffer, nullptr);
                buffer[0] = index;
                EXPECT_EQ(m_allocator->ConfirmBufferSize(buffer, 1), 0);
                EXPECT_EQ(buffer[0], index);
                m_allocator->ReleaseBuffer(buffer);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
