#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CKvUnknown.h"
#include "CallLog.h"
#include "DeferredWork.h"
#include "KvVaneException.h"
#include "PlatformFaults.h"
#include "ReceiverKinds.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"
#include "TestData.h"

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Statuses = std::vector<HRESULT>;
using KvTest::PlatformCall;
using KvTest::PlatformFault;
using ScriptedSdk::IMediaConsumer;

// A host with a video and an audio sink, and the scripted SDK in which every client announces one H.264
// stream. After each test nothing may be left: no client, allocator, lent buffer, service, object or
// reference.
class ReceiverFixture : public testing::Test {
protected:
    ReceiverFixture() { restart(); }
    ~ReceiverFixture() override {
        expectNothingLeft();
        EXPECT_EQ(videoSink.references() + audioSink.references() + detector.references(), 0U);
    }

    static void restart() {
        ScriptedSdk::reset({ScriptedSdk::Announcement{}});
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    void expectNothingLeft() {
        EXPECT_TRUE(ScriptedSdk::waitForClientThreads());
        EXPECT_TRUE(waitForNoObjects());
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
        EXPECT_EQ(videoSink.liveBuffers() + audioSink.liveBuffers(), 0);
    }
    // What DllCanUnloadNow does, until it would say yes; false after 30 s.
    static bool waitForNoObjects() {
        for (int waited = 0; waited < 30'000; ++waited) {
            KorvelVideo::Network::DeferredWork::sweep();
            if (getLiveObjectCount() == 0) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    HRESULT create(const ReceiverKind& kind, const SettingsValues& values) {
        return kind.create(&values, &detector, &receiver);
    }
    void createAndForget(const ReceiverKind& kind) {
        ASSERT_EQ(create(kind, {kind.url}), S_OK);
        CallLog::instance().clear();
    }
    void createAndStart(const ReceiverKind& kind) {
        createAndForget(kind);
        ASSERT_EQ(receiver->Start(), S_OK);
        CallLog::instance().clear();
    }
    ULONG release() { return std::exchange(receiver, nullptr)->Release(); }
    // The result of a redirect, which a failure before the start raises.
    HRESULT redirect(const char* url) {
        try {
            return receiver->Redirect(url);
        } catch (const CKvVaneException& exception) {
            return exception.m_result;
        }
    }
    static Calls takeCalls() { return CallLog::instance().take(); }
    // The same as text, with the exceptions that were logged.
    static std::string takeText() {
        return CallLog::instance().takeText() + RecordingLogger::takeExceptionText();
    }
    // The consumer of the newest client's first stream.
    static IMediaConsumer& consumer() { return *ScriptedSdk::consumers().at(0); }

    RecordingSink videoSink;
    RecordingSink audioSink;
    RecordingDetector detector{&videoSink, &audioSink};
    IKvNetworkReceiverController* receiver = nullptr;
};
