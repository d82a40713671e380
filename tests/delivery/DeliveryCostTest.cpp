#include "AllocationCounter.h"
#include "AvcStreamNotifier.h"
#include "GenericAudioStreamNotifier.h"
#include "LatmStreamNotifier.h"
#include "NetworkStreamReceiver.h"
#include "NotifierFixture.h"
#include "PooledSinks.h"

using namespace KorvelVideo::Network;

namespace {

// From the client's buffers to the host's, whatever the notifier, in steady state.
TEST(DeliveryCost, NoAllocationFromTheClientToTheHost) {
    const RecordingCodecConfiguration configurationClass;
    const Unrecorded unrecorded;
    PooledSink sink;
    AvcStreamNotifier avc(&sink);
    GenericAudioStreamNotifier aac(&sink, nullptr, 0);
    LatmStreamNotifier latm(&sink, nullptr, 0);
    int delivered = 0;
    for (IAudioVideoReceptionNotifier* const notifier :
         std::initializer_list<IAudioVideoReceptionNotifier*>{&avc, &aac, &latm}) {
        NetworkStreamReceiver receiver(notifier);
        ScriptedSdk::Sample piece{Bytes(256, 1), 1};
        piece.bytes[0] = 255; // 255 + 0 bytes follow, behind a prefix of LATM's
        piece.bytes[1] = 0;
        piece.bytes.push_back(1);
        const auto playUnits = [&] {
            for (int number = 0; number < 800; ++number) {
                ScriptedSdk::play(receiver, piece);
                piece.timeStamp += number % 8 == 7 ? 1U : 0U;
            }
        };
        playUnits();
        const AllocationCounter allocations;
        playUnits();
        EXPECT_EQ(allocations.count(), 0U);
        const AllocationCounter counting;
        Bytes(1).swap(piece.bytes);
        EXPECT_EQ(counting.count(), 1U) << "the counter counts";
        delivered += 199 + (notifier == &latm ? 1 : 0); // the empty first unit of LATM, too
        EXPECT_EQ(sink.delivered(), delivered);
    }
}

} // namespace
