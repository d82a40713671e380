#include "MediaPool.h"

#include <gtest/gtest.h>

#include "KvResultCodes.h"

namespace KorvelVideo::Host {

namespace {

TEST(MediaPool, LendsWhatWasAskedFor) {
    for (const std::uint32_t size : {0U, 1U, 1024U, 1025U, 65536U, 3'000'000U}) {
        MediaPool<Surface> pool;
        Surface* surface = pool.lend(size);
        ASSERT_NE(surface, nullptr);
        for (int time = 0; time < 2; ++time) { // an access unit may be locked twice
            SKvLockedSurfaceDescription locked{};
            locked.m_size = sizeof locked;
            ASSERT_EQ(surface->Lock(0, keKvFaceTypeFront, &locked), S_OK);
            EXPECT_EQ(locked.m_bufferCapacity, size);
            ASSERT_NE(locked.m_buffer, nullptr);
            if (size > 0 && time == 0) {
                locked.m_buffer[size - 1] = 0x5A;
            } else if (size > 0) {
                EXPECT_EQ(locked.m_buffer[size - 1], 0x5A);
            }
        }
        const std::uint64_t timeStamp = 1ULL << 40U;
        EXPECT_EQ(surface->SetTimeStampInfo(&timeStamp), S_OK);
        EXPECT_EQ(surface->timeStamp(), timeStamp);
        EXPECT_EQ(surface->bytes().size(), size);
        EXPECT_EQ(surface->Release(), 0U);
    }
}

TEST(MediaPool, BuffersComeBackWithTheirLastReference) {
    MediaPool<Surface> pool;
    Surface* surface = pool.lend(100);
    surface->AddRef();
    surface->Release();
    EXPECT_EQ(pool.freeCount(), 0U);
    surface->Release();
    EXPECT_EQ(pool.freeCount(), 1U);
    Surface* again = pool.lend(90);
    EXPECT_EQ(again, surface);
    EXPECT_EQ(again->capacity(), 1024U);
    again->Release();
}

TEST(MediaPool, KeepsALimitedAmountForLater) {
    struct Row {
        std::uint32_t size;
        std::size_t kept;
    };
    const Row rows[] = {{100, MediaPool<Surface>::mostFree}, {65536, 16}, {4'000'000, 2}};
    for (const Row& row : rows) {
        MediaPool<Surface> pool;
        std::vector<Surface*> lent(100);
        for (Surface*& surface : lent) {
            surface = pool.lend(row.size);
        }
        for (Surface* surface : lent) {
            surface->Release();
        }
        EXPECT_EQ(pool.freeCount(), row.kept) << row.size;
    }
}

TEST(MediaPool, SamplesCarryTheConfigurationUntilTheyComeBack) {
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    std::vector<std::uint8_t> bytes{0x11, 0x90};
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), 2, bytes.data()};
    ASSERT_EQ(configuration->SetCodecConfigData(&data), S_OK);
    bytes.assign({0, 0}); // they were copied

    MediaPool<AudioSamples> pool;
    AudioSamples* samples = pool.lend(10);
    EXPECT_EQ(samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get()), S_OK);
    ASSERT_NE(samples->configuration(), nullptr);
    EXPECT_EQ(samples->configuration()->bytes()[0], 0x11);
    samples->Release();
    AudioSamples* again = pool.lend(10);
    EXPECT_EQ(again->configuration(), nullptr);
    // Objects of other classes, and under other identifiers, are refused.
    Surface* stranger = nullptr;
    MediaPool<Surface> surfaces;
    stranger = surfaces.lend(1);
    EXPECT_EQ(again->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, stranger), E_INVALIDARG);
    EXPECT_EQ(again->AttachCustomObject(IID_IUnknown, configuration.get()), E_NOINTERFACE);
    EXPECT_EQ(again->configuration(), nullptr);
    stranger->Release();
    again->Release();
}

TEST(AacConfiguration, RefusesWhatIsNoRecord) {
    Reference<IKvAACCodecConfigDataAccess> configuration;
    ASSERT_EQ(AacConfiguration::create(IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()), S_OK);
    EXPECT_EQ(configuration->SetCodecConfigData(nullptr), KV_E_INVALID_POINTER);
    const SKvCodecConfigData wrongSize{15, 0, nullptr};
    EXPECT_EQ(configuration->SetCodecConfigData(&wrongSize), KV_E_INVALID_PARAMETER);
    const SKvCodecConfigData empty{16, 0, nullptr};
    EXPECT_EQ(configuration->SetCodecConfigData(&empty), S_OK);
}

} // namespace

} // namespace KorvelVideo::Host
