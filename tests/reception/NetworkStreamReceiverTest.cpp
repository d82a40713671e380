#include "NetworkStreamReceiver.h"

#include <functional>
#include <set>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "GenericVideoStreamNotifier.h"
#include "KvResultCodes.h"
#include "PlatformFaults.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "RunTogether.h"
#include "ScriptedSdk.h"

using namespace std::chrono_literals;
using namespace KorvelVideo::Network;
using KvTest::PlatformCall;
using KvTest::PlatformFault;
using KvTest::TestClock;
using MainConcept::NetworkStreaming::_tagConsumerInfo;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Units = std::vector<DeliveredUnit>;
using Statuses = std::vector<HRESULT>;

// A receiver between the scripted SDK and a recording host. Whatever a test does, every buffer goes back
// once.
class NetworkStreamReceiverTest : public testing::Test {
protected:
    NetworkStreamReceiverTest() {
        ScriptedSdk::reset();
        m_receiver = std::make_unique<NetworkStreamReceiver>(&m_notifier);
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    ~NetworkStreamReceiverTest() override {
        m_receiver.reset();
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
        EXPECT_EQ(m_sink.liveBuffers(), 0);
    }

    void play(Bytes bytes, std::uint64_t timeStamp, std::uint32_t streamType = 96) {
        EXPECT_TRUE(ScriptedSdk::play(*m_receiver, {std::move(bytes), timeStamp, streamType}));
    }
    void notify(int type) { ScriptedSdk::notify(*m_receiver, type); }
    void stop() {
        m_receiver->setStopCalled();
        m_receiver->releasePendingSamples();
    }
    static Calls takeCalls() { return CallLog::instance().take(); }
    static int lentBuffers() { return ScriptedSdk::remains().buffers; }
    [[nodiscard]] std::string identifier() const {
        return std::to_string(reinterpret_cast<std::intptr_t>(&m_notifier));
    }

    RecordingSink m_sink;
    GenericVideoStreamNotifier m_notifier{&m_sink};
    std::unique_ptr<NetworkStreamReceiver> m_receiver;
};

TEST_F(NetworkStreamReceiverTest, GathersBuffersOfOneTimeStamp) {
    play({1}, 40);
    EXPECT_EQ(takeCalls(), (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer1, 0, 65536)",
                                  "ConfirmBufferSize(buffer1, 1)"}))
        << "an empty access unit with time stamp 0 goes first, and makes no host call";
    play({2, 3}, 40);
    play({4}, 40);
    CallLog::instance().clear();
    play({5}, 80);
    EXPECT_EQ(
        takeCalls(),
        (Calls{"AllocateBuffer(0, null)", "AttachBuffer(buffer4, 0, 65536)", "ConfirmBufferSize(buffer4, 1)",
               "ProvideVideoSurface(4)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
               "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
               "ReleaseBuffer(buffer1)", "ReleaseBuffer(buffer2)", "ReleaseBuffer(buffer3)"}));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2, 3, 4}, 40}}));
    play({6}, 80, 33);
    play({7}, 80, 33);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{5}, 80}, {{6}, 80}}))
        << "of a transport stream each is a unit";
    EXPECT_EQ(lentBuffers(), 1) << "the last buffer is pending";
    EXPECT_EQ(m_receiver->ResetAllocator(), 77);
    EXPECT_EQ(takeCalls().back(), "Reset(0)");
}

TEST_F(NetworkStreamReceiverTest, NotificationsBecomeStatusCodes) {
    for (const int type : {1, 2, 4, 7, 8, 9, 11, 12, 1000, -1}) {
        notify(type);
    }
    EXPECT_EQ(takeCalls(), Calls{}) << "types without a meaning";
    for (const int type : {10, 10, 3, 5}) {
        notify(type);
    }
    EXPECT_EQ(m_sink.takeStatuses(), (Statuses{KV_S_STREAM_ACTIVE, KV_E_DISCONNECTED, KV_S_STREAM_NOTICE}));
    m_receiver->resetForStart();
    notify(10);
    EXPECT_EQ(m_sink.takeStatuses(), Statuses{KV_S_STREAM_ACTIVE}) << "once per start";
}

TEST_F(NetworkStreamReceiverTest, SilenceCountsFromThreeSeconds) {
    const TestClock clock;
    notify(10);
    play({1}, 40);
    CallLog::instance().clear();
    TestClock::advance(3s - 100ns); // the counter of one of the systems counts these
    notify(0);
    EXPECT_EQ(takeCalls(), Calls{}) << "too early";
    TestClock::advance(100ns);
    notify(0);
    EXPECT_EQ(takeCalls(),
              (Calls{"ProvideVideoSurface(1)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(40)",
                     "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended",
                     "ReleaseBuffer(buffer1)", "NotifyStatus(0x099900A6)"}));
    EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 1, "Notified last frame for " + identifier()}}));
    notify(0);
    EXPECT_EQ(takeCalls(), Calls{"NotifyStatus(0x099900A6)"}) << "also with nothing pending";
    notify(10);
    EXPECT_EQ(takeCalls(), Calls{"NotifyStatus(0x0999202E)"}) << "active again";
}

TEST_F(NetworkStreamReceiverTest, TheWorkerDeliversTheLastUnitAndReportsTheEndOnce) {
    play({1}, 40);
    notify(6);
    notify(6);
    play({2}, 40);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2}, 40}}));
    EXPECT_EQ(m_sink.takeStatuses(), Statuses{KV_S_STREAM_ENDED});
    m_receiver->forceEndOfStream();
    m_receiver->releasePendingSamples();
    EXPECT_TRUE(m_sink.takeStatuses().empty()) << "a worker that already ran is not started again";
    EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 1, "Received first end of stream for " + identifier()},
                                                   {3, 1, "Notified last frame for " + identifier()},
                                                   {3, 1, "Forcing end of stream for " + identifier()}}));
    m_receiver->resetForStart();
    notify(6);
    ASSERT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED)) << "a stream ends once per start";
}

TEST_F(NetworkStreamReceiverTest, AForcedEndReportsTheEndWithNothingPending) {
    m_receiver->forceEndOfStream();
    m_receiver->forceEndOfStream();
    notify(6);
    m_receiver->releasePendingSamples();
    EXPECT_EQ(m_sink.takeStatuses(), Statuses{KV_S_STREAM_ENDED});
    EXPECT_TRUE(m_sink.takeDelivered().empty());
}

TEST_F(NetworkStreamReceiverTest, WithoutNotifierOrBuffersNothingIsBegun) {
    EXPECT_THROW(NetworkStreamReceiver(nullptr), CKvVaneException);
    EXPECT_EQ(ScriptedSdk::remains().allocators, 1) << "the fixture's alone";
    CallLog::instance().clear();
    for (const std::uint32_t capacity : {0U, 65536U}) {
        _tagConsumerInfo info{};
        ScriptedSdk::failCall("AllocateBuffer", capacity);
        m_receiver->GetBuffer(&info);
        EXPECT_EQ(info.buffer, nullptr);
        EXPECT_EQ(RecordingLogger::takeLines(),
                  (Lines{{0, 4, "Error allocating buffer from buffer allocator."}}));
        EXPECT_EQ(takeCalls(), (Calls{"AllocateBuffer(0, null)"}));
    }
    m_receiver->GetBuffer(nullptr);
    EXPECT_EQ(takeCalls(), Calls{}) << "without a record nothing is lent";
}

TEST_F(NetworkStreamReceiverTest, BadRecordsLoseOnlyThemselves) {
    struct Row {
        const char* name;
        std::uint8_t valid;
        std::uint8_t discard;
        bool confirmed;
        int kept;
        Lines lines;
    };
    const Lines invalid{{3, 3, "OnData called back with invalid sample."}};
    const Lines notConfirmed{{3, 3, "Could not confirm buffer size from buffer allocator."}};
    play({1}, 40);
    for (const Row& row : {Row{"invalid before discard", 0, 1, true, 0, invalid},
                           {"discard", 1, 1, true, 0, {}},
                           {"not confirmed", 1, 0, false, 1, notConfirmed},
                           {"valid by any value", 0x80, 0, true, 1, {}}}) {
        SCOPED_TRACE(row.name);
        const int before = lentBuffers();
        ScriptedSdk::failCall("ConfirmBufferSize", 1, row.confirmed ? 1000 : 0);
        ScriptedSdk::play(*m_receiver, {{2}, 40, 96, row.valid, row.discard});
        EXPECT_EQ(RecordingLogger::takeLines(), row.lines);
        EXPECT_EQ(lentBuffers(), before + row.kept);
    }
    _tagConsumerInfo info{};
    for (_tagConsumerInfo* const record : {&info, static_cast<_tagConsumerInfo*>(nullptr)}) {
        m_receiver->OnData(record);
        EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{3, 3, "OnData called back with invalid pointer."}}));
    }
    play({9}, 80);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2, 2}, 40}}));
}

TEST_F(NetworkStreamReceiverTest, AHostThatThrowsLosesItsAccessUnitAndNoBuffer) {
    play({1}, 40);
    m_sink.during("Lock", [] { throw std::runtime_error("host"); });
    EXPECT_THROW(ScriptedSdk::play(*m_receiver, {{2}, 80}), std::runtime_error);
    EXPECT_EQ(lentBuffers(), 1) << "the failed unit is given back, the new buffer is kept";
    m_sink.during("NotifyStatus", [] { throw std::runtime_error("host"); });
    EXPECT_THROW(notify(10), std::runtime_error);
    m_sink.onCall = nullptr;
    notify(10);
    EXPECT_EQ(m_sink.takeStatuses(), Statuses{KV_S_STREAM_ACTIVE}) << "what was not heard is said again";
    play({3}, 120);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{2}, 80}}));
}

TEST_F(NetworkStreamReceiverTest, AWorkerThatFailsEndsItsStepAndNotTheProcess) {
    struct Row {
        const char* message;
        std::function<void()> fail;
    };
    for (const Row& row : {Row{"the host failed", [] { throw std::runtime_error("the host failed"); }},
                           Row{"event failed", [] { throw CKvEventException("event failed"); }},
                           Row{"Unknown exception on the end of stream thread.", [] { throw 5; }}}) {
        SCOPED_TRACE(row.message);
        m_receiver->resetForStart();
        play({1}, 40);
        m_sink.during("ProvideVideoSurface", row.fail);
        RecordingLogger::clear();
        notify(6);
        EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED)) << "the end is reported all the same";
        m_receiver->releasePendingSamples();
        m_sink.takeStatuses();
        EXPECT_EQ(RecordingLogger::takeLines().back(), (LogLine{0, 4, row.message}));
        EXPECT_EQ(lentBuffers(), 0);
    }
    m_sink.onCall = nullptr;
}

TEST_F(NetworkStreamReceiverTest, AWorkerThatCannotBeStartedMayBeTriedAgain) {
    {
        const PlatformFault fault(PlatformCall::beginthreadex, {.times = 2});
        EXPECT_THROW(notify(6), CKvThreadException);
        EXPECT_THROW(m_receiver->forceEndOfStream(), CKvThreadException);
    }
    m_receiver->releasePendingSamples();
    notify(6);
    EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
}

TEST_F(NetworkStreamReceiverTest, StopFromInsideACallbackNeitherWaitsForItselfNorCutsTheAccessUnit) {
    play({1}, 40);
    m_sink.during("ProvideVideoSurface", [this] { stop(); });
    play({2}, 80);
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1}, 40}}));
    EXPECT_EQ(lentBuffers(), 0) << "what was pending at the stop is dropped";
    m_sink.during("NotifyStatus", [this] { stop(); });
    notify(6);
    EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED)) << "on the worker";
}

TEST_F(NetworkStreamReceiverTest, FailingKernelObjectsLoseNoData) {
    play({1}, 40);
    {
        const PlatformFault fault(PlatformCall::WaitForSingleObject, {.result = 0xFFFFFFFF});
        notify(6);
        EXPECT_TRUE(m_sink.waitForStatus(KV_S_STREAM_ENDED));
    }
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1}, 40}})) << "a worker that cannot wait delivers at once";
    m_receiver->releasePendingSamples();
    {
        const PlatformFault fault(PlatformCall::SetEvent, {});
        EXPECT_THROW(ScriptedSdk::play(*m_receiver, {{2}, 80}), CKvEventException);
    }
    EXPECT_EQ(lentBuffers(), 1) << "the buffer is pending";
    const PlatformFault fault(PlatformCall::WaitForSingleObject, {.result = 0xFFFFFFFF});
    RecordingLogger::clear();
    m_receiver.reset();
    EXPECT_EQ(RecordingLogger::takeLines(),
              (Lines{{0, 4, "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject"}}));
}

TEST_F(NetworkStreamReceiverTest, TheNextWorkerStartsAfterTheEarlierOneHasEnded) {
    const KvTest::ShortWaits shortWaits;
    std::atomic<int> inside{0};
    m_sink.during("NotifyStatus", [&inside] {
        EXPECT_EQ(++inside, 1);
        std::this_thread::sleep_for(20ms);
        --inside;
    });
    for (int round = 0; round < 5; ++round) {
        notify(6);
        m_receiver->resetForStart();
    }
    m_receiver->releasePendingSamples();
    EXPECT_EQ(m_sink.takeStatuses(), Statuses(5, KV_S_STREAM_ENDED));
}

// Data, notifications, forced ends and stop meet on one receiver from different threads. The thread sanitizer
// finds the races; what is asserted is that no buffer is lost or given back twice, and no access unit
// delivered twice.
TEST_F(NetworkStreamReceiverTest, DataNotificationsForcedEndsAndStopMeet) {
    const Unrecorded unrecorded;
    const TestClock clock; // stands still, far beyond the first silence
    m_sink.during("NotifyStatus", [receiver = m_receiver.get()] { receiver->releasePendingSamples(); });
    runTogether(400,
                {[&](std::uint32_t round) {
                     for (std::uint8_t piece = 0; piece < 3; ++piece) {
                         ScriptedSdk::play(*m_receiver, {{piece, static_cast<std::uint8_t>(round)}, round});
                     }
                 },
                 [&](std::uint32_t) { notify(0); },
                 [&](std::uint32_t round) {
                     notify(round % 100 == 50 ? 6 : round % 2 == 0 ? 10 : 3);
                 },
                 [&](std::uint32_t round) {
                     if (round % 100 == 0) {
                         m_receiver->forceEndOfStream();
                     }
                 },
                 [&](std::uint32_t round) {
                     if (round % 50 == 25) {
                         stop();
                         m_receiver->resetForStart();
                     }
                 }});
    m_receiver.reset();
    std::set<std::pair<std::uint64_t, std::uint8_t>> seen;
    for (const DeliveredUnit& unit : m_sink.takeDelivered()) {
        EXPECT_EQ(unit.bytes.size() % 2, 0U);
        for (std::size_t piece = 0; piece + 1 < unit.bytes.size(); piece += 2) {
            EXPECT_EQ(unit.bytes[piece + 1], static_cast<std::uint8_t>(unit.timeStamp)) << "of another unit";
            EXPECT_TRUE(seen.insert({unit.timeStamp, unit.bytes[piece]}).second) << "delivered twice";
        }
    }
}

} // namespace
