#include "PlatformFaults.h"
#include "ReceiverFixture.h"
#include "RecordingCodecConfiguration.h"

// Every call to the host and the SDK, in order, in each life that a receiver of each kind can have.

namespace {

const Calls kEndOfReceiver{"StopSocketService()", "allocator ended"};
const Calls kForcedEnd{"NotifyStatus(0x0999202F)"}; // of an RTMP stream

struct LifeCase {
    const ReceiverKind& kind;
    SettingsValues values;
    Calls settingsBefore;      // before the client is made
    Calls optionCalls;         // at every creation of a client, before Init
    Calls atConstruction;      // after Init
    Calls atRedirect;          // after the new client's Init
    const char* card = "null"; // as given to Init at construction
    const char* cardAtRedirect = "null";

    friend std::ostream& operator<<(std::ostream& stream, const LifeCase& row) { return stream << row.kind; }
};

const Calls kSource{"GetNetworkInterfaceCard()", "GetUrl()"};
const Calls kTwoGetPorts{"GetPort()", "GetPort()"};

const std::vector<LifeCase> kLives{
    {kRtsp,
     {"rtsp://host/a", "eth0", 5000, 0},
     kSource,
     {},
     Calls{"SetParameter(33, 1, 4)"} + kTwoGetPorts + Calls{"SetParameter(9, 5000, 2)"},
     {"SetParameter(33, 1, 4)", "SetParameter(9, 5000, 2)"},
     "\"eth0\"",
     "\"eth0\""},
    {kRtsp,
     {"rtsp://host/a", nullptr, 0, 0},
     kSource,
     {},
     {"SetParameter(33, 1, 4)", "GetPort()"},
     {"SetParameter(33, 1, 4)"}},
    {kRtsp,
     {"rtsp://host/a", "", -1, 0},
     kSource,
     {},
     {"SetParameter(33, 1, 4)", "GetPort()"},
     {"SetParameter(33, 1, 4)"},
     "\"\"",
     "null"},
    // The low 16 bits are 0: set once, never again.
    {kRtsp,
     {"rtsp://host/a", nullptr, 65536, 0},
     kSource,
     {},
     Calls{"SetParameter(33, 1, 4)"} + kTwoGetPorts + Calls{"SetParameter(9, 0, 2)"},
     {"SetParameter(33, 1, 4)"}},
    {kRtmp, {"rtmp://host/a", nullptr, 0, 0}, kSource, {"SetParameter(3, 2, 4)"}, {"GetPort()"}, {}},
    {kRtmp,
     {"rtmp://host/a", nullptr, 65537, 0},
     kSource,
     {"SetParameter(3, 2, 4)"},
     kTwoGetPorts + Calls{"SetParameter(9, 1, 2)"},
     {"SetParameter(9, 1, 2)"}},
    {kRtp, {"rtp://host:5004", nullptr, 0, 0}, Calls{"GetClientOptionValue()"} + kSource, {}, {}, {}},
    {kRtp,
     {"rtp://host:5004", "eth0", 0, 0x80000001},
     Calls{"GetClientOptionValue()"} + kSource,
     {"SetParameter(3, 2147483649, 4)"},
     {},
     {},
     "\"eth0\"",
     "\"eth0\""},
    {kTsOverUdp, {"udp://host:1234", "10.0.0.1", 0, 0}, kSource, {}, {}, {}, "\"10.0.0.1\"", "\"10.0.0.1\""},
};

Calls ofClient(int number, const Calls& calls) {
    Calls named;
    for (const std::string& call : calls) {
        named.push_back(call.rfind("SetParameter", 0) == 0 ? "client" + std::to_string(number) + "." + call
                                                           : call);
    }
    return named;
}

class ReceiverLife : public ReceiverFixture, public testing::WithParamInterface<LifeCase> {
protected:
    void construct() {
        const LifeCase& life = GetParam();
        ASSERT_EQ(create(life.kind, life.values), S_OK);
        ASSERT_EQ(takeCalls(), life.settingsBefore + Calls{"StartSocketService()"} +
                                   opening(1, life.values.url, life.card, life.optionCalls) +
                                   ofClient(1, life.atConstruction));
    }
    Calls reopening(int number, const std::string& url) {
        const LifeCase& life = GetParam();
        return Calls{"allocator ended"} + opening(number, url, life.cardAtRedirect, life.optionCalls) +
               ofClient(number, life.atRedirect);
    }
    bool isRtmp() { return &GetParam().kind == &kRtmp; }
    Calls forcedEnd() { return isRtmp() ? kForcedEnd : Calls{}; }

private:
    KvTest::ShortWaits m_shortWaits;
};

TEST_P(ReceiverLife, ConstructedAndReleased) {
    construct();
    EXPECT_EQ(release(), 0U);
    EXPECT_EQ(takeCalls(), stopping(1) + kEndOfReceiver);
    EXPECT_TRUE(RecordingLogger::takeLines().empty());
}

TEST_P(ReceiverLife, StartedAndReleased) {
    construct();
    EXPECT_EQ(receiver->Start(), S_OK);
    EXPECT_EQ(takeCalls(), starting(1));
    EXPECT_EQ(release(), 0U);
    // The base's own stop: an RTMP receiver's streams are not finished.
    EXPECT_EQ(takeCalls(), stopping(1) + kEndOfReceiver);
    EXPECT_TRUE(RecordingLogger::takeLines().empty());
}

TEST_P(ReceiverLife, StartedStoppedAndReleased) {
    construct();
    EXPECT_EQ(receiver->Start(), S_OK);
    takeCalls();
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(receiver->Stop(), S_OK); // calls nothing
    EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
    EXPECT_EQ(release(), 0U);
    EXPECT_EQ(takeCalls(), stopping(1) + forcedEnd() + kEndOfReceiver);
}

TEST_P(ReceiverLife, RedirectedWhilePlayingAndReleased) {
    construct();
    EXPECT_EQ(receiver->Start(), S_OK);
    takeCalls();
    EXPECT_EQ(receiver->Redirect(GetParam().kind.otherUrl), S_OK);
    EXPECT_EQ(takeCalls(), stopping(1) + forcedEnd() + reopening(2, GetParam().kind.otherUrl) + starting(2));
    EXPECT_EQ(release(), 0U);
    EXPECT_EQ(takeCalls(), stopping(2) + kEndOfReceiver);
}

TEST_P(ReceiverLife, StoppedRedirectedAndStoppedAgain) {
    construct();
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(receiver->Redirect(GetParam().kind.otherUrl), S_OK);
    EXPECT_EQ(takeCalls(), stopping(1) + forcedEnd() + reopening(2, GetParam().kind.otherUrl) + starting(2));
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(release(), 0U);
    EXPECT_EQ(takeCalls(), stopping(2) + forcedEnd() + kEndOfReceiver);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReceiverLife, testing::ValuesIn(kLives));

class ReceiverStop : public ReceiverFixture {};

// What a stop of an RTMP receiver adds, also when it was stopped before.
TEST_F(ReceiverStop, RtmpFinishesEachStreamAtEachStop) {
    createAndForget(kRtmp);
    ASSERT_EQ(receiver->Start(), S_OK);
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_TRUE(videoSink.waitForStatus(KV_S_STREAM_ENDED, 10'000));
    EXPECT_EQ(receiver->Stop(), S_OK);
    const auto lines = RecordingLogger::takeLines();
    ASSERT_EQ(lines.size(), 2U);
    for (const LogLine& line : lines) {
        EXPECT_EQ(line.text.rfind("Forcing end of stream for ", 0), 0U) << line;
    }
    release();
    EXPECT_EQ(videoSink.takeStatuses(), std::vector<HRESULT>{KV_S_STREAM_ENDED});
}

TEST_F(ReceiverStop, DropsWhatIsPendingWithoutDeliveringIt) {
    createAndForget(kRtsp);
    ASSERT_EQ(receiver->Start(), S_OK);
    ASSERT_TRUE(ScriptedSdk::play(*ScriptedSdk::consumers().at(0), {{1, 2, 3}, 0}));
    CallLog::instance().clear();
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(takeCalls(), (Calls{"client1.Stop()", "ReleaseBuffer(buffer1)"} + closing(1)));
    release();
}

TEST_F(ReceiverStop, WaitsForTheDeliveryUnderWay) {
    createAndForget(kTsOverUdp);
    ASSERT_EQ(receiver->Start(), S_OK);
    CKvEvent entered(true);
    CKvEvent proceed(true);
    videoSink.onCall = [&](const std::string& call) {
        if (call == "NotifyStatus") {
            entered.Set();
            static_cast<void>(proceed.Wait(10'000));
            CallLog::instance().record("callback ends");
        }
    };
    auto* const consumer = ScriptedSdk::consumers().at(0);
    ScriptedSdk::runOnClientThread([consumer] { ScriptedSdk::notify(*consumer, 10); });
    ASSERT_TRUE(entered.Wait(10'000));
    CallLog::instance().clear();
    std::thread release([&] {
        while (CallLog::instance().peek().empty()) {
            std::this_thread::yield();
        }
        proceed.Set();
    });
    EXPECT_EQ(receiver->Stop(), S_OK);
    release.join();
    EXPECT_EQ(takeCalls(), (Calls{"client1.Stop()", "callback ends"} + closing(1)));
    this->release();
}

// One announcement a stream: each is enabled in order, and each is reset although another was refused.
TEST_F(ReceiverStop, StartEnablesEveryStreamAndPassesOverARefusal) {
    const RecordingCodecConfiguration codecConfiguration;
    ScriptedSdk::setAnnouncements({{}, {0, 99, {0x12, 0x10}, 44100, 2}, {}});
    createAndForget(kRtsp);
    ScriptedSdk::failCall("EnableConsumer", 1, 1);
    EXPECT_EQ(receiver->Start(), S_OK);
    EXPECT_EQ(takeCalls(), (Calls{"client1.EnableConsumer(consumer1, 0, 1, 1)",
                                  "client1.EnableConsumer(consumer2, 0, 1, 1)",
                                  "client1.EnableConsumer(consumer3, 0, 1, 1)", "client1.Play(0, -1, 1)"}));
    EXPECT_EQ(RecordingLogger::takeLines(), (std::vector<LogLine>{{0, 4, "Error enabling receiver."}}));
    for (auto* const consumer : ScriptedSdk::consumers()) {
        ScriptedSdk::notify(*consumer, 10);
    }
    EXPECT_EQ(videoSink.takeStatuses(), (std::vector<HRESULT>{KV_S_STREAM_ACTIVE, KV_S_STREAM_ACTIVE}));
    EXPECT_EQ(audioSink.takeStatuses(), std::vector<HRESULT>{KV_S_STREAM_ACTIVE});
    release();
}

} // namespace
