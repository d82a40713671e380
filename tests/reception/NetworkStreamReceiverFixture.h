#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "GenericVideoStreamNotifier.h"
#include "NetworkStreamReceiver.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"

namespace KorvelVideo::Network {

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Units = std::vector<DeliveredUnit>;

constexpr std::uint32_t kBound = 20'000; // milliseconds after which a wait has failed

// A receiver between the scripted SDK and a recording host. Whatever a test does, every buffer goes back
// once.
class NetworkStreamReceiverTest : public testing::Test {
protected:
    NetworkStreamReceiverTest() {
        ScriptedSdk::reset();
        ScriptedSdk::setRecording(false);
        m_receiver = std::make_unique<NetworkStreamReceiver>(&m_notifier);
        ScriptedSdk::setRecording(true);
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    ~NetworkStreamReceiverTest() override {
        m_receiver.reset();
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0) << "every buffer is given back";
        EXPECT_EQ(ScriptedSdk::wrongReleases(), 0) << "and once";
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 0);
        EXPECT_EQ(m_sink.liveBuffers(), 0);
    }

    void play(std::vector<std::uint8_t> bytes, std::uint64_t timeStamp, std::uint32_t streamType = 96) {
        EXPECT_TRUE(ScriptedSdk::play(*m_receiver, {std::move(bytes), timeStamp, streamType}));
    }
    void notify(int type) { ScriptedSdk::notify(*m_receiver, type); }
    [[nodiscard]] std::string identifier() const {
        return std::to_string(reinterpret_cast<std::intptr_t>(&m_notifier));
    }

    RecordingVideoSink m_sink;
    GenericVideoStreamNotifier m_notifier{&m_sink};
    std::unique_ptr<NetworkStreamReceiver> m_receiver;
};

} // namespace KorvelVideo::Network
