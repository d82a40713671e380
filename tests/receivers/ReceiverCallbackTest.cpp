#include <functional>

#include "CallbackScope.h"
#include "DeferredWork.h"
#include "KvVaneException.h"
#include "PlatformFaults.h"
#include "ReceiverFixture.h"

// A host that stops, redirects or releases a receiver from inside one of its callbacks. Nothing may wait for
// the callback that it is inside of, and nothing may be destroyed under it: the scripted client counts a call
// on its own thread as misuse, and waits for its callbacks as a real client does.

namespace {

// Where the host is called: on the client's thread with data or a notification, or on the worker that ends
// the stream.
struct CallbackCase {
    const char* name;
    const char* sinkCall;
    std::function<void(MainConcept::NetworkStreaming::IMediaConsumer&)> provoke;

    friend std::ostream& operator<<(std::ostream& stream, const CallbackCase& row) {
        return stream << row.name;
    }
};

const std::vector<CallbackCase> kCallbacks{
    {"Data", "DeliverVideoSurface",
     [](auto& consumer) {
         ScriptedSdk::play(consumer, {{1, 2, 3}, 40});
         ScriptedSdk::play(consumer, {{4, 5, 6}, 80});
     }},
    {"Notification", "NotifyStatus", [](auto& consumer) { ScriptedSdk::notify(consumer, 3); }},
    {"EndOfStream", "NotifyStatus", [](auto& consumer) { ScriptedSdk::notify(consumer, 6); }},
};

class ReceiverCallback : public ReceiverFixture,
                         public testing::WithParamInterface<std::tuple<ReceiverKind, CallbackCase>> {
protected:
    const ReceiverKind& kind() { return std::get<0>(GetParam()); }

    void start() {
        createAndForget(kind());
        ASSERT_EQ(receiver->Start(), S_OK);
    }
    // Lets the client call the sink, and `action` run inside that call, once.
    void runInsideCallback(std::function<void()> action) {
        m_action = std::move(action);
        videoSink.onCall = [this](const std::string& call) {
            if (call == std::get<1>(GetParam()).sinkCall && !m_acted.exchange(true)) {
                m_action();
                m_done.Set();
            }
        };
        auto* const consumer = ScriptedSdk::consumers().at(0);
        ScriptedSdk::runOnClientThread([consumer] { std::get<1>(GetParam()).provoke(*consumer); });
        ASSERT_TRUE(m_done.Wait(20'000));
    }

private:
    std::function<void()> m_action;
    std::atomic<bool> m_acted{false};
    CKvEvent m_done{true};
};

TEST_P(ReceiverCallback, LastReleaseReturnsAtOnceAndTheReceiverEndsLater) {
    start();
    runInsideCallback([this] { EXPECT_EQ(release(), 0U); });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    EXPECT_TRUE(waitForObjects(0));
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
    EXPECT_EQ(ScriptedSdk::runningServices(), 0);
}

TEST_P(ReceiverCallback, StopReturnsAtOnceAndTheNextStopWaits) {
    start();
    runInsideCallback([this] {
        EXPECT_EQ(receiver->Stop(), S_OK);
        EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
        EXPECT_EQ(receiver->Stop(), S_OK);
    });
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
    EXPECT_EQ(receiver->Redirect(kind().otherUrl), S_OK);
    EXPECT_EQ(ScriptedSdk::liveClients(), 1);
    release();
}

TEST_P(ReceiverCallback, StopAndReleaseInsideOneCallback) {
    start();
    runInsideCallback([this] {
        EXPECT_EQ(receiver->Stop(), S_OK);
        EXPECT_EQ(release(), 0U);
    });
    EXPECT_TRUE(waitForObjects(0));
}

TEST_P(ReceiverCallback, RedirectOpensTheNewSourceAndClosesTheOldOneLater) {
    start();
    runInsideCallback([this] {
        EXPECT_EQ(receiver->Redirect(kind().otherUrl), S_OK);
        EXPECT_EQ(ScriptedSdk::consumers().size(), 1U);
    });
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(ScriptedSdk::liveClients(), 0) << "no source may call a sink any more, the old one included";
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    release();
}

TEST_P(ReceiverCallback, RedirectTwiceAndReleaseInsideOneCallback) {
    start();
    runInsideCallback([this] {
        EXPECT_EQ(receiver->Redirect(kind().otherUrl), S_OK);
        EXPECT_THROW(receiver->Redirect("nothing"), CKvVaneException);
        EXPECT_EQ(receiver->Redirect(kind().url), S_OK);
        EXPECT_EQ(release(), 0U);
    });
    EXPECT_TRUE(waitForObjects(0));
}

TEST_P(ReceiverCallback, WithoutAThreadTheEndComesWhenTheModuleIsAsked) {
    start();
    std::unique_ptr<KvTest::PlatformFault> noThread;
    runInsideCallback([this, &noThread] {
        noThread = std::make_unique<KvTest::PlatformFault>(KvTest::PlatformCall::beginthreadex,
                                                           KvTest::Fault{0, 0, 1, 0});
        EXPECT_EQ(release(), 0U);
        KorvelVideo::Network::DeferredWork::sweep(); // inside the callback nothing can be done yet
        noThread.reset();
    });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    EXPECT_TRUE(waitForObjects(0));
    EXPECT_EQ(RecordingLogger::takeLines().back(),
              (LogLine{0, 4, "No thread for deferred work; it is done later."}));
}

TEST_P(ReceiverCallback, WithoutAThreadTheNextStopClosesTheClient) {
    start();
    runInsideCallback([this] {
        const KvTest::PlatformFault noThread(KvTest::PlatformCall::beginthreadex, KvTest::Fault{0, 0, 1, 0});
        EXPECT_EQ(receiver->Stop(), S_OK);
    });
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
    release();
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReceiverCallback,
                         testing::Combine(testing::Values(kRtsp, kRtmp), testing::ValuesIn(kCallbacks)),
                         [](const auto& instance) {
                             return std::get<0>(instance.param).name + std::string("On") +
                                    std::get<1>(instance.param).name;
                         });

class ReceiverCallbackOrder : public ReceiverFixture {};

// A stream that is announced late, while the source plays.
TEST_F(ReceiverCallbackOrder, ReleaseWhileAStreamIsAnnounced) {
    createAndForget(kRtsp);
    ASSERT_EQ(receiver->Start(), S_OK);
    detector.onInformation = [this](IKvNetworkReceiverStreamInformation*) { EXPECT_EQ(release(), 0U); };
    ScriptedSdk::announceOnClientThread({});
    EXPECT_TRUE(waitForObjects(0));
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
}

// The host's own thread stops while a callback stops too: one of them does it, both return.
TEST_F(ReceiverCallbackOrder, StopInsideACallbackDuringAStop) {
    createAndForget(kRtsp);
    ASSERT_EQ(receiver->Start(), S_OK);
    CKvEvent entered(true);
    videoSink.onCall = [&](const std::string& call) {
        if (call == "NotifyStatus") {
            entered.Set();
            while (CallLog::instance().peek().back() != "client1.Stop()") {
                std::this_thread::yield();
            }
            EXPECT_EQ(receiver->Stop(), S_OK);
        }
    };
    auto* const consumer = ScriptedSdk::consumers().at(0);
    ScriptedSdk::runOnClientThread([consumer] { ScriptedSdk::notify(*consumer, 3); });
    ASSERT_TRUE(entered.Wait(10'000));
    EXPECT_EQ(receiver->Stop(), S_OK);
    release();
}

// The silence notification waits for the worker on the client's thread, while the worker's callback stops.
TEST_F(ReceiverCallbackOrder, StopOnTheWorkerWhileTheClientsThreadWaitsForTheWorker) {
    createAndForget(kRtsp);
    ASSERT_EQ(receiver->Start(), S_OK);
    videoSink.onCall = [&](const std::string& call) {
        if (call == "NotifyStatus" && CallLog::instance().peek().back() == "NotifyStatus(0x0999202F)") {
            EXPECT_EQ(receiver->Stop(), S_OK);
        }
    };
    auto* const consumer = ScriptedSdk::consumers().at(0);
    ScriptedSdk::runOnClientThread([consumer] {
        ScriptedSdk::notify(*consumer, 6);
        ScriptedSdk::notify(*consumer, 0);
    });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
    release();
}

// A receiver whose callback releases another one: the other ends as well.
TEST_F(ReceiverCallbackOrder, ReleaseOfAnotherReceiver) {
    createAndForget(kRtsp);
    IKvNetworkReceiverController* const other = std::exchange(receiver, nullptr);
    createAndForget(kRtmp);
    ASSERT_EQ(receiver->Start(), S_OK);
    videoSink.onCall = [&](const std::string& call) {
        if (call == "NotifyStatus") {
            EXPECT_EQ(other->Release(), 0U);
        }
    };
    auto* const consumer = ScriptedSdk::consumers().at(0);
    ScriptedSdk::runOnClientThread([consumer] { ScriptedSdk::notify(*consumer, 10); });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    release();
    EXPECT_TRUE(waitForObjects(0));
}

// A wait for a worker that fails is logged; the stop goes on and raises nothing.
TEST_F(ReceiverCallbackOrder, AFailedWaitDoesNotKeepTheStopFromEnding) {
    createAndForget(kRtsp);
    ASSERT_EQ(receiver->Start(), S_OK);
    ScriptedSdk::notify(*ScriptedSdk::consumers().at(0), 6);
    ASSERT_TRUE(videoSink.waitForStatus(KV_S_STREAM_ENDED, 10'000));
    RecordingLogger::clear();
    {
        const KvTest::PlatformFault noWait(KvTest::PlatformCall::WaitForSingleObject,
                                           KvTest::Fault{WAIT_FAILED, 0, 1, 0});
        EXPECT_EQ(receiver->Stop(), S_OK);
        EXPECT_EQ(noWait.failed(), 1U);
    }
    EXPECT_EQ(
        RecordingLogger::takeLines(),
        (std::vector<LogLine>{{0, 4, "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject"}}));
    EXPECT_EQ(ScriptedSdk::liveClients(), 0);
    release();
}

// The worker of a stream that an RTMP stop finishes cannot be started: logged, and the stop returns.
TEST_F(ReceiverCallbackOrder, AWorkerThatCannotBeStartedDoesNotFailTheStop) {
    createAndForget(kRtmp);
    ASSERT_EQ(receiver->Start(), S_OK);
    RecordingLogger::clear();
    {
        const KvTest::PlatformFault noThread(KvTest::PlatformCall::beginthreadex, KvTest::Fault{0, 0, 1, 0});
        EXPECT_EQ(receiver->Stop(), S_OK);
    }
    EXPECT_EQ(RecordingLogger::takeLines().back(),
              (LogLine{0, 4, "CKvThread::Create -> could not create a thread"}));
    release();
}

} // namespace
