#include <algorithm>
#include <memory>
#include <stdexcept>

#include "AvcStreamNotifier.h"
#include "GenericAudioStreamNotifier.h"
#include "GenericVideoStreamNotifier.h"
#include "LatmStreamNotifier.h"
#include "NotifierFixture.h"

// What the four notifiers have in common: an access unit of eight bytes on its way to a host that may fail.

using namespace KorvelVideo::Network;

namespace {

using Notifier = std::unique_ptr<IAudioVideoReceptionNotifier>;

// A failure of the host, and what that leads to.
struct Failure {
    std::string what;     // the failing call, or what the host lends
    std::size_t calls;    // made up to then
    std::uint32_t result; // of the exception that is logged; 0: none, and the delivery goes on
    const char* expression = "";
    const char* sourceFile = nullptr; // when it is not the kind's
    int skip = 0;                     // calls of the same name that succeed before
};

const char* const kLock = "incomingSurface->Lock(0, keKvFaceTypeFront, &lockedSurfaceDescription)";
const char* const kProvideVideo =
    "m_videoReceiver->ProvideVideoSurface(bufferSizeToAskFor, &incomingSurface)";
const char* const kProvideAudio = "m_audioReceiver->ProvideAudioSamples(bufferSizeToAskFor, &audioSamples)";
const char* const kGetBuffer =
    "audioSamples->GetBufferAndLength(&audioSamplesBuffer, &audioSamplesBufferSize)";
const char* const kPointer = "KV_E_INVALID_POINTER";

std::vector<Failure> operator+(std::vector<Failure> left, const std::vector<Failure>& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const std::vector<Failure> kEveryFailure{
    {"nothing", 1, 0x89998045, kPointer},
    {"a byte less", 2, 0x89998307, "KV_E_BUFFER_SIZE_TOO_SMALL"},
    {"no address", 2, 0x89998045, kPointer},
    {"more room", 0, 0},
};
const std::vector<Failure> kVideoFailures =
    kEveryFailure + std::vector<Failure>{{"ProvideVideoSurface", 1, 0x80070005, kProvideVideo},
                                         {"Lock", 2, 0x80070005, kLock},
                                         {"SetTimeStampInfo", 0, 0},
                                         {"SignalWriteCompletion", 0, 0},
                                         {"DeliverVideoSurface", 0, 0}};
const std::vector<Failure> kAudioFailures =
    kEveryFailure + std::vector<Failure>{{"ProvideAudioSamples", 1, 0x80070005, kProvideAudio},
                                         {"GetBufferAndLength", 2, 0x80070005, kGetBuffer},
                                         {"AttachCustomObject", 0, 0},
                                         {"DeliverAudioSamples", 0, 0}};

struct Kind {
    const char* name;
    Notifier (*make)(RecordingSink*);
    std::vector<Bytes> pieces; // of which the payload is 1 2 3 4 5 6 7 8
    Calls delivery;            // with time stamp 9
    Calls refusal;             // before a buffer that is not delivered ends
    std::vector<Failure> failures;
    std::string sourceFile;
};

const std::vector<Bytes> kPlain{{1, 2, 3}, {}, {4, 5, 6, 7, 8}};
const Calls kAudioDelivery{"ProvideAudioSamples(8)",
                           "samples1.GetBufferAndLength()",
                           "samples1.SetTimeStampInfo(9)",
                           "samples1.AttachCustomObject(IKvAACCodecConfigDataAccess, config1)",
                           "samples1.SignalWriteCompletion()",
                           "DeliverAudioSamples(samples1)",
                           "samples1 ended"};

template <class VideoNotifier>
Notifier makeVideo(RecordingSink* sink) {
    return std::make_unique<VideoNotifier>(sink);
}
template <class AudioNotifier>
Notifier makeAudio(RecordingSink* sink) {
    return std::make_unique<AudioNotifier>(sink, nullptr, 0);
}

const Kind kKinds[] = {
    {"GenericVideo",
     makeVideo<GenericVideoStreamNotifier>,
     kPlain,
     {"ProvideVideoSurface(8)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(9)",
      "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended"},
     {},
     kVideoFailures,
     "src/GenericVideoStreamNotifier"},
    {"Avc",
     makeVideo<AvcStreamNotifier>,
     kPlain,
     {"ProvideVideoSurface(8)", "surface1.Lock(0, 1)", "surface1.Lock(0, 1)", "surface1.SetTimeStampInfo(9)",
      "surface1.SignalWriteCompletion()", "DeliverVideoSurface(surface1)", "surface1 ended"},
     {},
     kVideoFailures + std::vector<Failure>{{"Lock", 3, 0x80070005, kLock, "src/AvcStreamNotifier", 1}},
     "src/GenericVideoStreamNotifier"},
    {"GenericAudio",
     makeAudio<GenericAudioStreamNotifier>,
     kPlain,
     kAudioDelivery,
     {"samples1.SignalWriteCompletion()"},
     kAudioFailures +
         std::vector<Failure>{
             {"SetTimeStampInfo", 3, 0x80070005, "audioSamples->SetTimeStampInfo(&timeStamp)"},
             {"SignalWriteCompletion", 5, 0x80070005, "audioSamples->SignalWriteCompletion()"}},
     "src/GenericAudioStreamNotifier"},
    {"Latm",
     makeAudio<LatmStreamNotifier>,
     {{3, 1, 2, 3}, {0}, {5, 4, 5, 6, 7, 8}},
     kAudioDelivery,
     {},
     kAudioFailures + std::vector<Failure>{{"SetTimeStampInfo", 0, 0}, {"SignalWriteCompletion", 0, 0}},
     "src/LatmStreamNotifier"},
};

void arrange(HostScript& script, const Failure& failure) {
    script.lendsNothing = failure.what == "nothing";
    script.lendsNoAddress = failure.what == "no address";
    script.capacityChange = failure.what == "a byte less" ? -1 : failure.what == "more room" ? 100 : 0;
    script.fail(failure.what, kvResult(0x80070005), 2, failure.skip);
}

class NotifierTest : public NotifierFixture, public testing::WithParamInterface<std::size_t> {
protected:
    NotifierTest() {
        m_notifier = kind().make(&m_sink);
        forget();
    }
    ~NotifierTest() override { m_notifier.reset(); }

    static const Kind& kind() { return kKinds[GetParam()]; }

    std::vector<Bytes> m_pieces = kind().pieces;
    const AccessUnit m_unit = unitOver(m_pieces);
    Notifier m_notifier;
};

TEST_P(NotifierTest, DeliversThePiecesInOrderWithTheTimeStamp) {
    m_notifier->notifyReception(m_unit, 9);
    EXPECT_EQ(takeCalls(), kind().delivery);
    m_notifier->notifyReception(m_unit, 1ULL << 40);
    EXPECT_EQ(m_sink.takeDelivered(),
              (Units{{{1, 2, 3, 4, 5, 6, 7, 8}, 9}, {{1, 2, 3, 4, 5, 6, 7, 8}, 1ULL << 40}}));
    EXPECT_EQ(RecordingLogger::takeLines(), Lines{});
    EXPECT_LE(RecordingCodecConfiguration::references, 1) << "attached buffers gave theirs back";
}

TEST_P(NotifierTest, EachFailureOfTheHostLosesOnlyItsOwnAccessUnit) {
    for (const Failure& failure : kind().failures) {
        SCOPED_TRACE(failure.what);
        RecordingCodecConfiguration::created = 0;
        RecordingSink lender;
        m_notifier = kind().make(&lender);
        forget();
        arrange(lender.script, failure);
        m_notifier->notifyReception(m_unit, 9);
        Calls expected = kind().delivery;
        if (failure.result == 0) {
            EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
        } else {
            expectLogged(kvResult(failure.result), failure.expression,
                         failure.sourceFile != nullptr ? failure.sourceFile : kind().sourceFile);
            expected.resize(failure.calls);
            if (failure.calls > 1) { // a buffer was lent
                expected.insert(expected.end(), kind().refusal.begin(), kind().refusal.end());
                expected.push_back(kind().delivery.back());
            }
            EXPECT_EQ(lender.takeDelivered(), Units{});
        }
        EXPECT_EQ(takeCalls(), expected);
        EXPECT_EQ(lender.liveBuffers(), 0);
        lender.script.reset();
        m_notifier->notifyReception(m_unit, 10);
        EXPECT_EQ(lender.takeDelivered().back(), (DeliveredUnit{{1, 2, 3, 4, 5, 6, 7, 8}, 10}));
        m_notifier.reset();
    }
}

// Lengths only: nothing may be read before the sum is known. Neither is a length prefix.
TEST_P(NotifierTest, ASumBeyond32BitsIsRefusedBeforeTheHostIsAsked) {
    std::uint8_t bytes[9] = {1};
    m_notifier->notifyReception({{bytes, 0xFFFFFFFF}, {bytes, 9}}, 1);
    EXPECT_EQ(takeCalls(), Calls{});
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 1U);
    EXPECT_EQ(exceptions[0].m_result, KV_E_BUFFER_SIZE_TOO_SMALL);
}

TEST_P(NotifierTest, AnEmptyAccessUnitMakesNoCallUnlessItIsFramed) {
    std::uint8_t byte = 0;
    for (const AccessUnit& unit : {AccessUnit{}, AccessUnit{{&byte, 0}}}) {
        m_notifier->notifyReception(unit, 1);
        EXPECT_EQ(takeCalls().empty(), kind().sourceFile != "src/LatmStreamNotifier");
        EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
    }
}

TEST_P(NotifierTest, OtherExceptionsOfTheHostPassAndLoseNoBuffer) {
    m_sink.onCall = [](const std::string& call) {
        if (call == "SetTimeStampInfo") {
            throw std::runtime_error("host");
        }
    };
    EXPECT_THROW(m_notifier->notifyReception(m_unit, 1), std::runtime_error);
    EXPECT_EQ(m_sink.liveBuffers(), 0);
}

TEST_P(NotifierTest, StatusAndItsAnswerPassThrough) {
    m_sink.script.fail("NotifyStatus", kvResult(0x80001234));
    EXPECT_EQ(m_notifier->notifyStatus(KV_E_DISCONNECTED), kvResult(0x80001234));
    EXPECT_EQ(m_notifier->notifyStatus(KV_S_STREAM_ENDED), S_OK);
    EXPECT_EQ(takeCalls(), (Calls{"NotifyStatus(0x89998302)", "NotifyStatus(0x0999202F)"}));
}

TEST_P(NotifierTest, ANullSinkIsRefusedBeforeAnythingElse) {
    try {
        kind().make(nullptr);
        ADD_FAILURE() << "constructed";
    } catch (const CKvVaneException& exception) {
        EXPECT_EQ(exception.m_result, KV_E_INVALID_POINTER);
        EXPECT_STREQ(exception.m_expression, kPointer);
        EXPECT_EQ(exception.m_sourceFile, kind().sourceFile);
    }
    EXPECT_EQ(takeCalls(), Calls{});
    EXPECT_EQ(RecordingLogger::takeLines(true), Lines{});
}

INSTANTIATE_TEST_SUITE_P(Kinds, NotifierTest, testing::Range(std::size_t{0}, std::size(kKinds)),
                         [](const auto& test) { return std::string(kKinds[test.param].name); });

class NotifierLife : public NotifierFixture {
protected:
    template <class AudioNotifier>
    void expectAudioLife(const std::string& name) {
        Bytes config{0x11, 0x90};
        auto notifier = std::make_unique<AudioNotifier>(&m_sink, config.data(), 2);
        EXPECT_EQ(takeCalls(),
                  (Calls{"CreateInstance(config1)", "config1.SetCodecConfigData(16, 2, 11 90)"}));
        EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, name + " constructor."}}));
        EXPECT_EQ(RecordingCodecConfiguration::references, 1);
        notifier.reset();
        EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, name + " destructor."}}));
        EXPECT_EQ(takeCalls(), Calls{"config1 ended"});
        for (const std::string& site : RecordingLogger::takeSites()) {
            EXPECT_EQ(site.rfind("src/" + name + "|", 0), 0U) << site;
        }
        // No configuration is one of 0 bytes; what the object makes of it is its own affair.
        RecordingCodecConfiguration::dataResult = E_FAIL;
        notifier = std::make_unique<AudioNotifier>(&m_sink, nullptr, 0);
        EXPECT_EQ(takeCalls(), (Calls{"CreateInstance(config2)", "config2.SetCodecConfigData(16, 0, null)"}));
        RecordingCodecConfiguration::failsCreation = true;
        EXPECT_THROW(AudioNotifier(&m_sink, nullptr, 0), CKvSmartPointerException);
    }
};

TEST_F(NotifierLife, GenericAudioHoldsItsConfiguration) {
    expectAudioLife<GenericAudioStreamNotifier>("GenericAudioStreamNotifier");
}

TEST_F(NotifierLife, LatmHoldsItsConfiguration) { expectAudioLife<LatmStreamNotifier>("LatmStreamNotifier"); }

TEST_F(NotifierLife, AvcLogsItsEndUnderTheNameOfItsBase) {
    std::make_unique<AvcStreamNotifier>(&m_sink).reset();
    EXPECT_EQ(RecordingLogger::takeLines(true), (Lines{{3, 0, "GenericVideoStreamNotifier destructor."}}));
    const auto sites = RecordingLogger::takeSites();
    ASSERT_EQ(sites.size(), 1U);
    EXPECT_EQ(sites[0].rfind("src/AvcStreamNotifier|", 0), 0U) << sites[0];
}

TEST_F(NotifierLife, GenericAudioLogsTheSizeOfEachAccessUnit) {
    GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
    std::vector<Bytes> pieces{Bytes(371)};
    forget();
    notifier.notifyReception(unitOver(pieces), 9);
    EXPECT_EQ(RecordingLogger::takeLines(true),
              (Lines{{3, 0, "GenericAudioStreamNotifier::notifyReception.bufferSizeToAskFor:371"}}));
}

// A host that redirects inside a call lets the module's own exception through; the buffer is completed again
// only when it was not delivered.
TEST_F(NotifierLife, TheModulesOwnExceptionFromTheHostEndsInGenericAudio) {
    for (const std::string thrower : {"SignalWriteCompletion", "DeliverAudioSamples"}) {
        std::vector<Bytes> pieces = kPlain;
        GenericAudioStreamNotifier notifier(&m_sink, nullptr, 0);
        std::size_t completions = 0;
        forget();
        m_sink.onCall = [&](const std::string& call) {
            completions += call == "SignalWriteCompletion" ? 1U : 0U;
            if (call == thrower) {
                throw CKvVaneException("host", "host", 1, "Redirect", KV_E_INVALID_PROTOCOL);
            }
        };
        EXPECT_NO_THROW(notifier.notifyReception(unitOver(pieces), 9));
        m_sink.onCall = nullptr;
        EXPECT_EQ(completions, thrower == "SignalWriteCompletion" ? 2U : 1U);
        EXPECT_EQ(RecordingLogger::takeExceptions().size(), completions);
    }
}

} // namespace
