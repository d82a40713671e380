#include <malloc.h>

#include "ReceiverFixture.h"

// Ten thousand lives of a receiver: memory stays where it was.

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 500; // an instrumented heap tells no sizes; what leaks is reported
#else
constexpr int kRounds = 10'000;
#endif
// Buffers of the standard library and of the system that grow once; one lost object a round would be more.
constexpr std::size_t kAllowedBytes = std::size_t{64} * 1024;

class ReceiverRounds : public ReceiverFixture {
protected:
    void live(const ReceiverKind& kind, int rounds) {
        for (int round = 0; round < rounds; ++round) {
            createAndStart(kind);
            ScriptedSdk::notify(consumer(), 10);
            ScriptedSdk::play(consumer(), {{1, 2, 3}, 40});
            ScriptedSdk::play(consumer(), {{1, 2, 3}, 80});
            ASSERT_EQ(receiver->Stop(), S_OK);
            ASSERT_EQ(receiver->Redirect(kind.otherUrl), S_OK);
            ASSERT_EQ(release(), 0U);
            ASSERT_EQ(videoSink.takeDelivered().size(), 1U);
            videoSink.takeStatuses();
        }
    }
};

TEST_F(ReceiverRounds, LeaveMemoryAsItWas) {
    const Unrecorded unrecorded;
    const KvTest::ShortWaits shortWaits; // an RTMP stop leaves a worker that waits for quiet
    for (const ReceiverKind& kind : kReceiverKinds) {
        live(kind, kRounds / 10);
        const std::size_t bytesBefore = mallinfo2().uordblks;
        live(kind, kRounds);
        EXPECT_LE(mallinfo2().uordblks, bytesBefore + kAllowedBytes) << kind;
    }
}

} // namespace
