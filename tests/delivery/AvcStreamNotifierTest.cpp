#include "AvcStreamNotifier.h"

#include <memory>
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

constexpr const char* kLockExpression =
    "incomingSurface->Lock(0, keKvFaceTypeFront, &lockedSurfaceDescription)";

// Start codes, parameter sets and a slice, in two pieces.
std::uint8_t g_bytes[] = {0, 0, 0, 1, 0x67, 0x64, 0, 0, 0, 1, 0x68, 0xEE, 0, 0, 1, 0x65, 0x88, 0x80};
const AccessUnit kUnit{{g_bytes, 12}, {g_bytes + 12, 6}};
constexpr std::uint64_t kTimeStamp = 0x1'0000'0002;

const Calls kDelivery{"ProvideVideoSurface(18)",
                      "surface1.Lock(0, 1)",
                      "surface1.Lock(0, 1)",
                      "surface1.SetTimeStampInfo(4294967298)",
                      "surface1.SignalWriteCompletion()",
                      "DeliverVideoSurface(surface1)",
                      "surface1 ended"};

class AvcStreamNotifierTest : public testing::Test {
protected:
    AvcStreamNotifierTest() {
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    ~AvcStreamNotifierTest() override {
        EXPECT_EQ(m_sink.liveBuffers(), 0);
        EXPECT_EQ(m_sink.references(), 0U) << "no reference is kept on the sink";
    }

    RecordingVideoSink m_sink;
};

TEST_F(AvcStreamNotifierTest, DeliversByteForByteAfterASecondLock) {
    AvcStreamNotifier notifier(&m_sink);
    notifier.notifyReception(kUnit, kTimeStamp);
    EXPECT_EQ(CallLog::instance().take(), kDelivery);
    EXPECT_EQ(m_sink.takeDelivered(),
              (std::vector<DeliveredUnit>{{{std::begin(g_bytes), std::end(g_bytes)}, kTimeStamp}}));
    notifier.notifyReception({}, 1);
    notifier.notifyReception({{g_bytes, 0}}, 1);
    EXPECT_EQ(CallLog::instance().take(), Calls{}) << "0 bytes";
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty());
}

TEST_F(AvcStreamNotifierTest, EachFailureLosesOnlyItsOwnAccessUnit) {
    const Calls firstLockOnly{"ProvideVideoSurface(18)", "surface1.Lock(0, 1)", "surface1 ended"};
    const Calls bothLocks{"ProvideVideoSurface(18)", "surface1.Lock(0, 1)", "surface1.Lock(0, 1)",
                          "surface1 ended"};
    struct Row {
        const char* name;
        const char* call; // fails once, after `skip` that succeed
        int skip;
        Calls calls;
        const char* expression; // empty: nothing is raised
        const char* sourceFile;
    };
    const Row rows[] = {
        {"no surface",
         "ProvideVideoSurface",
         0,
         {"ProvideVideoSurface(18)"},
         "m_videoReceiver->ProvideVideoSurface(bufferSizeToAskFor, &incomingSurface)",
         "src/GenericVideoStreamNotifier"},
        {"first lock", "Lock", 0, firstLockOnly, kLockExpression, "src/GenericVideoStreamNotifier"},
        {"second lock", "Lock", 1, bothLocks, kLockExpression, "src/AvcStreamNotifier"},
        {"time stamp", "SetTimeStampInfo", 0, kDelivery, "", ""},
        {"completion", "SignalWriteCompletion", 0, kDelivery, "", ""},
        {"delivery", "DeliverVideoSurface", 0, kDelivery, "", ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingVideoSink sink;
        AvcStreamNotifier notifier(&sink);
        sink.script.fail(row.call, kvResult(0x80070005), 1, row.skip);
        notifier.notifyReception(kUnit, kTimeStamp);
        EXPECT_EQ(CallLog::instance().take(), row.calls);
        const auto exceptions = RecordingLogger::takeExceptions();
        const bool raised = row.expression[0] != '\0';
        ASSERT_EQ(exceptions.size(), raised ? 1U : 0U);
        if (raised) {
            EXPECT_EQ(exceptions[0].m_result, kvResult(0x80070005));
            EXPECT_STREQ(exceptions[0].m_expression, row.expression);
            EXPECT_STREQ(exceptions[0].m_sourceFile, row.sourceFile);
            EXPECT_TRUE(sink.takeDelivered().empty());
        }
        notifier.notifyReception(kUnit, kTimeStamp);
        EXPECT_FALSE(sink.takeDelivered().empty()) << "the next access unit is delivered";
        EXPECT_EQ(sink.liveBuffers(), 0);
        CallLog::instance().clear();
    }
}

TEST_F(AvcStreamNotifierTest, RefusesANullSinkAndLogsItsEnd) {
    try {
        const AvcStreamNotifier notifier(nullptr);
        FAIL() << "constructed";
    } catch (const CKvVaneException& exception) {
        EXPECT_EQ(exception.m_result, KV_E_INVALID_POINTER);
        EXPECT_STREQ(exception.m_expression, "KV_E_INVALID_POINTER");
    }
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty()) << "never constructed, so never destroyed";

    auto notifier = std::make_unique<AvcStreamNotifier>(&m_sink);
    EXPECT_EQ(notifier->notifyStatus(KV_S_STREAM_ENDED), S_OK);
    EXPECT_EQ(CallLog::instance().take(), Calls{"NotifyStatus(0x0999202F)"});
    notifier.reset();
    EXPECT_EQ(RecordingLogger::takeLines(true),
              (std::vector<LogLine>{{3, 0, "GenericVideoStreamNotifier destructor."}}));
    const auto sites = RecordingLogger::takeSites();
    ASSERT_EQ(sites.size(), 1U);
    EXPECT_EQ(sites[0].rfind("src/AvcStreamNotifier|", 0), 0U) << sites[0];
    EXPECT_NE(sites[0].find("~AvcStreamNotifier"), std::string::npos) << sites[0];
}

} // namespace
