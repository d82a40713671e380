#include "GenericAudioStreamNotifier.h"

#include <algorithm>
#include <stdexcept>

#include "AudioNotifierFixture.h"

using namespace KorvelVideo::Network;
using namespace KvTest;

namespace {

std::uint8_t g_bytes[371] = {1, 2, 3, 4, 5, 6, 7, 8};
const AccessUnit kUnit{{g_bytes, 3}, {g_bytes + 3, 0}, {g_bytes + 3, 5}};

const Calls kDelivery{"ProvideAudioSamples(8)",
                      "samples1.GetBufferAndLength()",
                      "samples1.SetTimeStampInfo(9)",
                      "samples1.AttachCustomObject(IKvAACCodecConfigDataAccess, config1)",
                      "samples1.SignalWriteCompletion()",
                      "DeliverAudioSamples(samples1)",
                      "samples1 ended"};

class GenericAudioStreamNotifierTest : public AudioNotifierFixture {};

TEST_F(GenericAudioStreamNotifierTest, ConstructionAndDestruction) {
    expectConstructionAndDestruction<GenericAudioStreamNotifier>(m_sink, "GenericAudioStreamNotifier");
}

TEST_F(GenericAudioStreamNotifierTest, EveryAccessUnitCarriesTheSameConfiguration) {
    GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    notifier.notifyReception(kUnit, 9);
    EXPECT_EQ(CallLog::instance().take(), kDelivery);
    notifier.notifyReception({{g_bytes, 371}}, 1ULL << 40);
    const Calls calls = CallLog::instance().take();
    ASSERT_EQ(calls.size(), kDelivery.size());
    EXPECT_EQ(calls[3], "samples2.AttachCustomObject(IKvAACCodecConfigDataAccess, config1)");
    EXPECT_EQ(m_sink.takeDelivered(),
              (std::vector<DeliveredUnit>{{{1, 2, 3, 4, 5, 6, 7, 8}, 9},
                                          {{std::begin(g_bytes), std::end(g_bytes)}, 1ULL << 40}}));
    EXPECT_EQ(RecordingLogger::takeLines(true),
              (Lines{{3, 0, "GenericAudioStreamNotifier::notifyReception.bufferSizeToAskFor:8"},
                     {3, 0, "GenericAudioStreamNotifier::notifyReception.bufferSizeToAskFor:371"}}));
    EXPECT_EQ(RecordingCodecConfiguration::references(), 1) << "attached buffers gave theirs back";
}

TEST_F(GenericAudioStreamNotifierTest, AnEmptyAccessUnitMakesNoCall) {
    GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    notifier.notifyReception({}, 1);
    notifier.notifyReception({{g_bytes, 0}}, 1);
    EXPECT_EQ(CallLog::instance().take(), Calls{});
    EXPECT_TRUE(RecordingLogger::takeLines(true).empty());
}

TEST_F(GenericAudioStreamNotifierTest, EachFailureLosesOnlyItsOwnAccessUnit) {
    const Calls refused{"ProvideAudioSamples(8)", "samples1.GetBufferAndLength()",
                        "samples1.SignalWriteCompletion()", "samples1 ended"};
    Calls completedTwice = kDelivery;
    completedTwice[5] = "samples1.SignalWriteCompletion()";
    using Notifier = GenericAudioStreamNotifier;
    const char* const file = "src/GenericAudioStreamNotifier";
    expectFailuresToLoseOneAccessUnit<Notifier>(failuresToLend("8", refused), kUnit, file);
    expectFailuresToLoseOneAccessUnit<Notifier>(
        {
            {"time stamp refused",
             [](HostScript& s) { s.fail("SetTimeStampInfo", kvResult(0x80070005)); },
             {"ProvideAudioSamples(8)", "samples1.GetBufferAndLength()", "samples1.SetTimeStampInfo(9)",
              "samples1.SignalWriteCompletion()", "samples1 ended"},
             0x80070005,
             "audioSamples->SetTimeStampInfo(&timeStamp)"},
            {"completion refused, twice", [](HostScript& s) { s.fail("SignalWriteCompletion", E_FAIL, 2); },
             completedTwice, 0x80004005, "audioSamples->SignalWriteCompletion()"},
        },
        kUnit, file);
    expectFailuresToLoseOneAccessUnit<Notifier>(
        failuresIgnored({"AttachCustomObject", "DeliverAudioSamples"}, kDelivery), kUnit, file);
}

TEST_F(GenericAudioStreamNotifierTest, ASumBeyond32BitsIsRefusedBeforeTheHostIsAsked) {
    GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    notifier.notifyReception({{g_bytes, 0xFFFFFFFF}, {g_bytes, 9}}, 1);
    EXPECT_EQ(CallLog::instance().take(), Calls{});
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 1U);
    EXPECT_EQ(exceptions[0].m_result, KV_E_BUFFER_SIZE_TOO_SMALL);
}

TEST_F(GenericAudioStreamNotifierTest, OtherExceptionsOfTheHostPassAndLoseNoBuffer) {
    GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
    m_sink.onCall = [](const std::string& call) {
        if (call == "AttachCustomObject") {
            throw std::runtime_error("host");
        }
    };
    EXPECT_THROW(notifier.notifyReception(kUnit, 1), std::runtime_error);
    EXPECT_EQ(m_sink.liveBuffers(), 0);
}

// A host that redirects inside a call lets the module's own exception through.
TEST_F(GenericAudioStreamNotifierTest, TheModulesOwnExceptionFromTheHostEndsHere) {
    struct Row {
        const char* call;
        long completions;
        std::size_t logged;
    };
    for (const Row& row : {Row{"SignalWriteCompletion", 2, 2}, Row{"DeliverAudioSamples", 1, 1}}) {
        GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
        forget();
        m_sink.onCall = [&row](const std::string& call) {
            if (call == row.call) {
                throw CKvVaneException("host", "host", 1, "Redirect", KV_E_INVALID_PROTOCOL);
            }
        };
        EXPECT_NO_THROW(notifier.notifyReception(kUnit, 9)) << row.call;
        m_sink.onCall = nullptr;
        const Calls calls = CallLog::instance().take();
        EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                                [](const std::string& call) {
                                    return call.find("SignalWriteCompletion") != std::string::npos;
                                }),
                  row.completions)
            << row.call;
        EXPECT_EQ(RecordingLogger::takeExceptions().size(), row.logged) << row.call;
        m_sink.takeDelivered();
    }
}

TEST_F(GenericAudioStreamNotifierTest, StatusAndItsAnswerPassThrough) {
    GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
    forget();
    m_sink.script.fail("NotifyStatus", kvResult(0x80001234));
    EXPECT_EQ(notifier.notifyStatus(KV_E_DISCONNECTED), kvResult(0x80001234));
    EXPECT_EQ(CallLog::instance().take(), Calls{"NotifyStatus(0x89998302)"});
}

} // namespace
