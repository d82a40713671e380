#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "DeferredWork.h"
#include "KvVaneException.h"
#include "ReceiverKinds.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"
#include "TestData.h"

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;

inline Calls operator+(Calls left, const Calls& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

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
    // What DllCanUnloadNow does, until it would say yes.
    static bool waitForNoObjects() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (KorvelVideo::Network::DeferredWork::sweep(); getLiveObjectCount() != 0;
             KorvelVideo::Network::DeferredWork::sweep()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    HRESULT create(const ReceiverKind& kind, const SettingsValues& values) {
        return kind.create(&values, &detector, &receiver);
    }
    void createAndForget(const ReceiverKind& kind) {
        ASSERT_EQ(create(kind, {kind.url, nullptr, 0, 0}), S_OK);
        CallLog::instance().clear();
    }
    void createAndStart(const ReceiverKind& kind) {
        createAndForget(kind);
        ASSERT_EQ(receiver->Start(), S_OK);
        CallLog::instance().clear();
    }
    ULONG release() { return std::exchange(receiver, nullptr)->Release(); }
    static Calls takeCalls() { return CallLog::instance().take(); }
    // The last call up to now, which stays in the log.
    static std::string lastCall() {
        const Calls calls = CallLog::instance().peek();
        return calls.empty() ? "" : calls.back();
    }
    // The consumer of the newest client's first stream.
    static MainConcept::NetworkStreaming::IMediaConsumer& consumer() {
        return *ScriptedSdk::consumers().at(0);
    }

    // The calls up to now, a line each.
    static std::string takeText() {
        std::string text;
        for (const std::string& call : takeCalls()) {
            text += call + "\n";
        }
        return text;
    }
    // What stands below the line "[section]" of a file of tests/data, up to the next empty line.
    static std::string readSection(const std::string& file, const std::string& section) {
        const Bytes bytes = readBytes(file);
        const std::string text = "\n" + std::string(bytes.begin(), bytes.end()) + "\n";
        const std::string title = "\n[" + section + "]\n";
        const std::size_t begin = text.find(title);
        return begin == std::string::npos ? "no section " + section
                                          : text.substr(begin + title.size(), text.find("\n\n", begin + 1) -
                                                                                  begin - title.size() + 1);
    }

    RecordingSink videoSink;
    RecordingSink audioSink;
    RecordingDetector detector{&videoSink, &audioSink};
    IKvNetworkReceiverController* receiver = nullptr;
};
