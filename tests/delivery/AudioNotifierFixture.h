#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "AccessUnit.h"
#include "CKvBaseException.h"
#include "CallLog.h"
#include "KvResultCodes.h"
#include "KvVaneException.h"
#include "RecordingCodecConfiguration.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"

namespace KvTest {

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;

// An audio sink and the host's codec configuration class, both recording; whatever a test did, every buffer,
// reference and configuration object is given back.
class AudioNotifierFixture : public testing::Test {
protected:
    AudioNotifierFixture() { forget(); }
    ~AudioNotifierFixture() override {
        EXPECT_EQ(m_sink.liveBuffers(), 0);
        EXPECT_EQ(m_sink.references(), 0U) << "no reference is kept on the sink";
        EXPECT_EQ(RecordingCodecConfiguration::alive(), 0);
        forget();
    }

    static void forget() {
        CallLog::instance().clear();
        RecordingLogger::clear();
    }

    RecordingCodecConfiguration m_configurationClass;
    RecordingAudioSink m_sink;
};

// A host that fails in one way, and what that leads to.
struct FailureRow {
    const char* name;
    std::function<void(HostScript&)> arrange;
    Calls calls;
    std::uint32_t result;   // of the exception that is logged; 0: none
    const char* expression; // of the same
};

// The ways in which a host does not lend a buffer of `size` bytes; `refused` is what it sees when it lent one
// that will not do.
inline std::vector<FailureRow> failuresToLend(const std::string& size, const Calls& refused) {
    const Calls asked{"ProvideAudioSamples(" + size + ")"};
    return {
        {"no buffer provided", [](HostScript& s) { s.fail("ProvideAudioSamples", E_FAIL); }, asked,
         0x80004005, "m_audioReceiver->ProvideAudioSamples(bufferSizeToAskFor, &audioSamples)"},
        {"success without a buffer", [](HostScript& s) { s.setLendNothing(true); }, asked, 0x89998045,
         "KV_E_INVALID_POINTER"},
        {"buffer not accessible", [](HostScript& s) { s.fail("GetBufferAndLength", E_FAIL); }, refused,
         0x80004005, "audioSamples->GetBufferAndLength(&audioSamplesBuffer, &audioSamplesBufferSize)"},
        {"one byte short", [](HostScript& s) { s.setCapacityChange(-1); }, refused, 0x89998307,
         "KV_E_BUFFER_SIZE_TOO_SMALL"},
        {"no address", [](HostScript& s) { s.setLendNoAddress(true); }, refused, 0x89998045,
         "KV_E_INVALID_POINTER"},
    };
}

// What changes nothing: the host refuses one of `calls`, or lends more than was asked for.
inline std::vector<FailureRow> failuresIgnored(const std::vector<const char*>& calls, const Calls& delivery) {
    std::vector<FailureRow> rows;
    for (const char* const call : calls) {
        rows.push_back({call, [call](HostScript& s) { s.fail(call, E_FAIL); }, delivery, 0, ""});
    }
    rows.push_back(
        {"more room than asked for", [](HostScript& s) { s.setCapacityChange(100); }, delivery, 0, ""});
    return rows;
}

// Delivers `unit` once against each row, and once more when the host has recovered.
template <class Notifier>
void expectFailuresToLoseOneAccessUnit(const std::vector<FailureRow>& rows,
                                       const KorvelVideo::Network::AccessUnit& unit, const char* sourceFile) {
    for (const FailureRow& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingCodecConfiguration::restartNames();
        RecordingAudioSink sink;
        Notifier notifier(&sink, nullptr, 0);
        CallLog::instance().clear();
        RecordingLogger::clear();
        row.arrange(sink.script);
        notifier.notifyReception(unit, 9);
        EXPECT_EQ(CallLog::instance().take(), row.calls);
        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), row.result == 0 ? 0U : 1U);
        if (row.result != 0) {
            EXPECT_EQ(static_cast<std::uint32_t>(exceptions[0].m_result), row.result);
            EXPECT_STREQ(exceptions[0].m_expression, row.expression);
            EXPECT_STREQ(exceptions[0].m_sourceFile, sourceFile);
            EXPECT_TRUE(sink.takeDelivered().empty());
        }
        sink.script.setLendNothing(false);
        sink.script.setLendNoAddress(false);
        sink.script.setCapacityChange(0);
        sink.takeDelivered();
        notifier.notifyReception(unit, 10);
        EXPECT_EQ(sink.takeDelivered().size(), 1U) << "the next access unit is delivered";
        EXPECT_EQ(sink.liveBuffers(), 0);
    }
}

// What both audio notifiers do at construction and destruction; `name` is the class's.
template <class Notifier>
void expectConstructionAndDestruction(RecordingAudioSink& sink, const std::string& name) {
    {
        std::vector<std::uint8_t> config{0x11, 0x90};
        const Notifier notifier(&sink, config.data(), 2);
        EXPECT_EQ(CallLog::instance().take(),
                  (Calls{"CreateInstance(config1)", "config1.SetCodecConfigData(16, 2, 11 90)"}));
        EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, name + " constructor."}}));
        EXPECT_EQ(RecordingCodecConfiguration::references(), 1);
    }
    EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, name + " destructor."}}));
    EXPECT_EQ(CallLog::instance().take(), Calls{"config1 ended"});
    const auto sites = RecordingLogger::takeSites();
    ASSERT_EQ(sites.size(), 2U);
    EXPECT_EQ(sites[0].rfind("src/" + name + "|", 0), 0U) << sites[0];
    EXPECT_EQ(sites[1].rfind("src/" + name + "|", 0), 0U) << sites[1];

    // No configuration is one of 0 bytes; what the object makes of it is its own affair.
    RecordingCodecConfiguration::setDataResult(E_FAIL);
    { const Notifier notifier(&sink, nullptr, 0); }
    EXPECT_EQ(CallLog::instance().take(),
              (Calls{"CreateInstance(config2)", "config2.SetCodecConfigData(16, 0, null)", "config2 ended"}));
    RecordingLogger::clear();

    try {
        const Notifier notifier(nullptr, nullptr, 0);
        FAIL() << "constructed without a sink";
    } catch (const CKvVaneException& exception) {
        EXPECT_EQ(exception.m_result, KV_E_INVALID_POINTER);
        EXPECT_STREQ(exception.m_expression, "KV_E_INVALID_POINTER");
        EXPECT_EQ(exception.m_sourceFile, "src/" + name);
    }
    EXPECT_EQ(CallLog::instance().take(), Calls{}) << "the sink is looked at first";

    RecordingCodecConfiguration::setCreationResult(E_OUTOFMEMORY);
    try {
        const Notifier notifier(&sink, nullptr, 0);
        FAIL() << "constructed without a configuration object";
    } catch (const CKvSmartPointerException& exception) {
        EXPECT_STREQ(exception.getMessage(), "TKvSmartPtr::operator-> -> Internal pointer is NULL!");
    }
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty());
}

} // namespace KvTest
