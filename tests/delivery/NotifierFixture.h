#pragma once

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AccessUnit.h"
#include "CallLog.h"
#include "KvResultCodes.h"
#include "RecordingCodecConfiguration.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "ScriptedSdk.h"
#include "TestData.h"

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;
using Units = std::vector<DeliveredUnit>;
using Statuses = std::vector<HRESULT>;

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
    NotifierFixture() {
        ScriptedSdk::reset();
        forget();
    }
    ~NotifierFixture() override {
        EXPECT_EQ(m_sink.liveBuffers() + m_audio.liveBuffers(), 0);
        EXPECT_EQ(m_sink.references() + m_audio.references(), 0U) << "no reference is kept on a sink";
        EXPECT_EQ(RecordingCodecConfiguration::alive, 0);
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
    }

    static Calls takeCalls() { return CallLog::instance().take(); }
    static void forget() {
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    // A line for each call up to now, then for each log line as "3 0 src/File: text", without the address in
    // it, and for each exception.
    static std::string takeText() {
        std::string text = CallLog::instance().takeText();
        const auto sites = RecordingLogger::takeSites();
        std::size_t number = 0;
        for (const LogLine& line : RecordingLogger::takeLines(true)) {
            const std::string& site = sites.at(number++);
            text += std::to_string(line.category) + " " + std::to_string(line.level) + " " +
                    site.substr(0, site.find('|')) + ": " + line.text.substr(0, line.text.find('[')) + "\n";
        }
        return text + RecordingLogger::takeExceptionText();
    }

    RecordingCodecConfiguration m_configurationClass;
    RecordingSink m_sink;
    RecordingSink m_audio; // where audio and video are told apart
};
