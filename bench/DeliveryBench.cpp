// From received pieces to the host's buffer: the LATM path beside a bare memcpy of the same payload, and 1, 8
// and 64 streams side by side beside bare copies over the same memory, as cost per access unit.

#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "AvcStreamNotifier.h"
#include "GenericAudioStreamNotifier.h"
#include "LatmStreamNotifier.h"
#include "NetworkStreamReceiver.h"
#include "PooledSinks.h"
#include "RecordingCodecConfiguration.h"
#include "TestData.h"

using namespace KorvelVideo::Network;
using namespace MainConcept::NetworkStreaming;

namespace {

// What a stream receives again and again: one piece for each access unit.
struct Content {
    std::uint32_t streamType;
    std::vector<Bytes> pieces;
    std::size_t payloadSize; // of all pieces together
};

std::size_t sizeOf(const std::vector<Bytes>& pieces) {
    std::size_t size = 0;
    for (const Bytes& piece : pieces) {
        size += piece.size();
    }
    return size;
}

const Content& loas() {
    static const Content content{keStreamTypeLatm,
                                 splitLoasFrames(readBytes("loas/lc-48000-stereo-320k.loas")),
                                 readBytes("loas/lc-48000-stereo-320k.aac").size()};
    return content;
}

// The access units that those frames carry.
const Content& plain() {
    static const Content content = [] {
        const Bytes encoded = readBytes("loas/lc-48000-stereo-320k.aac");
        const auto expected = readExpected("loas/lc-48000-stereo-320k.expected");
        Content made{keStreamTypeAac, {}, encoded.size()};
        const std::uint8_t* at = encoded.data();
        for (auto [size, last] = expected.equal_range("size"); size != last; ++size) {
            const std::size_t length = std::stoul(size->second);
            made.pieces.emplace_back(at, at + length);
            at += length;
        }
        return made;
    }();
    return content;
}

// The same behind length prefixes.
const Content& lengthPrefixed() {
    static const Content content = [] {
        Content made{keStreamTypeLatm, {}, plain().payloadSize};
        for (const Bytes& payload : plain().pieces) {
            const std::size_t full = payload.size() / 255;
            Bytes piece(full + 1 + payload.size(), 255);
            piece[full] = static_cast<std::uint8_t>(payload.size() % 255);
            std::memcpy(piece.data() + full + 1, payload.data(), payload.size());
            made.pieces.push_back(std::move(piece));
        }
        return made;
    }();
    return content;
}

// 8 Mbit/s at 50 pictures a second.
const Content& avc() {
    static const Content content{keStreamTypeH264, std::vector<Bytes>(4, Bytes(20'000, 7)), 80'000};
    return content;
}

const Content* g_content = nullptr; // of the next receiver

// Lends buffers that hold the content already, as a client has filled them, one after another.
class FilledAllocator final : public SdkBufferAllocator {
public:
    explicit FilledAllocator(const Content& content) : m_pieces(content.pieces) {}
    void ReservedSlot1() override {}
    void ReservedSlot2() override {}
    std::int32_t Reset(std::uint32_t) override { return 0; }
    void ReservedSlot4() override {}
    void ReservedSlot5() override {}
    void ReservedSlot6() override {}
    void ReservedSlot7() override {}
    std::uint8_t* AllocateBuffer(std::uint32_t* capacity, void*) override {
        Bytes& piece = m_pieces[m_next];
        m_next = (m_next + 1) % m_pieces.size();
        *capacity = static_cast<std::uint32_t>(piece.size());
        return piece.data();
    }
    std::int32_t ConfirmBufferSize(std::uint8_t*, std::uint32_t) override { return 0; }
    void ReleaseBuffer(std::uint8_t*) override {}

private:
    std::vector<Bytes> m_pieces;
    std::size_t m_next = 0;
};

std::unique_ptr<IAudioVideoReceptionNotifier> newNotifier(std::uint32_t streamType, PooledSink& video,
                                                          PooledSink& audio) {
    switch (streamType) {
    case keStreamTypeH264:
        return std::make_unique<AvcStreamNotifier>(&video);
    case keStreamTypeAac:
        return std::make_unique<GenericAudioStreamNotifier>(&audio, nullptr, 0);
    default:
        return std::make_unique<LatmStreamNotifier>(&audio, nullptr, 0);
    }
}

// One stream from the client's buffers to a host of its own.
class Stream {
public:
    explicit Stream(const Content& content)
        : m_content(content), m_notifier(newNotifier(content.streamType, m_video, m_audio)) {
        g_content = &content;
        m_receiver = std::make_unique<NetworkStreamReceiver>(m_notifier.get());
    }

    // One access unit in; the one before it out.
    void play() {
        _tagConsumerInfo info{};
        m_receiver->GetBuffer(&info);
        info.sampleValid = 1;
        info.timeStamp = ++m_timeStamp;
        info.streamType = m_content.streamType;
        info.dataLength =
            static_cast<std::uint32_t>(m_content.pieces[(m_timeStamp - 1) % m_content.pieces.size()].size());
        m_receiver->OnData(&info);
    }

private:
    const Content& m_content;
    PooledSink m_video;
    PooledSink m_audio;
    std::unique_ptr<IAudioVideoReceptionNotifier> m_notifier;
    std::unique_ptr<NetworkStreamReceiver> m_receiver;
    std::uint64_t m_timeStamp = 0;
};

void countUnits(benchmark::State& state, std::int64_t units) {
    state.counters["per_unit"] = benchmark::Counter(
        static_cast<double>(units), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// range(0) streams in turn on one thread.
void streams(benchmark::State& state, const Content& content) {
    std::vector<std::unique_ptr<Stream>> all;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        all.push_back(std::make_unique<Stream>(content));
        all.back()->play();
    }
    for (auto _ : state) {
        for (const auto& stream : all) {
            stream->play();
        }
    }
    countUnits(state, state.iterations() * state.range(0));
}

// The same access units over the same memory by memcpy alone.
void bareCopies(benchmark::State& state, const Content& content) {
    const auto count = static_cast<std::size_t>(state.range(0));
    std::vector<std::vector<Bytes>> sources(count, content.pieces);
    std::vector<Bytes> hosts(count, Bytes(1 << 20));
    std::size_t next = 0;
    for (auto _ : state) {
        for (std::size_t i = 0; i < count; ++i) {
            const Bytes& piece = sources[i][next];
            std::memcpy(hosts[i].data(), piece.data(), piece.size());
            benchmark::ClobberMemory();
        }
        next = (next + 1) % content.pieces.size();
    }
    countUnits(state, state.iterations() * state.range(0));
}

// A stream to a thread.
void threads(benchmark::State& state, const Content& content) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
        static std::mutex oneAtATime; // g_content is for all
        std::unique_lock lock(oneAtATime);
        Stream stream(content);
        lock.unlock();
        stream.play();
        for (auto _ : state) {
            stream.play();
        }
    }
    countUnits(state, state.iterations());
    CoUninitialize();
}

// All pieces of the content as one access unit, through the notifier alone.
void latm(benchmark::State& state, const Content& content) {
    PooledSink sink;
    LatmStreamNotifier notifier(&sink, nullptr, 0);
    std::vector<Bytes> pieces = content.pieces;
    AccessUnit unit;
    for (Bytes& piece : pieces) {
        unit.emplace_back(piece.data(), static_cast<std::uint32_t>(piece.size()));
    }
    for (auto _ : state) {
        notifier.notifyReception(unit, 1);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(content.payloadSize));
    countUnits(state, state.iterations() * static_cast<std::int64_t>(unit.size()));
}

// What the same payload costs to copy.
void payloadCopy(benchmark::State& state, const Content& content) {
    std::vector<Bytes> pieces = content.pieces;
    Bytes host(1 << 20);
    for (auto _ : state) {
        std::uint8_t* destination = host.data();
        for (const Bytes& piece : pieces) {
            std::memcpy(destination, piece.data(), piece.size());
            destination += piece.size();
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sizeOf(pieces)));
    countUnits(state, state.iterations() * static_cast<std::int64_t>(pieces.size()));
}

} // namespace

extern "C" SdkBufferAllocator* CreateBufferAllocator(std::uint32_t, std::uint32_t, std::uint32_t,
                                                     std::uint32_t, std::uint32_t, void*) {
    return new FilledAllocator(*g_content);
}

extern "C" void AttachBuffer(_tagConsumerInfo*, std::uint32_t, std::uint32_t) {}

int main(int argc, char** argv) {
    const RecordingCodecConfiguration configurationClass;
    struct Named {
        const char* name;
        const Content& content;
    };
    const std::vector<Named> all{
        {"H264", avc()}, {"Aac", plain()}, {"LengthPrefixed", lengthPrefixed()}, {"Loas", loas()}};
    benchmark::RegisterBenchmark("PayloadCopy", payloadCopy, std::cref(plain()));
    benchmark::RegisterBenchmark("Latm/LengthPrefixed", latm, std::cref(lengthPrefixed()));
    benchmark::RegisterBenchmark("Latm/Loas", latm, std::cref(loas()));
    for (const Named& kind : all) {
        const std::string name = kind.name;
        benchmark::RegisterBenchmark(("BareCopies/" + name).c_str(), bareCopies, std::cref(kind.content))
            ->Arg(1)
            ->Arg(8)
            ->Arg(64);
        benchmark::RegisterBenchmark(("Streams/" + name).c_str(), streams, std::cref(kind.content))
            ->Arg(1)
            ->Arg(8)
            ->Arg(64);
    }
    for (const Named& kind : all) {
        benchmark::RegisterBenchmark((std::string("StreamToAThread/") + kind.name).c_str(), threads,
                                     std::cref(kind.content))
            ->Threads(1)
            ->Threads(8)
            ->Threads(64);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
