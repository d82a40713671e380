#include "AllocationCounter.h"
#include "ReceiverFixture.h"
#include "RecordingCodecConfiguration.h"

namespace {

struct LifeCase {
    const char* name;
    const ReceiverKind& kind;
    SettingsValues values;
};

const LifeCase kLives[] = {
    {"RTSP with a port and a card", kRtsp, {"rtsp://host/a", "eth0", 5000, 0}},
    {"RTSP with an empty card and a port below 1", kRtsp, {"rtsp://host/a", "", -1, 0}},
    {"RTSP with a port whose low 16 bits are 0", kRtsp, {"rtsp://host/a", nullptr, 65536, 0}},
    {"RTMP", kRtmp, {"rtmp://host/a", nullptr, 0, 0}},
    {"RTMP with a port", kRtmp, {"rtmp://host/a", nullptr, 65537, 0}},
    {"RTP", kRtp, {"rtp://host:5004", nullptr, 0, 0}},
    {"RTP with a client option and a card", kRtp, {"rtp://host:5004", "eth0", 0, 0x80000001}},
    {"TS over UDP with a card", kTsOverUdp, {"udp://host:1234", "10.0.0.1", 0, 0}},
};

class ReceiverLife : public ReceiverFixture {
protected:
    // What follows in the log is called inside this operation.
    static void begin(const std::string& operation) { CallLog::instance().record("-- " + operation); }

    void live(const LifeCase& life) {
        begin("CreateReceiver");
        ASSERT_EQ(create(life.kind, life.values), S_OK);
        begin("Start");
        EXPECT_EQ(receiver->Start(), S_OK);
        begin("Redirect");
        EXPECT_EQ(receiver->Redirect(life.kind.otherUrl), S_OK);
        begin("Stop");
        videoSink.takeStatuses();
        EXPECT_EQ(receiver->Stop(), S_OK);
        if (&life.kind == &kRtmp) {
            EXPECT_TRUE(videoSink.waitForStatus(KV_S_STREAM_ENDED));
        }
        begin("Stop");
        EXPECT_EQ(receiver->Stop(), S_OK);
        begin("Start");
        EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
        begin("Redirect");
        EXPECT_EQ(receiver->Redirect(life.values.url), S_OK);
        RecordingLogger::clear();
        begin("Release");
        EXPECT_EQ(release(), 0U);
        EXPECT_EQ(RecordingLogger::takeLines(), Lines{});
    }
};

// Every call to the host and the SDK, in order, in the life of a receiver of each kind.
TEST_F(ReceiverLife, MakesTheseCalls) {
    const KvTest::ShortWaits shortWaits;
    for (const LifeCase& life : kLives) {
        SCOPED_TRACE(life.name);
        restart();
        live(life);
        EXPECT_EQ(takeText(), readSections("receivers/lives.txt").at(life.name));
    }
}

// What a stop of an RTMP receiver adds, also when it was stopped before.
TEST_F(ReceiverLife, RtmpFinishesEachStreamAtEachStop) {
    createAndStart(kRtmp);
    IMediaConsumer& stream = consumer();
    EXPECT_EQ(receiver->Stop(), S_OK);
    ScriptedSdk::notify(stream, 3); // a disconnection then is no news
    EXPECT_TRUE(videoSink.waitForStatus(KV_S_STREAM_ENDED));
    EXPECT_EQ(receiver->Stop(), S_OK);
    const Lines lines = RecordingLogger::takeLines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].text, lines[2].text);
    EXPECT_EQ(lines[2].text.rfind("Forcing end of stream for ", 0), 0U);
    release();
    EXPECT_EQ(videoSink.takeStatuses(), Statuses{KV_S_STREAM_ENDED});
}

// One announcement a stream: each is enabled in order, and each is reset although another was refused.
TEST_F(ReceiverLife, StartEnablesEveryStreamAndPassesOverARefusal) {
    const RecordingCodecConfiguration codecConfiguration;
    ScriptedSdk::reset({{}, {0, 99, {0x12, 0x10}, 44100, 2}, {}});
    createAndForget(kRtsp);
    ScriptedSdk::failCall("EnableConsumer", 1, 1);
    EXPECT_EQ(receiver->Start(), S_OK);
    EXPECT_EQ(takeCalls(), (Calls{"client1.EnableConsumer(consumer1, 0, 1, 1)",
                                  "client1.EnableConsumer(consumer2, 0, 1, 1)",
                                  "client1.EnableConsumer(consumer3, 0, 1, 1)", "client1.Play(0, -1, 1)"}));
    EXPECT_EQ(RecordingLogger::takeLines(), (Lines{{0, 4, "Error enabling receiver."}}));
    for (const int started : {1, 2}) {
        for (IMediaConsumer* const stream : ScriptedSdk::consumers()) {
            ScriptedSdk::notify(*stream, 10);
        }
        EXPECT_EQ(videoSink.takeStatuses(), (Statuses{KV_S_STREAM_ACTIVE, KV_S_STREAM_ACTIVE})) << started;
        EXPECT_EQ(audioSink.takeStatuses(), Statuses{KV_S_STREAM_ACTIVE});
        EXPECT_EQ(receiver->Start(), S_OK);
    }
    release();
}

// One lost object a round would be more than the few records that libraries still let grow.
TEST_F(ReceiverLife, HundredsOfThemLeaveMemoryAsItWas) {
    const KvTest::ShortWaits shortWaits;
    const Unrecorded unrecorded;
    for (const ReceiverKind& kind : kReceiverKinds) {
        const auto liveAllocations = [] {
            EXPECT_TRUE(ScriptedSdk::waitForClientThreads() && waitForNoObjects());
            restart();
            return AllocationCounter::live();
        };
        std::int64_t before = 0;
        for (int round = 0; round < 330; ++round) {
            before = round == 30 ? liveAllocations() : before;
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
        EXPECT_LT(liveAllocations(), before + 100) << kind.name;
    }
}

} // namespace
