#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "DeferredWork.h"
#include "ReceiverKinds.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedClient.h"

using Calls = std::vector<std::string>;

inline Calls operator+(Calls left, const Calls& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// A host with a video and an audio sink, and the scripted SDK in which every client announces one H.264
// stream. After each test nothing may be left: no client, allocator, lent buffer, service, object or
// reference.
class ReceiverFixture : public testing::Test {
protected:
    ReceiverFixture() : m_liveBefore(getLiveObjectCount()) {
        ScriptedSdk::reset();
        ScriptedSdk::resetClients();
        ScriptedSdk::setAnnouncements({ScriptedSdk::Announcement{}});
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    ~ReceiverFixture() override {
        EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
        EXPECT_TRUE(waitForObjects(m_liveBefore));
        EXPECT_EQ(ScriptedSdk::liveClients(), 0);
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 0);
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
        EXPECT_EQ(ScriptedSdk::wrongReleases(), 0);
        EXPECT_EQ(ScriptedSdk::runningServices(), 0);
        EXPECT_EQ(ScriptedSdk::misuses(), 0);
        EXPECT_EQ(videoSink.liveBuffers(), 0);
        EXPECT_EQ(videoSink.references() + audioSink.references() + detector.references(), 0U);
        CallLog::instance().clear();
        RecordingLogger::clear();
    }

    // What DllCanUnloadNow does, until it would say yes.
    static bool waitForObjects(std::int32_t count) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (;;) {
            KorvelVideo::Network::DeferredWork::sweep();
            if (getLiveObjectCount() == count) {
                return true;
            }
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    HRESULT create(const ReceiverKind& kind, const SettingsValues& values) {
        return kind.create(&values, &detector, &receiver);
    }
    void createAndForget(const ReceiverKind& kind) {
        ASSERT_EQ(create(kind, {kind.url, nullptr, 0, 0}), S_OK);
        CallLog::instance().clear();
    }
    ULONG release() {
        IKvNetworkReceiverController* const last = receiver;
        receiver = nullptr;
        return last->Release();
    }
    static Calls takeCalls() { return CallLog::instance().take(); }

    // What happens when a client is made for `url` and finds its H.264 stream.
    static Calls opening(int number, const std::string& url, const std::string& card,
                         const Calls& optionCalls = {}) {
        const std::string client = "client" + std::to_string(number);
        Calls calls{"CreateNetworkClient(creator, receiver)"};
        for (const std::string& call : optionCalls) {
            calls.push_back(client + "." + call);
        }
        return calls + Calls{client + ".Init(\"" + url + "\", " + card + ")",
                             "OnVideoStreamDetected(H.264 28 0 0 0 0 0 0 0 0 0)",
                             "CreateBufferAllocator(2, 8, 1048576, 65536, 1, null)"};
    }
    static Calls starting(int number) {
        const std::string text = std::to_string(number);
        return {"client" + text + ".EnableConsumer(consumer" + text + ", 0, 1, 1)",
                "client" + text + ".Play(0, -1, 1)"};
    }
    static Calls closing(int number) {
        const std::string client = "client" + std::to_string(number);
        return {client + ".Shutdown()", client + ".Release()"};
    }
    static Calls stopping(int number) {
        return Calls{"client" + std::to_string(number) + ".Stop()"} + closing(number);
    }

    RecordingVideoSink videoSink;
    RecordingAudioSink audioSink;
    RecordingDetector detector{&videoSink, &audioSink};
    IKvNetworkReceiverController* receiver = nullptr;

private:
    std::int32_t m_liveBefore;
};
