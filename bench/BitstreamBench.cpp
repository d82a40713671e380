#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "AllocationCounter.h"
#include "BitReader.h"
#include "H264SequenceParameterSet.h"
#include "LoasFrame.h"
#include "NaiveBitReader.h"
#include "NaiveLatm.h"
#include "NaiveSequenceParameterSet.h"
#include "TestData.h"
#include "VideoFormatDetection.h"

// The parsers against the straightforward way of writing them, on recorded streams. Names that end in Naive
// are the baselines; time is for one read, one parameter set or one frame.

using namespace KorvelVideo::Network;

namespace {

template <typename Reader>
void readWith(benchmark::State& state, const std::vector<std::int32_t>& widths) {
    std::mt19937 random(1);
    Bytes bytes(4096);
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    std::int64_t reads = 0;
    for (auto iteration : state) {
        Reader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
        std::uint64_t sum = 0;
        for (int round = 0; round < 4; ++round) {
            for (const std::int32_t width : widths) {
                sum += reader.readUnsigned(width);
            }
        }
        benchmark::DoNotOptimize(sum);
        reads += static_cast<std::int64_t>(4 * widths.size());
    }
    state.counters["time/read"] = benchmark::Counter(
        static_cast<double>(reads), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void readBitsNaive(benchmark::State& state, const std::vector<std::int32_t>& widths) {
    readWith<NaiveBitReader>(state, widths);
}

void readBits(benchmark::State& state, const std::vector<std::int32_t>& widths) {
    readWith<BitReader>(state, widths);
}

std::vector<std::int32_t> mixedWidths() {
    std::mt19937 random(2);
    std::vector<std::int32_t> widths(256);
    for (std::int32_t& width : widths) {
        width = static_cast<std::int32_t>(1 + random() % 32);
    }
    return widths;
}

std::vector<std::int32_t> alignedWidths() {
    std::mt19937 random(3);
    std::vector<std::int32_t> widths(256);
    for (std::int32_t& width : widths) {
        width = static_cast<std::int32_t>(8 * (1 + random() % 4));
    }
    return widths;
}

BENCHMARK_CAPTURE(readBitsNaive, mixed, mixedWidths());
BENCHMARK_CAPTURE(readBits, mixed, mixedWidths());
BENCHMARK_CAPTURE(readBitsNaive, aligned, alignedWidths());
BENCHMARK_CAPTURE(readBits, aligned, alignedWidths());

const char* const c_parameterSet = "sps/high-1920x1080-25p-bt709.sps";

void parameterSetNaive(benchmark::State& state) {
    const Bytes bytes = readBytes(c_parameterSet);
    for (auto iteration : state) {
        benchmark::DoNotOptimize(naive::parseSequenceParameterSet(
            {bytes.data() + 5, static_cast<std::int32_t>(bytes.size() - 5)}));
    }
}

void parameterSet(benchmark::State& state) {
    const Bytes bytes = readBytes(c_parameterSet);
    for (auto iteration : state) {
        const H264SequenceParameterSet sps(bytes.data() + 5, static_cast<std::uint32_t>(bytes.size() - 5));
        benchmark::DoNotOptimize(sps.getWidth());
    }
}

void avcConfiguration(benchmark::State& state) {
    const Bytes bytes = readBytes(c_parameterSet);
    for (auto iteration : state) {
        benchmark::DoNotOptimize(
            describeAvcConfiguration(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
    }
}

BENCHMARK(parameterSetNaive);
BENCHMARK(parameterSet);
BENCHMARK(avcConfiguration);

// Runs unwrap(frame, output) over the frames of a stream in turn.
template <typename Unwrap>
void overFrames(benchmark::State& state, const std::string& stream, Unwrap unwrap) {
    const std::vector<Bytes> frames = splitLoasFrames(readBytes("loas/" + stream + ".loas"));
    Bytes output(8192);
    std::int64_t payload = 0;
    std::int64_t count = 0;
    const AllocationCounter allocations;
    for (auto iteration : state) {
        const Bytes& frame = frames[static_cast<std::size_t>(count) % frames.size()];
        payload += static_cast<std::int64_t>(unwrap(frame, output.data()));
        ++count;
    }
    benchmark::DoNotOptimize(output.data());
    state.counters["allocations"] = static_cast<double>(allocations.count()) / static_cast<double>(count);
    state.counters["payload"] = static_cast<double>(payload) / static_cast<double>(count);
}

// Frames carry their configuration, so one default state serves all.
const LatmConfigState c_noConfiguration;

BitReader readerOver(const Bytes& frame) { return {frame.data(), static_cast<std::int32_t>(frame.size())}; }

void bothPassesNaive(benchmark::State& state, const std::string& stream) {
    overFrames(state, stream, [](const Bytes& frame, std::uint8_t* output) {
        const NaiveBitReader reader(frame.data(), static_cast<std::int32_t>(frame.size()));
        benchmark::DoNotOptimize(naive::parseLoasFrame(reader, nullptr, {}).payloadByteCount);
        return naive::parseLoasFrame(reader, output, {}).payloadByteCount;
    });
}

void bothPasses(benchmark::State& state, const std::string& stream) {
    overFrames(state, stream, [](const Bytes& frame, std::uint8_t* output) {
        const std::int32_t measured = measureLoasFrame(readerOver(frame), c_noConfiguration);
        return parseLoasFrame(readerOver(frame), output, static_cast<std::uint32_t>(measured),
                              c_noConfiguration)
            .audioMuxElement.payloadByteCount;
    });
}

void measure(benchmark::State& state, const std::string& stream) {
    overFrames(state, stream, [](const Bytes& frame, std::uint8_t*) {
        return measureLoasFrame(readerOver(frame), c_noConfiguration);
    });
}

// The floor: a copy of the frame.
void copyOnly(benchmark::State& state, const std::string& stream) {
    overFrames(state, stream, [](const Bytes& frame, std::uint8_t* output) {
        std::memcpy(output, frame.data(), frame.size());
        benchmark::ClobberMemory();
        return frame.size();
    });
}

const std::string c_slow = "lc-48000-stereo-64k";
const std::string c_fast = "lc-48000-stereo-320k";

BENCHMARK_CAPTURE(bothPassesNaive, 64k, c_slow);
BENCHMARK_CAPTURE(bothPasses, 64k, c_slow);
BENCHMARK_CAPTURE(measure, 64k, c_slow);
BENCHMARK_CAPTURE(copyOnly, 64k, c_slow);
BENCHMARK_CAPTURE(bothPassesNaive, 320k, c_fast);
BENCHMARK_CAPTURE(bothPasses, 320k, c_fast);
BENCHMARK_CAPTURE(measure, 320k, c_fast);
BENCHMARK_CAPTURE(copyOnly, 320k, c_fast);

} // namespace
