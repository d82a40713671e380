#include "GenericVideoStreamNotifier.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CallLog.h"
#include "KvResultCodes.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"

using namespace KorvelVideo::Network;

namespace {

using Calls = std::vector<std::string>;

class GenericVideoStreamNotifierTest : public testing::Test {
protected:
    void SetUp() override {
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    void TearDown() override {
        EXPECT_EQ(m_sink.liveBuffers(), 0);
        EXPECT_EQ(m_sink.references(), 0U) << "no reference is kept on the sink";
    }

    std::uint8_t m_bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const AccessUnit m_unit{{m_bytes, 3}, {m_bytes + 3, 0}, {m_bytes + 3, 5}};
    RecordingVideoSink m_sink;
    GenericVideoStreamNotifier m_notifier{&m_sink};
};

const Calls kDelivery{"ProvideVideoSurface(8)",
                      "surface1.Lock(0, 1)",
                      "surface1.SetTimeStampInfo(1099511627776)",
                      "surface1.SignalWriteCompletion()",
                      "DeliverVideoSurface(surface1)",
                      "surface1 ended"};

TEST_F(GenericVideoStreamNotifierTest, DeliversPiecesInOrderWithTheTimeStamp) {
    m_notifier.notifyReception(m_unit, 1ULL << 40);
    EXPECT_EQ(CallLog::instance().take(), kDelivery);
    EXPECT_EQ(m_sink.takeDelivered(), (std::vector<DeliveredUnit>{{{1, 2, 3, 4, 5, 6, 7, 8}, 1ULL << 40}}));
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty());
}

TEST_F(GenericVideoStreamNotifierTest, LeavesRoomBeyondTheAccessUnitAlone) {
    m_sink.script.setCapacityChange(100);
    m_notifier.notifyReception(m_unit, 1ULL << 40);
    EXPECT_EQ(CallLog::instance().take(), kDelivery);
}

TEST_F(GenericVideoStreamNotifierTest, AnEmptyAccessUnitMakesNoCall) {
    m_notifier.notifyReception({}, 1);
    m_notifier.notifyReception({{m_bytes, 0}, {nullptr, 0}}, 1);
    EXPECT_EQ(CallLog::instance().take(), Calls{});
    EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
}

TEST_F(GenericVideoStreamNotifierTest, EachFailureLosesOnlyItsOwnAccessUnit) {
    struct Row {
        const char* name;
        std::function<void(HostScript&)> arrange;
        Calls calls;
        std::uint32_t result; // 0: nothing is raised
        const char* expression;
    };
    const Row rows[] = {
        {"no surface provided",
         [](HostScript& s) { s.fail("ProvideVideoSurface", kvResult(0x80004005)); },
         {"ProvideVideoSurface(8)"},
         0x80004005,
         "m_videoReceiver->ProvideVideoSurface(bufferSizeToAskFor, &incomingSurface)"},
        {"success without a surface",
         [](HostScript& s) { s.setLendNothing(true); },
         {"ProvideVideoSurface(8)"},
         0x89998045,
         "KV_E_INVALID_POINTER"},
        {"lock refused",
         [](HostScript& s) { s.fail("Lock", kvResult(0x80070005)); },
         {"ProvideVideoSurface(8)", "surface1.Lock(0, 1)", "surface1 ended"},
         0x80070005,
         "incomingSurface->Lock(0, keKvFaceTypeFront, &lockedSurfaceDescription)"},
        {"one byte short",
         [](HostScript& s) { s.setCapacityChange(-1); },
         {"ProvideVideoSurface(8)", "surface1.Lock(0, 1)", "surface1 ended"},
         0x89998307,
         "KV_E_BUFFER_SIZE_TOO_SMALL"},
        {"no address",
         [](HostScript& s) { s.setLendNoAddress(true); },
         {"ProvideVideoSurface(8)", "surface1.Lock(0, 1)", "surface1 ended"},
         0x89998045,
         "KV_E_INVALID_POINTER"},
        {"time stamp refused", [](HostScript& s) { s.fail("SetTimeStampInfo", E_FAIL); }, kDelivery, 0, ""},
        {"completion refused", [](HostScript& s) { s.fail("SignalWriteCompletion", E_FAIL); }, kDelivery, 0,
         ""},
        {"delivery refused", [](HostScript& s) { s.fail("DeliverVideoSurface", E_FAIL); }, kDelivery, 0, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingVideoSink sink;
        GenericVideoStreamNotifier notifier(&sink);
        row.arrange(sink.script);
        notifier.notifyReception(m_unit, 1ULL << 40);
        EXPECT_EQ(CallLog::instance().take(), row.calls);
        EXPECT_EQ(sink.liveBuffers(), 0);

        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), row.result == 0 ? 0U : 1U);
        if (row.result != 0) {
            EXPECT_EQ(static_cast<std::uint32_t>(exceptions[0].m_result), row.result);
            EXPECT_STREQ(exceptions[0].m_expression, row.expression);
            EXPECT_STREQ(exceptions[0].m_sourceFile, "src/GenericVideoStreamNotifier");
            EXPECT_NE(std::string(exceptions[0].m_function).find("GenericVideoStreamNotifier::getSurface"),
                      std::string::npos);
        }
        sink.takeDelivered();
        sink.script.setLendNothing(false);
        sink.script.setLendNoAddress(false);
        sink.script.setCapacityChange(0);
        notifier.notifyReception(m_unit, 2);
        EXPECT_EQ(sink.takeDelivered().size(), 1U) << "the next access unit is delivered";
        CallLog::instance().clear();
    }
}

TEST_F(GenericVideoStreamNotifierTest, ASumBeyond32BitsIsRefusedBeforeTheHostIsAsked) {
    // Lengths only: nothing may be read before the sum is known.
    const AccessUnit huge{{m_bytes, 0xFFFFFFFF}, {m_bytes, 9}};
    m_notifier.notifyReception(huge, 1);
    EXPECT_EQ(CallLog::instance().take(), Calls{});
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 1U);
    EXPECT_EQ(exceptions[0].m_result, KV_E_BUFFER_SIZE_TOO_SMALL);
    m_notifier.notifyReception(m_unit, 1);
    EXPECT_EQ(m_sink.takeDelivered().size(), 1U);
}

TEST_F(GenericVideoStreamNotifierTest, OtherExceptionsOfTheHostPassAndLoseNoSurface) {
    m_sink.onCall = [](const std::string& call) {
        if (call == "SetTimeStampInfo") {
            throw std::runtime_error("host");
        }
    };
    EXPECT_THROW(m_notifier.notifyReception(m_unit, 1), std::runtime_error);
    EXPECT_EQ(m_sink.liveBuffers(), 0);
}

TEST_F(GenericVideoStreamNotifierTest, StatusAndItsAnswerPassThrough) {
    m_sink.script.fail("NotifyStatus", kvResult(0x80001234));
    EXPECT_EQ(m_notifier.notifyStatus(KV_E_DISCONNECTED), kvResult(0x80001234));
    EXPECT_EQ(m_notifier.notifyStatus(KV_S_STREAM_ENDED), S_OK);
    EXPECT_EQ(CallLog::instance().take(), (Calls{"NotifyStatus(0x89998302)", "NotifyStatus(0x0999202F)"}));
}

TEST_F(GenericVideoStreamNotifierTest, ANullSinkIsRefused) {
    try {
        const GenericVideoStreamNotifier notifier(nullptr);
        FAIL() << "constructed";
    } catch (const CKvVaneException& exception) {
        EXPECT_EQ(exception.m_result, KV_E_INVALID_POINTER);
        EXPECT_STREQ(exception.m_expression, "KV_E_INVALID_POINTER");
    }
}

} // namespace
