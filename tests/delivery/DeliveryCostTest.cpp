#include "AllocationCounter.h"
#include "AvcStreamNotifier.h"
#include "CopyCounter.h"
#include "GenericAudioStreamNotifier.h"
#include "LatmStreamNotifier.h"
#include "LoasFrame.h"
#include "NetworkStreamReceiver.h"
#include "NotifierFixture.h"
#include "PooledSinks.h"

using namespace KorvelVideo::Network;

namespace {

constexpr int kUnits = 100;

// What the parser allocates for the frame in both of its passes.
std::uint64_t parserAllocations(const Bytes& frame) {
    const BitReader reader(frame.data(), static_cast<std::int32_t>(frame.size()));
    Bytes output(frame.size());
    const AllocationCounter counter;
    const std::int32_t size = measureLoasFrame(reader, {});
    static_cast<void>(parseLoasFrame(reader, output.data(), static_cast<std::uint32_t>(size), {}));
    return counter.count();
}

// One copy of each payload byte and no allocation but the parser's own records, whatever the notifier.
TEST(DeliveryCost, OneCopyAndNoAllocationForAnAccessUnit) {
    const RecordingCodecConfiguration configurationClass;
    const Unrecorded unrecorded;
    PooledSink sink;
    AvcStreamNotifier avc(&sink);
    GenericAudioStreamNotifier aac(&sink, nullptr, 0);
    LatmStreamNotifier latm(&sink, nullptr, 0);
    const std::vector<Bytes> plain{Bytes(30'000, 1), Bytes(20'000, 2), Bytes(0), Bytes(5, 3)};
    const std::vector<Bytes> loas = splitLoasFrames(readBytes("loas/lc-48000-stereo-64k.loas"));
    Bytes prefixed(258, 255);
    prefixed[1] = 1; // 256 bytes behind 255 + 1
    std::uint64_t loasAllocations = 0;
    for (const Bytes& frame : loas) {
        loasAllocations += parserAllocations(frame);
    }
    ASSERT_GT(loasAllocations, 0U) << "the counter counts";
    struct Row {
        const char* name;
        IAudioVideoReceptionNotifier& notifier;
        std::vector<Bytes> pieces;
        std::uint64_t copiedBytes; // with memcpy
        std::uint64_t allocations;
    };
    Row rows[] = {
        {"H.264", avc, plain, 50'005, 0},
        {"AAC", aac, plain, 50'005, 0},
        {"prefixed", latm, {prefixed, prefixed}, 512, 0},
        // Its payload lies across byte boundaries: shifted straight into the host's buffer, never copied.
        {"LOAS", latm, loas, 0, loasAllocations},
    };
    for (Row& row : rows) {
        SCOPED_TRACE(row.name);
        const AccessUnit unit = unitOver(row.pieces);
        const AllocationCounter allocations;
        const CopyCounter copies;
        for (std::uint64_t timeStamp = 0; timeStamp < kUnits; ++timeStamp) {
            row.notifier.notifyReception(unit, timeStamp);
        }
        EXPECT_EQ(allocations.count(), kUnits * row.allocations);
        EXPECT_EQ(copies.bytes(), kUnits * row.copiedBytes);
    }
    EXPECT_EQ(sink.delivered(), 4 * kUnits);
}

// The same from the client's buffers on, in steady state.
TEST(DeliveryCost, OneCopyAndNoAllocationFromTheClientToTheHost) {
    const Unrecorded unrecorded;
    PooledSink sink;
    AvcStreamNotifier notifier(&sink);
    NetworkStreamReceiver receiver(&notifier);
    ScriptedSdk::Sample piece{Bytes(60'000, 1), 1};
    const auto playUnits = [&] {
        for (int number = 0; number < kUnits * 8; ++number) {
            ScriptedSdk::play(receiver, piece);
            piece.timeStamp += number % 8 == 7 ? 1U : 0U;
        }
    };
    playUnits();
    const AllocationCounter allocations;
    const CopyCounter copies;
    playUnits();
    EXPECT_EQ(allocations.count(), 0U);
    EXPECT_EQ(copies.bytes(), piece.bytes.size() * 8 * kUnits);
    EXPECT_EQ(sink.delivered(), 2 * kUnits - 1);
}

} // namespace
