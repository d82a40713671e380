#include <array>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "AllocationCounter.h"
#include "CallLog.h"
#include "CopyCounter.h"
#include "GenericVideoStreamNotifier.h"
#include "NetworkStreamReceiver.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"
#include "TestObject.h"

using namespace KorvelVideo::Network;
using MainConcept::NetworkStreaming::_tagConsumerInfo;

namespace {

constexpr std::uint32_t kPiece = 64 * 1024;
constexpr std::uint32_t kPieces = 8;

// A host with one surface, lent again and again, that allocates nothing.
class PooledSink final : public StaticTestObject<IKvVideoCallback> {
public:
    HRESULT ProvideVideoSurface(std::uint32_t size, IKvSurface** surface) override {
        m_surface.AddRef();
        *surface = size <= m_surface.m_bytes.size() ? &m_surface : nullptr;
        return S_OK;
    }
    HRESULT DeliverVideoSurface(IKvSurface*) override {
        ++m_delivered;
        return S_OK;
    }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }

    struct Surface final : StaticTestObject<IKvSurface> {
        HRESULT SetTimeStampInfo(const std::uint64_t*) override { return S_OK; }
        HRESULT SignalWriteCompletion() override { return S_OK; }
        HRESULT Lock(std::uint32_t, EKvFaceType, SKvLockedSurfaceDescription* description) override {
            description->m_bufferCapacity = static_cast<std::uint32_t>(m_bytes.size());
            description->m_buffer = m_bytes.data();
            return S_OK;
        }
        std::vector<std::uint8_t> m_bytes = std::vector<std::uint8_t>(std::size_t{kPiece} * kPieces);
    } m_surface;
    int m_delivered = 0;
};

TEST(NetworkStreamReceiverCost, OneCopyAndNoAllocationForAnAccessUnitInSteadyState) {
    ScriptedSdk::reset();
    ScriptedSdk::setRecording(false);
    CallLog::instance().setEnabled(false);
    RecordingLogger::setEnabled(false);
    PooledSink sink;
    GenericVideoStreamNotifier notifier(&sink);
    NetworkStreamReceiver receiver(&notifier);
    std::vector<_tagConsumerInfo> records(kPieces);

    std::uint64_t copied = 0;
    // The fake's own allocator allocates, so buffers are borrowed before and counted around OnData alone.
    const auto playUnit = [&](std::uint64_t timeStamp) {
        std::uint64_t allocations = 0;
        for (_tagConsumerInfo& record : records) {
            record = {};
            receiver.GetBuffer(&record);
            record.sampleValid = 1;
            record.dataLength = kPiece;
            record.timeStamp = timeStamp;
            record.streamType = 96;
            const AllocationCounter allocationCounter;
            const CopyCounter copyCounter;
            receiver.OnData(&record);
            allocations += allocationCounter.count();
            copied += copyCounter.bytes();
        }
        return allocations;
    };
    for (std::uint64_t unit = 1; unit <= 4; ++unit) {
        playUnit(unit);
    }
    copied = 0;
    std::uint64_t allocations = 0;
    for (std::uint64_t unit = 5; unit <= 104; ++unit) {
        allocations += playUnit(unit);
    }
    EXPECT_EQ(allocations, 0U);
    EXPECT_EQ(copied, 100ULL * kPieces * kPiece);
    EXPECT_EQ(sink.m_delivered, 103);
    CallLog::instance().setEnabled(true);
    RecordingLogger::setEnabled(true);
}

} // namespace
