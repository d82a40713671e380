#include <functional>

#include "AllocationCounter.h"
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
    void (*provoke)(IMediaConsumer&);
    std::vector<DeliveredUnit> delivered; // although the host stops inside

    friend std::ostream& operator<<(std::ostream& stream, const CallbackCase& row) {
        return stream << row.name;
    }
};

void deliver(IMediaConsumer& consumer) {
    ScriptedSdk::play(consumer, {{1, 2, 3}, 40});
    ScriptedSdk::play(consumer, {{4, 5, 6}, 80}); // pending while the first is delivered
}

const std::vector<CallbackCase> kCallbacks{
    {"Data", "DeliverVideoSurface", deliver, {{{1, 2, 3}, 40}}},
    {"Notification", "NotifyStatus", [](IMediaConsumer& consumer) { ScriptedSdk::notify(consumer, 3); }, {}},
    {"EndOfStream", "NotifyStatus", [](IMediaConsumer& consumer) { ScriptedSdk::notify(consumer, 6); }, {}},
};

class ReceiverCallback : public ReceiverFixture,
                         public testing::WithParamInterface<std::tuple<ReceiverKind, CallbackCase>> {
protected:
    const ReceiverKind& kind() { return std::get<0>(GetParam()); }
    const CallbackCase& callback() { return std::get<1>(GetParam()); }

    // Starts a receiver and lets its client call the sink, and `action` run inside that call, once.
    void runInsideCallback(const std::function<void()>& action) {
        createAndStart(kind());
        videoSink.during(callback().sinkCall, [this, &action] {
            if (!m_acted.exchange(true)) {
                action();
                m_done.Set();
            }
        });
        ScriptedSdk::runOnClientThread([this, &consumer = consumer()] { callback().provoke(consumer); });
        ASSERT_TRUE(m_done.Wait(30'000));
    }
    void stopAndRelease() {
        EXPECT_EQ(receiver->Stop(), S_OK);
        EXPECT_EQ(ScriptedSdk::remains().clients, 0) << "no source may call a sink any more";
        release();
    }

private:
    std::atomic<bool> m_acted{false};
    CKvEvent m_done{true};
};

TEST_P(ReceiverCallback, LastReleaseReturnsAtOnceAndTheReceiverEndsLater) {
    runInsideCallback([this] { EXPECT_EQ(release(), 0U); });
}

TEST_P(ReceiverCallback, StopReturnsAtOnceAndTheNextStopWaits) {
    runInsideCallback([this] {
        EXPECT_EQ(receiver->Stop(), S_OK);
        EXPECT_EQ(receiver->Start(), KV_E_DISCONNECTED);
        EXPECT_EQ(receiver->Stop(), S_OK);
    });
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(ScriptedSdk::remains().clients, 0);
    EXPECT_EQ(videoSink.takeDelivered(), callback().delivered) << "what was pending at the stop is dropped";
    EXPECT_EQ(receiver->Redirect(kind().otherUrl), S_OK);
    EXPECT_EQ(ScriptedSdk::remains().clients, 1);
    release();
}

TEST_P(ReceiverCallback, RedirectOpensTheNewSourceAndClosesTheOldOneLater) {
    runInsideCallback([this] {
        EXPECT_EQ(receiver->Redirect(kind().otherUrl), S_OK);
        EXPECT_EQ(redirect("nothing"), KV_E_INVALID_PARAMETER);
        EXPECT_EQ(receiver->Redirect(kind().url), S_OK);
        EXPECT_EQ(ScriptedSdk::consumers().size(), 1U);
    });
    stopAndRelease();
}

TEST_P(ReceiverCallback, ARedirectWithoutMemoryLeavesTheSourcePlaying) {
    runInsideCallback([this] {
        const AllocationFault noMemory(0, AllocationFault::kNever);
        EXPECT_EQ(redirect(kind().otherUrl), KV_E_OUT_OF_MEMORY);
    });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    for (const std::string& call : takeCalls()) {
        EXPECT_EQ(call.rfind("client", 0), std::string::npos) << call;
    }
    ScriptedSdk::play(consumer(), {{7}, 120});
    ScriptedSdk::play(consumer(), {{8}, 160});
    EXPECT_EQ(videoSink.takeDelivered().back(), (DeliveredUnit{{7}, 120}));
    stopAndRelease();
}

TEST_P(ReceiverCallback, WithoutAThreadTheEndComesWhenTheModuleIsAsked) {
    runInsideCallback([this] {
        const PlatformFault noThread(PlatformCall::beginthreadex, {});
        EXPECT_EQ(release(), 0U);
        KorvelVideo::Network::DeferredWork::sweep(); // inside the callback nothing can be done yet
    });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    EXPECT_TRUE(waitForNoObjects());
    EXPECT_EQ(RecordingLogger::takeLines().back(),
              (LogLine{0, 4, "No thread for deferred work; it is done later."}));
}

TEST_P(ReceiverCallback, WithoutAThreadTheNextStopClosesTheClient) {
    runInsideCallback([this] {
        const PlatformFault noThread(PlatformCall::beginthreadex, {});
        EXPECT_EQ(receiver->Stop(), S_OK);
    });
    stopAndRelease();
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReceiverCallback,
                         testing::Combine(testing::Values(kRtsp, kRtmp), testing::ValuesIn(kCallbacks)),
                         [](const auto& test) {
                             return std::get<0>(test.param).name + std::string("On") +
                                    std::get<1>(test.param).name;
                         });

class ReceiverCallbackOrder : public ReceiverFixture {
protected:
    static void notifyOnClientThread(const std::vector<int>& types) {
        ScriptedSdk::runOnClientThread([types, &consumer = consumer()] {
            for (const int type : types) {
                ScriptedSdk::notify(consumer, type);
            }
        });
    }
};

// A stream that is announced late, while the source plays.
TEST_F(ReceiverCallbackOrder, ReleaseWhileAStreamIsAnnounced) {
    createAndStart(kRtsp);
    detector.onInformation = [this](IKvNetworkReceiverStreamInformation*) { EXPECT_EQ(release(), 0U); };
    ScriptedSdk::runOnClientThread([] { ScriptedSdk::announce(ScriptedSdk::lastCreator(), {}); });
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
}

// The host's own thread stops while a callback stops too: one of them does it, both return.
TEST_F(ReceiverCallbackOrder, StopInsideACallbackDuringAStop) {
    createAndStart(kRtsp);
    CKvEvent entered(true);
    videoSink.during("NotifyStatus", [&] {
        entered.Set();
        for (int waited = 0; CallLog::instance().last() != "client1.Stop()" && waited < 30'000; ++waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(receiver->Stop(), S_OK);
    });
    notifyOnClientThread({3});
    ASSERT_TRUE(entered.Wait(30'000));
    EXPECT_EQ(receiver->Stop(), S_OK);
    release();
}

// The silence notification waits for the worker on the client's thread, while the worker's callback stops.
TEST_F(ReceiverCallbackOrder, StopOnTheWorkerWhileTheClientsThreadWaitsForTheWorker) {
    createAndStart(kRtsp);
    videoSink.during("NotifyStatus", [this] {
        if (CallLog::instance().last() == "NotifyStatus(0x0999202F)") {
            EXPECT_EQ(receiver->Stop(), S_OK);
        }
    });
    notifyOnClientThread({6, 0});
    EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
    EXPECT_EQ(receiver->Stop(), S_OK);
    EXPECT_EQ(ScriptedSdk::remains().clients, 0);
    release();
}

// A wait for a worker that fails is logged; the stop goes on, with the other streams as well.
TEST_F(ReceiverCallbackOrder, AFailedWaitDoesNotKeepTheStopFromEnding) {
    ScriptedSdk::reset({{}, {}});
    createAndStart(kRtsp);
    for (IMediaConsumer* const stream : ScriptedSdk::consumers()) {
        ScriptedSdk::notify(*stream, 6);
        ASSERT_TRUE(videoSink.waitForStatus(KV_S_STREAM_ENDED));
        videoSink.takeStatuses();
        ScriptedSdk::play(*stream, {{1}, 0});
    }
    RecordingLogger::clear();
    CallLog::instance().clear();
    {
        const PlatformFault noWait(PlatformCall::WaitForSingleObject, {.result = WAIT_FAILED});
        EXPECT_EQ(receiver->Stop(), S_OK);
    }
    EXPECT_EQ(takeCalls(),
              (Calls{"client1.Stop()", "ReleaseBuffer(buffer2)", "client1.Shutdown()", "client1.Release()"}));
    EXPECT_EQ(RecordingLogger::takeLines(),
              (Lines{{0, 4, "CKvHandleSyncObject::Wait -> error occurred in WaitForSingleObject"}}));
    release();
}

} // namespace
