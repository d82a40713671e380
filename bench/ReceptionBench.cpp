// OnData to delivery of an access unit beside a bare memcpy of the same bytes between the same kinds of
// buffer, cold (the buffers rotate through 256 MiB on each side), and the cost that the module adds to an
// access unit without data.

#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>

#include "GenericVideoStreamNotifier.h"
#include "NetworkStreamReceiver.h"

using namespace KorvelVideo::Network;
using namespace MainConcept::NetworkStreaming;

namespace {

constexpr std::uint32_t kPiece = 64 * 1024;
constexpr std::uint32_t kPieces = 8;
constexpr std::uint32_t kUnit = kPiece * kPieces;
constexpr std::size_t kColdRotation = 256 * 1024 * 1024;
constexpr std::size_t kWarmRotation = 2 * kUnit;

// How far the buffers of both sides rotate before they come again.
std::size_t g_rotation = kColdRotation;

std::vector<std::uint8_t>& memory(int side) {
    static std::array<std::vector<std::uint8_t>, 2> sides{std::vector<std::uint8_t>(kColdRotation, 1),
                                                          std::vector<std::uint8_t>(kColdRotation, 2)};
    return sides[static_cast<std::size_t>(side)];
}

// Lends the pieces of one side of the rotation, one after another.
class RotatingAllocator final : public SdkBufferAllocator {
public:
    void ReservedSlot1() override {}
    void ReservedSlot2() override {}
    std::int32_t Reset(std::uint32_t) override { return 0; }
    void ReservedSlot4() override {}
    void ReservedSlot5() override {}
    void ReservedSlot6() override {}
    void ReservedSlot7() override {}
    std::uint8_t* AllocateBuffer(std::uint32_t* capacity, void*) override {
        *capacity = kPiece;
        m_offset = (m_offset + kPiece) % g_rotation;
        return memory(0).data() + m_offset;
    }
    std::int32_t ConfirmBufferSize(std::uint8_t*, std::uint32_t) override { return 0; }
    void ReleaseBuffer(std::uint8_t*) override {}

private:
    std::size_t m_offset = 0;
};

// A host that lends the surfaces of the other side and does nothing with them.
class RotatingSink final : public IKvVideoCallback, private IKvSurface {
public:
    HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    HRESULT ProvideVideoSurface(std::uint32_t, IKvSurface** surface) override {
        m_offset = (m_offset + kUnit) % g_rotation;
        *surface = this;
        return S_OK;
    }
    HRESULT DeliverVideoSurface(IKvSurface*) override { return S_OK; }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }

private:
    HRESULT SetTimeStampInfo(const std::uint64_t*) override { return S_OK; }
    HRESULT SignalWriteCompletion() override { return S_OK; }
    HRESULT Lock(std::uint32_t, EKvFaceType, SKvLockedSurfaceDescription* description) override {
        description->m_bufferCapacity = kUnit;
        description->m_buffer = memory(1).data() + m_offset;
        return S_OK;
    }
    std::size_t m_offset = 0;
};

// The first piece has `first` bytes, the others `rest`.
void playUnit(NetworkStreamReceiver& receiver, std::uint64_t timeStamp, std::uint32_t first,
              std::uint32_t rest) {
    for (std::uint32_t piece = 0; piece < kPieces; ++piece) {
        _tagConsumerInfo info{};
        receiver.GetBuffer(&info);
        info.sampleValid = 1;
        info.dataLength = piece == 0 ? first : rest;
        info.timeStamp = timeStamp;
        info.streamType = keStreamTypeH264;
        receiver.OnData(&info);
    }
}

void deliver(benchmark::State& state, std::uint32_t first, std::uint32_t rest) {
    RotatingSink sink;
    GenericVideoStreamNotifier notifier(&sink);
    NetworkStreamReceiver receiver(&notifier);
    std::uint64_t timeStamp = 1;
    playUnit(receiver, timeStamp, first, rest); // delivered by the next unit, as every one below
    for (auto _ : state) {
        playUnit(receiver, ++timeStamp, first, rest);
    }
    state.SetBytesProcessed(state.iterations() * (first + rest * (kPieces - 1)));
}

void copyBare(benchmark::State& state, std::uint32_t pieceLength) {
    RotatingAllocator allocator;
    RotatingSink sink;
    IKvVideoCallback& video = sink;
    for (auto _ : state) {
        IKvSurface* surface = nullptr;
        static_cast<void>(video.ProvideVideoSurface(kUnit, &surface));
        SKvLockedSurfaceDescription description{};
        static_cast<void>(surface->Lock(0, keKvFaceTypeFront, &description));
        std::uint8_t* destination = description.m_buffer;
        for (std::uint32_t piece = 0; piece < kPieces; ++piece) {
            std::uint32_t capacity = 0;
            std::memcpy(destination, allocator.AllocateBuffer(&capacity, nullptr), pieceLength);
            destination += pieceLength;
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * pieceLength * kPieces);
}

// The host's and the SDK's own calls of one access unit, made directly, and its byte.
void callsAlone(benchmark::State& state) {
    g_rotation = kWarmRotation;
    auto allocator = std::unique_ptr<SdkBufferAllocator>(CreateBufferAllocator(2, 8, 0, 0, 1, nullptr));
    RotatingSink sink;
    IKvVideoCallback* video = &sink;
    benchmark::DoNotOptimize(video);
    std::uint64_t timeStamp = 0;
    std::array<std::uint8_t*, kPieces> buffers{};
    for (auto _ : state) {
        ++timeStamp;
        for (std::uint8_t*& buffer : buffers) {
            _tagConsumerInfo info{};
            std::uint32_t capacity = 0;
            info.buffer = allocator->AllocateBuffer(&capacity, nullptr);
            AttachBuffer(&info, 0, capacity);
            benchmark::DoNotOptimize(allocator->ConfirmBufferSize(info.buffer, 1));
            benchmark::DoNotOptimize(info);
            buffer = info.buffer;
        }
        IKvSurface* surface = nullptr;
        static_cast<void>(video->ProvideVideoSurface(1, &surface));
        SKvLockedSurfaceDescription description{};
        static_cast<void>(surface->Lock(0, keKvFaceTypeFront, &description));
        *description.m_buffer = *buffers[0];
        static_cast<void>(surface->SetTimeStampInfo(&timeStamp));
        static_cast<void>(surface->SignalWriteCompletion());
        static_cast<void>(video->DeliverVideoSurface(surface));
        surface->Release();
        for (std::uint8_t* buffer : buffers) {
            allocator->ReleaseBuffer(buffer);
        }
    }
}

// The same access unit of 8 pieces of one byte through the module: the difference to callsAlone is the cost
// it adds.
void callsThroughModule(benchmark::State& state) {
    g_rotation = kWarmRotation;
    deliver(state, 1, 0);
}

void memcpyCold(benchmark::State& state) {
    g_rotation = kColdRotation;
    copyBare(state, kPiece);
}

void deliverCold(benchmark::State& state) {
    g_rotation = kColdRotation;
    deliver(state, kPiece, kPiece);
}

BENCHMARK(memcpyCold)->Repetitions(9)->ReportAggregatesOnly()->UseRealTime();
BENCHMARK(deliverCold)->Repetitions(9)->ReportAggregatesOnly()->UseRealTime();
BENCHMARK(callsAlone)->Repetitions(9)->ReportAggregatesOnly();
BENCHMARK(callsThroughModule)->Repetitions(9)->ReportAggregatesOnly();

} // namespace

extern "C" SdkBufferAllocator* CreateBufferAllocator(std::uint32_t, std::uint32_t, std::uint32_t,
                                                     std::uint32_t, std::uint32_t, void*) {
    return new RotatingAllocator;
}

extern "C" void AttachBuffer(_tagConsumerInfo*, std::uint32_t, std::uint32_t) {}

BENCHMARK_MAIN();
