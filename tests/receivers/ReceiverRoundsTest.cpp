#include <filesystem>

#include <malloc.h>

#include "PlatformFaults.h"
#include "ReceiverFixture.h"

// Ten thousand lives of a receiver: memory and threads stay where they were.

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 500; // an instrumented heap tells no sizes; what leaks is reported
#else
constexpr int kRounds = 10'000;
#endif
// Buffers of the standard library and of the system that grow once; one lost object a round would be more.
constexpr std::size_t kAllowedBytes = std::size_t{64} * 1024;

std::ptrdiff_t threads() { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); }

// A thread that has done its work is still there for a moment.
bool waitForThreads(std::ptrdiff_t most) {
    for (int attempt = 0; attempt < 30'000 && threads() > most; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return threads() <= most;
}

class ReceiverRounds : public ReceiverFixture {
protected:
    void live(const ReceiverKind& kind) {
        ASSERT_EQ(create(kind, {kind.url, nullptr, 5000, 0}), S_OK);
        ASSERT_EQ(receiver->Start(), S_OK);
        ScriptedSdk::notify(consumer(), 10);
        ASSERT_TRUE(ScriptedSdk::play(consumer(), {{1, 2, 3}, 40}));
        ASSERT_TRUE(ScriptedSdk::play(consumer(), {{1, 2, 3}, 80}));
        ASSERT_EQ(receiver->Stop(), S_OK);
        ASSERT_EQ(receiver->Redirect(kind.otherUrl), S_OK);
        ASSERT_EQ(release(), 0U);
        videoSink.takeDelivered();
        videoSink.takeStatuses();
    }
    void live(const ReceiverKind& kind, int rounds) {
        for (int round = 0; round < rounds && !HasFatalFailure(); ++round) {
            live(kind);
        }
    }

private:
    KvTest::ShortWaits m_shortWaits; // an RTMP stop leaves a worker that waits for quiet
};

TEST_F(ReceiverRounds, LeaveMemoryAndThreadsAsTheyWere) {
    CallLog::instance().setEnabled(false);
    RecordingLogger::setEnabled(false);
    for (const ReceiverKind& kind : kReceiverKinds) {
        SCOPED_TRACE(kind.name);
        live(kind, kRounds / 10);
        const std::ptrdiff_t threadsBefore = threads();
        const std::size_t bytesBefore = mallinfo2().uordblks;
        live(kind, kRounds);
        EXPECT_TRUE(waitForThreads(threadsBefore));
        EXPECT_LE(mallinfo2().uordblks, bytesBefore + kAllowedBytes);
    }
    CallLog::instance().setEnabled(true);
    RecordingLogger::setEnabled(true);
}

} // namespace
