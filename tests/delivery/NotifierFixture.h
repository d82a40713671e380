#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AccessUnit.h"
#include "CallLog.h"
#include "KvResultCodes.h"
#include "KvVaneException.h"
#include "RecordingCodecConfiguration.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "TestData.h"

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Units = std::vector<DeliveredUnit>;

// The pieces as an access unit. Each lies in an allocation of its own size, so that no read beyond one goes
// unseen.
inline KorvelVideo::Network::AccessUnit unitOver(std::vector<Bytes>& pieces) {
    KorvelVideo::Network::AccessUnit unit;
    for (Bytes& piece : pieces) {
        unit.emplace_back(piece.data(), static_cast<std::uint32_t>(piece.size()));
    }
    return unit;
}

// Sinks and the host's codec configuration class, all recording; whatever a test did, every buffer, reference
// and configuration object is given back.
class NotifierFixture : public testing::Test {
protected:
    NotifierFixture() { forget(); }
    ~NotifierFixture() override {
        EXPECT_EQ(m_sink.liveBuffers() + m_audio.liveBuffers(), 0);
        EXPECT_EQ(m_sink.references() + m_audio.references(), 0U) << "no reference is kept on a sink";
        EXPECT_EQ(RecordingCodecConfiguration::alive, 0);
    }

    static Calls takeCalls() { return CallLog::instance().take(); }
    static void forget() {
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    // The one exception logged since the last time.
    static void expectLogged(HRESULT result, const std::string& expression, const std::string& sourceFile) {
        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), 1U);
        EXPECT_EQ(exceptions[0].m_result, result);
        EXPECT_EQ(exceptions[0].m_expression, expression);
        EXPECT_EQ(exceptions[0].m_sourceFile, sourceFile);
    }

    RecordingCodecConfiguration m_configurationClass;
    RecordingSink m_sink;
    RecordingSink m_audio; // where audio and video are told apart
};
