#include <dirent.h>
#include <malloc.h>

#include <fstream>

#include "PlatformFaults.h"
#include "ReceiverFixture.h"

// Ten thousand lives of a receiver: memory and threads stay where they were.

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRounds = 2'000; // a fifth: the instrumented build is that much slower
#else
constexpr int kRounds = 10'000;
#endif

long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    }
    return 0;
}

int threads() {
    int count = 0;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* const entry = readdir(tasks)) {
        count += entry->d_name[0] != '.' ? 1 : 0;
    }
    closedir(tasks);
    return count;
}

// A thread that has done its work is still there for a moment.
bool waitForThreads(int most) {
    for (int attempt = 0; attempt < 5'000 && threads() > most; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return threads() <= most;
}

class ReceiverRounds : public ReceiverFixture {
protected:
    void live(const ReceiverKind& kind) {
        ASSERT_EQ(create(kind, {kind.url, nullptr, 5000, 0}), S_OK);
        ASSERT_EQ(receiver->Start(), S_OK);
        auto* const consumer = ScriptedSdk::consumers().at(0);
        ScriptedSdk::notify(*consumer, 10);
        ASSERT_TRUE(ScriptedSdk::play(*consumer, {{1, 2, 3}, 40}));
        ASSERT_TRUE(ScriptedSdk::play(*consumer, {{1, 2, 3}, 80}));
        ASSERT_EQ(receiver->Stop(), S_OK);
        ASSERT_EQ(receiver->Redirect(kind.otherUrl), S_OK);
        ASSERT_EQ(release(), 0U);
        static_cast<void>(videoSink.takeDelivered());
        static_cast<void>(videoSink.takeStatuses());
    }
    void expectFlat(const ReceiverKind& kind, int rounds) {
        ScriptedSdk::setRecording(false);
        CallLog::instance().setEnabled(false);
        RecordingLogger::setEnabled(false);
        for (int round = 0; round < rounds / 10; ++round) {
            live(kind);
        }
        malloc_trim(0);
        const long memoryBefore = residentKilobytes();
        const int threadsBefore = threads();
        for (int round = 0; round < rounds && !HasFailure(); ++round) {
            live(kind);
        }
        malloc_trim(0);
        RecordProperty("kilobytes_grown", std::to_string(residentKilobytes() - memoryBefore));
        EXPECT_TRUE(waitForThreads(threadsBefore));
        // Some pages come and go; a leak of one object a round would be far more.
        EXPECT_LE(residentKilobytes() - memoryBefore, kAllowedKilobytes);
        CallLog::instance().setEnabled(true);
        RecordingLogger::setEnabled(true);
    }

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr long kAllowedKilobytes =
        256 * 1024; // freed memory stays in quarantine; leaks are reported
#else
    static constexpr long kAllowedKilobytes = 1024;
#endif

private:
    KvTest::ShortWaits m_shortWaits; // an RTMP stop leaves a worker that waits for quiet
};

TEST_F(ReceiverRounds, Rtsp) { expectFlat(kRtsp, kRounds); }
TEST_F(ReceiverRounds, Rtp) { expectFlat(kRtp, kRounds); }
TEST_F(ReceiverRounds, TsOverUdp) { expectFlat(kTsOverUdp, kRounds); }
TEST_F(ReceiverRounds, Rtmp) { expectFlat(kRtmp, kRounds / 4); }

// The same with the last release inside a callback.
TEST_F(ReceiverRounds, ReleasedInsideACallback) {
    ScriptedSdk::setRecording(false);
    CallLog::instance().setEnabled(false);
    RecordingLogger::setEnabled(false);
    videoSink.onCall = [this](const std::string&) {
        if (receiver != nullptr) {
            release();
        }
    };
    const auto round = [this] {
        ASSERT_EQ(create(kRtsp, {kRtsp.url, nullptr, 0, 0}), S_OK);
        ASSERT_EQ(receiver->Start(), S_OK);
        auto* const consumer = ScriptedSdk::consumers().at(0);
        ScriptedSdk::runOnClientThread([consumer] { ScriptedSdk::notify(*consumer, 10); });
        ASSERT_TRUE(ScriptedSdk::waitForClientThreads());
        ASSERT_TRUE(waitForObjects(0));
    };
    round();
    const int threadsBefore = threads();
    for (int number = 0; number < 500 && !HasFailure(); ++number) {
        round();
    }
    EXPECT_TRUE(waitForThreads(threadsBefore));
    CallLog::instance().setEnabled(true);
    RecordingLogger::setEnabled(true);
}

} // namespace
