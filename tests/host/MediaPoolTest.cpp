#include "MediaPool.h"

#include <gtest/gtest.h>

#include "KvResultCodes.h"

namespace KorvelVideo::Host {

namespace {

TEST(MediaPool, LendsWhatWasAskedFor) {
    MediaPool<Surface> pool;
    for (const std::uint32_t size : {0U, 1U, 1024U, 1025U, 65536U, 3'000'000U}) {
        Surface* surface = pool.lend(size);
        SKvLockedSurfaceDescription locked{};
        locked.m_size = sizeof locked;
        ASSERT_EQ(surface->Lock(0, keKvFaceTypeFront, &locked), S_OK);
        EXPECT_EQ(locked.m_bufferCapacity, size);
        std::fill_n(locked.m_buffer, size, std::uint8_t{0x5A});
        const std::uint8_t* const first = locked.m_buffer;
        ASSERT_EQ(surface->Lock(0, keKvFaceTypeFront, &locked), S_OK) << "an access unit may be locked twice";
        EXPECT_EQ(locked.m_buffer, first);
        const std::uint64_t timeStamp = 1ULL << 40U;
        EXPECT_EQ(surface->SetTimeStampInfo(&timeStamp), S_OK);
        EXPECT_EQ(surface->timeStamp(), timeStamp);
        EXPECT_EQ(surface->bytes().size(), size);
        surface->AddRef();
        EXPECT_EQ(surface->Release(), 1U);
        EXPECT_EQ(pool.freeCount(), 0U);
        EXPECT_EQ(surface->Release(), 0U);
        EXPECT_EQ(pool.freeCount(), 1U) << "comes back with its last reference";
    }
}

TEST(MediaPool, KeepsALimitedAmountForLater) {
    const std::pair<std::uint32_t, std::size_t> rows[] = {
        {100, MediaPool<Surface>::mostFree}, {65536, 16}, {4'000'000, 2}};
    for (const auto& [size, kept] : rows) {
        MediaPool<Surface> pool;
        std::vector<Surface*> lent(100);
        for (Surface*& surface : lent) {
            surface = pool.lend(size);
        }
        for (Surface* surface : lent) {
            surface->Release();
        }
        EXPECT_EQ(pool.freeCount(), kept) << size;
    }
}

TEST(MediaPool, SamplesCarryTheConfigurationUntilTheyComeBack) {
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    std::uint8_t bytes[] = {0x11, 0x90};
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), 2, bytes};
    const SKvCodecConfigData wrongSize{15, 0, nullptr};
    EXPECT_EQ(configuration->SetCodecConfigData(nullptr), KV_E_INVALID_POINTER);
    EXPECT_EQ(configuration->SetCodecConfigData(&wrongSize), KV_E_INVALID_PARAMETER);
    EXPECT_EQ(configuration->SetCodecConfigData(&data), S_OK);
    bytes[0] = 0; // they were copied

    MediaPool<AudioSamples> pool;
    AudioSamples* samples = pool.lend(10);
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get()), S_OK);
    EXPECT_EQ(samples->configuration()->bytes()[0], 0x11);
    samples->Release();
    samples = pool.lend(10);
    EXPECT_EQ(samples->configuration(), nullptr);
    // Objects of other classes, and under other identifiers, are refused.
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, samples), E_INVALIDARG);
    EXPECT_EQ(samples->AttachCustomObject(IID_IUnknown, configuration.get()), E_NOINTERFACE);
    EXPECT_EQ(samples->configuration(), nullptr);
    samples->Release();
}

} // namespace

} // namespace KorvelVideo::Host
