#include "NetworkStreamCreator.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "CKvUnknown.h"
#include "NotifierFixture.h"
#include "RtmpNetworkStreamCreator.h"
#include "RtmpNetworkStreamReceiver.h"
#include "ScriptedSdk.h"

using namespace KorvelVideo::Network;
using MainConcept::NetworkStreaming::IMediaConsumer;
using ScriptedSdk::Announcement;

namespace {

constexpr std::uint32_t kAudio = 0;
constexpr std::uint32_t kVideo = 1;
const char* const kNewAllocator = "CreateBufferAllocator(2, 8, 1048576, 65536, 1, null)";

std::string withAddress(const std::string& text, const void* address) {
    std::array<char, 40> written{}; // as the system writes it
    std::snprintf(written.data(), written.size(), "this:[%p]", address);
    return text + written.data();
}

// The texts of the lines of level 0, too.
std::vector<std::string> takeTexts() {
    std::vector<std::string> texts;
    for (const LogLine& line : RecordingLogger::takeLines(true)) {
        texts.push_back(line.text);
    }
    return texts;
}

// Both creators, by whether they are RTMP's, which takes no transport stream.
class NetworkStreamCreatorTest : public NotifierFixture, public testing::WithParamInterface<bool> {
protected:
    NetworkStreamCreatorTest() {
        ScriptedSdk::reset();
        renew();
    }
    ~NetworkStreamCreatorTest() override {
        m_creator.reset();
        EXPECT_EQ(ScriptedSdk::remains(), ScriptedSdk::Remains{});
        EXPECT_EQ(getLiveObjectCount(), 0) << "information objects";
        EXPECT_EQ(m_detector.references(), 0U);
    }

    static bool isRtmp() { return GetParam(); }
    void renew() {
        m_creator.reset();
        RecordingLogger::clear();
        m_creator = isRtmp() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                             : std::make_unique<NetworkStreamCreator>(&m_detector);
        CallLog::instance().clear();
    }
    IMediaConsumer* announce(const Announcement& announcement) {
        return ScriptedSdk::announce(*m_creator, announcement);
    }

    RecordingDetector m_detector{&m_sink, &m_audio};
    std::unique_ptr<NetworkStreamCreator> m_creator;
};

TEST_P(NetworkStreamCreatorTest, EachKindOfStreamIsDescribedOfferedAndBuiltInOrder) {
    struct Row {
        const char* name;
        Announcement announcement;
        Calls calls;
        std::int32_t kept; // information objects that outlive the announcements up to now
    };
    // A sequence parameter set behind its start code.
    const Bytes avcConfiguration = readBytes("sps/high-1920x1080-24p.sps");
    const Calls transportStream{"OnVideoStreamDetected(transport stream)", kNewAllocator};
    const Row rows[] = {
        {"H.264",
         {kVideo, 96, avcConfiguration},
         {"OnVideoStreamDetected(H.264 28 1920 1080 8 2 1 3 0 100 40)", kNewAllocator},
         1},
        {"H.264 without configuration",
         {kVideo, 96},
         {"OnVideoStreamDetected(H.264 28 0 0 0 0 0 0 0 0 0)", kNewAllocator},
         2},
        {"AAC",
         {kAudio, 99, {0x11, 0x90}, 48000, 2},
         {"OnAudioStreamDetected(AAC 48000 2)", "CreateInstance(config1)",
          "config1.SetCodecConfigData(16, 2, 11 90)", kNewAllocator},
         3},
        {"framed AAC",
         {kAudio, 100, {}, 7, 5},
         {"OnAudioStreamDetected(AAC 7 5)", "CreateInstance(config2)",
          "config2.SetCodecConfigData(16, 0, null)", kNewAllocator},
         4},
        {"transport stream as video", {kVideo, 33}, transportStream, 4},
        {"transport stream as audio", {kAudio, 33}, transportStream, 4},
    };
    std::vector<NetworkStreamReceiver*> made;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.announcement.streamType == 33 && isRtmp()) {
            continue;
        }
        IMediaConsumer* const consumer = announce(row.announcement);
        EXPECT_EQ(takeCalls(), row.calls);
        EXPECT_EQ(getLiveObjectCount(), row.kept);
        EXPECT_EQ(dynamic_cast<RtmpNetworkStreamReceiver*>(consumer) != nullptr, isRtmp());
        made.push_back(dynamic_cast<NetworkStreamReceiver*>(consumer));
        EXPECT_EQ(m_creator->receivers(), made);
    }
    EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
}

TEST_P(NetworkStreamCreatorTest, UnsupportedStreamsAreRefused) {
    const Lines video{{3, 3, "Unsupported video stream type."}};
    const Lines other{{3, 2, "Unsupported stream type."}};
    struct Row {
        std::uint32_t mediaKind;
        std::uint32_t streamType;
        Lines lines;
        bool rtmpOnly = false;
    };
    const Row rows[] = {
        {kVideo, 99, video}, {kVideo, 0, video},      {kVideo, 33, video, true},
        {kAudio, 96, {}},    {kAudio, 33, {}, true},  {2, 96, other},
        {2, 33, other},      {0xFFFFFFFF, 99, other},
    };
    const std::string file = isRtmp() ? "src/RtmpNetworkStreamCreator|" : "src/NetworkStreamCreator|";
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.mediaKind) + ", " + std::to_string(row.streamType));
        if (row.rtmpOnly && !isRtmp()) {
            continue;
        }
        RecordingLogger::clear();
        EXPECT_EQ(announce({row.mediaKind, row.streamType}), nullptr);
        EXPECT_EQ(RecordingLogger::takeLines(), row.lines);
        for (const std::string& site : RecordingLogger::takeSites()) {
            EXPECT_EQ(site.rfind(file, 0), 0U) << site;
        }
    }
    EXPECT_EQ(takeCalls(), Calls{}) << "the host hears of none";
    EXPECT_TRUE(m_creator->receivers().empty());
}

// What a failure leaves behind: the description that the host has seen, and the notifier of a receiver that
// could not be built.
TEST_P(NetworkStreamCreatorTest, AFailureIsLoggedAndKeepsWhatWasMadeBefore) {
    struct Row {
        Announcement announcement;
        bool isRefused; // by the host, else there is no receiver
        const char* sourceFile;
        std::string notifier;
        std::string information;
    };
    const Row rows[] = {
        {{kVideo, 96}, true, "src/GenericVideoStreamNotifier", "", "H264Information"},
        {{kAudio, 99}, true, "src/GenericAudioStreamNotifier", "", "AacInformation"},
        {{kAudio, 100}, true, "src/LatmStreamNotifier", "", "AacInformation"},
        {{kVideo, 96}, false, "src/NetworkStreamReceiver", "GenericVideoStreamNotifier", "H264Information"},
        {{kAudio, 99}, false, "src/NetworkStreamReceiver", "GenericAudioStreamNotifier", "AacInformation"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.announcement.streamType) + row.sourceFile);
        renew();
        m_detector.videoSink = row.isRefused ? nullptr : &m_sink;
        m_detector.audioSink = row.isRefused ? nullptr : &m_audio;
        ScriptedSdk::failCall("CreateBufferAllocator", 1, row.isRefused ? 1000 : 0);
        EXPECT_EQ(announce(row.announcement), nullptr);
        expectLogged(KV_E_INVALID_POINTER, "KV_E_INVALID_POINTER", row.sourceFile);
        EXPECT_EQ(getLiveObjectCount(), 1);
        EXPECT_TRUE(m_creator->receivers().empty());

        // The next stream is none the worse: its receiver is built over its own notifier.
        m_detector.videoSink = &m_sink;
        IMediaConsumer* const next = announce({kVideo, 96});
        ASSERT_NE(next, nullptr);
        CallLog::instance().clear();
        ScriptedSdk::notify(*next, 5);
        EXPECT_EQ(takeCalls(), Calls{"NotifyStatus(0x09990075)"});

        RecordingLogger::clear();
        m_creator.reset();
        const std::vector<std::string> texts = takeTexts();
        const auto logged = [&](const std::string& line) {
            return std::count(texts.begin(), texts.end(), line);
        };
        EXPECT_GE(logged(row.information + " destructor."), 1);
        EXPECT_GE(logged(row.notifier + " destructor."), row.notifier.empty() ? 0 : 1);
    }
}

// From the notifier, and from the host.
TEST_P(NetworkStreamCreatorTest, OtherExceptionsPassOnToTheClient) {
    RecordingCodecConfiguration::failsCreation = true;
    for (const std::uint32_t streamType : {99U, 100U}) {
        EXPECT_THROW(announce({kAudio, streamType}), CKvSmartPointerException);
    }
    m_detector.onInformation = [](IKvNetworkReceiverStreamInformation*) { throw std::runtime_error("host"); };
    EXPECT_THROW(announce({kVideo, 96}), std::runtime_error);
    EXPECT_EQ(getLiveObjectCount(), 3);
    EXPECT_TRUE(m_creator->receivers().empty());
    EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
}

TEST_P(NetworkStreamCreatorTest, ANullAnnouncementIsLogged) {
    EXPECT_EQ(m_creator->OnCreateConsumerForNetStream(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(RecordingLogger::takeExceptions().at(0).m_result, KV_E_INVALID_POINTER);
}

TEST_P(NetworkStreamCreatorTest, TheHostMayKeepADescription) {
    IKvNetworkReceiverStreamInformation* kept = nullptr;
    m_detector.onInformation = [&](IKvNetworkReceiverStreamInformation* information) {
        kept = information;
        EXPECT_EQ(kept->AddRef(), 3U) << "the list's, the announcement's and the host's";
    };
    announce({kAudio, 99, {}, 44100, 1});
    EXPECT_EQ(kept->AddRef(), 3U) << "the announcement gave its own back";
    kept->Release();
    m_creator.reset();
    EXPECT_EQ(static_cast<IKvNetworkReceiverAacInformation*>(kept)->GetFirstValue(), 44100U);
    EXPECT_EQ(kept->Release(), 0U);
}

TEST_P(NetworkStreamCreatorTest, DataFlowsToTheSinkOfEachStream) {
    IMediaConsumer* const video = announce({kVideo, 96});
    IMediaConsumer* const audio = announce({kAudio, 99});
    IMediaConsumer* const framed = announce({kAudio, 100});
    for (std::uint64_t timeStamp = 1; timeStamp <= 2; ++timeStamp) {
        ScriptedSdk::play(*video, {{1, 2}, timeStamp, 96});
        ScriptedSdk::play(*audio, {{3, 4}, timeStamp, 99});
        ScriptedSdk::play(*framed, {{1, 5}, timeStamp, 100});
    }
    EXPECT_EQ(m_sink.takeDelivered(), (Units{{{1, 2}, 1}}));
    // The framed stream's empty first unit is delivered, too.
    EXPECT_EQ(m_audio.takeDelivered(), (Units{{{}, 0}, {{3, 4}, 1}, {{5}, 1}}));
    m_creator->releaseAllPendingSamples();
    EXPECT_EQ(ScriptedSdk::remains().buffers, 0);
}

TEST_P(NetworkStreamCreatorTest, LifeIsLoggedAndReceiversEndBeforeNotifiers) {
    EXPECT_EQ(takeTexts(),
              std::vector<std::string>{withAddress("NetworkStreamCreator constructor, ", m_creator.get())});
    for (const Announcement& announcement :
         {Announcement{kAudio, 99}, Announcement{kVideo, 96}, Announcement{kAudio, 100}}) {
        ScriptedSdk::play(*announce(announcement), {{1}, 0, announcement.streamType});
    }
    const std::string firstLine = withAddress("NetworkStreamCreator destructor,", m_creator.get());
    forget();
    m_creator.reset();
    EXPECT_EQ(
        takeTexts(),
        (std::vector<std::string>{
            firstLine, "NetworkStreamReceiver destructor.", "NetworkStreamReceiver destructor.",
            "NetworkStreamReceiver destructor.", "GenericAudioStreamNotifier destructor.",
            "GenericVideoStreamNotifier destructor.", "LatmStreamNotifier destructor.",
            "AacInformation destructor.", "AacInformation destructor.", "H264Information destructor."}));
    EXPECT_EQ(takeCalls(),
              (Calls{"ReleaseBuffer(buffer1)", "allocator ended", "ReleaseBuffer(buffer2)", "allocator ended",
                     "ReleaseBuffer(buffer3)", "allocator ended", "config1 ended", "config2 ended"}))
        << "what was pending is dropped, not delivered";
}

INSTANTIATE_TEST_SUITE_P(Creators, NetworkStreamCreatorTest, testing::Bool(),
                         [](const auto& test) { return test.param ? "Rtmp" : "Other"; });

} // namespace
