#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "GenericVideoStreamNotifier.h"
#include "KvResultCodes.h"
#include "NetworkStreamReceiver.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"

namespace KorvelVideo::Network {

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Units = std::vector<DeliveredUnit>;
using MainConcept::NetworkStreaming::_tagConsumerInfo;

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

    void play(std::vector<std::uint8_t> bytes, std::uint64_t timeStamp, std::uint32_t streamType = 96) {
        EXPECT_TRUE(ScriptedSdk::play(*m_receiver, {std::move(bytes), timeStamp, streamType}));
    }
    void notify(int type) { ScriptedSdk::notify(*m_receiver, type); }
    static Calls takeCalls() { return CallLog::instance().take(); }
    [[nodiscard]] std::string identifier() const {
        return std::to_string(reinterpret_cast<std::intptr_t>(&m_notifier));
    }

    RecordingSink m_sink;
    GenericVideoStreamNotifier m_notifier{&m_sink};
    std::unique_ptr<NetworkStreamReceiver> m_receiver;
};

} // namespace KorvelVideo::Network
