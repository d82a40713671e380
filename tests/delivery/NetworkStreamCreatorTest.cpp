#include "NetworkStreamCreator.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "CKvUnknown.h"
#include "CallLog.h"
#include "KvResultCodes.h"
#include "RecordingCodecConfiguration.h"
#include "RecordingHost.h"
#include "RecordingLogger.h"
#include "RtmpNetworkStreamCreator.h"
#include "RtmpNetworkStreamReceiver.h"
#include "ScriptedSdk.h"
#include "TestData.h"

using namespace KorvelVideo::Network;
using MainConcept::NetworkStreaming::IMediaConsumer;
using ScriptedSdk::Announcement;

namespace {

using Calls = std::vector<std::string>;
using Lines = std::vector<LogLine>;

constexpr std::uint32_t kAudio = 0;
constexpr std::uint32_t kVideo = 1;
const char* const kNewAllocator = "CreateBufferAllocator(2, 8, 1048576, 65536, 1, null)";

std::string withAddress(const char* format, const void* address) {
    char text[128];
    std::snprintf(text, sizeof(text), format, address);
    return text;
}

// The texts of the lines of level 0, too.
std::vector<std::string> takeTexts() {
    std::vector<std::string> texts;
    for (const LogLine& line : RecordingLogger::takeLines(true)) {
        texts.push_back(line.text);
    }
    return texts;
}

// Both creators, by whether they take transport streams.
class NetworkStreamCreatorTest : public testing::TestWithParam<bool> {
protected:
    NetworkStreamCreatorTest() {
        ScriptedSdk::reset();
        m_creator = isRtmp() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                             : std::make_unique<NetworkStreamCreator>(&m_detector);
        forget();
    }
    ~NetworkStreamCreatorTest() override {
        m_creator.reset();
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
        EXPECT_EQ(ScriptedSdk::wrongReleases(), 0);
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 0);
        EXPECT_EQ(getLiveObjectCount(), m_liveObjects) << "information objects";
        EXPECT_EQ(RecordingCodecConfiguration::alive(), 0);
        EXPECT_EQ(m_video.references() + m_audio.references() + m_detector.references(), 0U);
        forget();
    }

    static bool isRtmp() { return GetParam(); }
    static void forget() {
        CallLog::instance().clear();
        RecordingLogger::clear();
    }
    IMediaConsumer* announce(const Announcement& announcement) {
        return ScriptedSdk::announce(*m_creator, announcement);
    }
    [[nodiscard]] std::int32_t keptInformations() const { return getLiveObjectCount() - m_liveObjects; }

    const std::int32_t m_liveObjects = getLiveObjectCount();
    RecordingCodecConfiguration m_configurationClass;
    RecordingVideoSink m_video;
    RecordingAudioSink m_audio;
    RecordingDetector m_detector{&m_video, &m_audio};
    std::unique_ptr<NetworkStreamCreator> m_creator;
};

TEST_P(NetworkStreamCreatorTest, EachKindOfStreamIsDescribedOfferedAndBuiltInOrder) {
    struct Row {
        const char* name;
        Announcement announcement;
        Calls calls;
        std::int32_t kept; // information objects that outlive the announcement
        bool isTransportStream;
    };
    // A sequence parameter set behind its start code.
    const Bytes avcConfiguration = readBytes("sps/high-1920x1080-24p.sps");
    const Row rows[] = {
        {"H.264",
         {kVideo, 96, avcConfiguration},
         {"OnVideoStreamDetected(H.264 28 1920 1080 8 2 1 3 0 100 40)", kNewAllocator},
         1,
         false},
        {"H.264 without configuration",
         {kVideo, 96},
         {"OnVideoStreamDetected(H.264 28 0 0 0 0 0 0 0 0 0)", kNewAllocator},
         1,
         false},
        {"AAC",
         {kAudio, 99, {0x11, 0x90}, 48000, 2},
         {"OnAudioStreamDetected(AAC 48000 2)", "CreateInstance(config1)",
          "config1.SetCodecConfigData(16, 2, 11 90)", kNewAllocator},
         1,
         false},
        {"framed AAC",
         {kAudio, 100, {}, 7, 5},
         {"OnAudioStreamDetected(AAC 7 5)", "CreateInstance(config2)",
          "config2.SetCodecConfigData(16, 0, null)", kNewAllocator},
         1,
         false},
        {"transport stream as video",
         {kVideo, 33},
         {"OnVideoStreamDetected(transport stream)", kNewAllocator},
         0,
         true},
        {"transport stream as audio",
         {kAudio, 33},
         {"OnVideoStreamDetected(transport stream)", kNewAllocator},
         0,
         true},
    };
    std::vector<NetworkStreamReceiver*> made;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.isTransportStream && isRtmp()) {
            continue;
        }
        const std::int32_t keptBefore = keptInformations();
        IMediaConsumer* const consumer = announce(row.announcement);
        ASSERT_NE(consumer, nullptr);
        EXPECT_EQ(CallLog::instance().take(), row.calls);
        EXPECT_EQ(keptInformations() - keptBefore, row.kept);
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
        bool rtmpOnly;
    };
    const Row rows[] = {
        {kVideo, 99, video, false},     {kVideo, 100, video, false}, {kVideo, 0, video, false},
        {kVideo, 33, video, true},      {kAudio, 96, {}, false},     {kAudio, 0, {}, false},
        {kAudio, 33, {}, true},         {2, 96, other, false},       {2, 33, other, false},
        {0xFFFFFFFF, 99, other, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.mediaKind) + ", " + std::to_string(row.streamType));
        if (row.rtmpOnly && !isRtmp()) {
            continue;
        }
        RecordingLogger::clear();
        EXPECT_EQ(announce({row.mediaKind, row.streamType}), nullptr);
        EXPECT_EQ(RecordingLogger::takeLines(), row.lines);
        for (const std::string& site : RecordingLogger::takeSites()) {
            const std::string file = isRtmp() ? "src/RtmpNetworkStreamCreator|" : "src/NetworkStreamCreator|";
            EXPECT_EQ(site.rfind(file, 0), 0U) << site;
        }
    }
    EXPECT_EQ(CallLog::instance().take(), Calls{}) << "the host hears of none";
    EXPECT_TRUE(m_creator->receivers().empty());
}

// What a failure leaves behind: the description that the host has seen, and the notifier of a receiver that
// could not be built.
TEST_P(NetworkStreamCreatorTest, AFailureIsLoggedAndKeepsWhatWasMadeBefore) {
    struct Row {
        const char* name;
        Announcement announcement;
        bool refuse;
        bool failReceiver;
        const char* sourceFile;
        std::vector<std::string> endOfCreator; // log lines after the creator's own
    };
    const Row rows[] = {
        {"H.264 refused",
         {kVideo, 96},
         true,
         false,
         "src/GenericVideoStreamNotifier",
         {"H264Information destructor."}},
        {"AAC refused",
         {kAudio, 99},
         true,
         false,
         "src/GenericAudioStreamNotifier",
         {"AacInformation destructor."}},
        {"framed AAC refused",
         {kAudio, 100},
         true,
         false,
         "src/LatmStreamNotifier",
         {"AacInformation destructor."}},
        {"no receiver for H.264",
         {kVideo, 96},
         false,
         true,
         "src/NetworkStreamReceiver",
         {"GenericVideoStreamNotifier destructor.", "H264Information destructor."}},
        {"no receiver for AAC",
         {kAudio, 99},
         false,
         true,
         "src/NetworkStreamReceiver",
         {"GenericAudioStreamNotifier destructor.", "AacInformation destructor."}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto creator = isRtmp() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                                : std::make_unique<NetworkStreamCreator>(&m_detector);
        m_detector.videoSink = row.refuse ? nullptr : &m_video;
        m_detector.audioSink = row.refuse ? nullptr : &m_audio;
        if (row.failReceiver) {
            ScriptedSdk::failNextAllocatorCreation();
        }
        forget();
        EXPECT_EQ(ScriptedSdk::announce(*creator, row.announcement), nullptr);
        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), 1U);
        EXPECT_EQ(exceptions[0].m_result, KV_E_INVALID_POINTER);
        EXPECT_STREQ(exceptions[0].m_expression, "KV_E_INVALID_POINTER");
        EXPECT_STREQ(exceptions[0].m_sourceFile, row.sourceFile);
        EXPECT_EQ(keptInformations(), 1);
        EXPECT_TRUE(creator->receivers().empty());

        // The next stream is none the worse: its receiver is built over its own notifier.
        m_detector.videoSink = &m_video;
        IMediaConsumer* const next = ScriptedSdk::announce(*creator, {kVideo, 96});
        ASSERT_NE(next, nullptr);
        CallLog::instance().clear();
        ScriptedSdk::notify(*next, 5);
        EXPECT_EQ(CallLog::instance().take(), Calls{"NotifyStatus(0x09990075)"});

        RecordingLogger::clear();
        const void* const address = creator.get();
        creator.reset();
        std::vector<std::string> texts = takeTexts();
        ASSERT_FALSE(texts.empty());
        EXPECT_EQ(texts[0], withAddress("NetworkStreamCreator destructor,this:[%p]", address));
        for (const std::string& line : row.endOfCreator) {
            EXPECT_NE(std::find(texts.begin(), texts.end(), line), texts.end()) << line;
        }
        EXPECT_EQ(keptInformations(), 0);
    }
}

TEST_P(NetworkStreamCreatorTest, AMissingConfigurationObjectPassesOnToTheClient) {
    RecordingCodecConfiguration::setCreationResult(E_FAIL);
    for (const std::uint32_t streamType : {99U, 100U}) {
        EXPECT_THROW(announce({kAudio, streamType}), CKvSmartPointerException);
    }
    EXPECT_EQ(keptInformations(), 2);
    EXPECT_TRUE(m_creator->receivers().empty());
    EXPECT_TRUE(RecordingLogger::takeExceptions().empty());
    RecordingCodecConfiguration::setCreationResult(S_OK);
    EXPECT_NE(announce({kAudio, 99}), nullptr);
}

TEST_P(NetworkStreamCreatorTest, OtherExceptionsOfTheHostPassOnToTheClient) {
    m_detector.onInformation = [](IKvNetworkReceiverStreamInformation*) { throw std::runtime_error("host"); };
    EXPECT_THROW(announce({kVideo, 96}), std::runtime_error);
    EXPECT_THROW(announce({kAudio, 99}), std::runtime_error);
    m_detector.onInformation = nullptr;
    EXPECT_EQ(keptInformations(), 2);
    EXPECT_TRUE(m_creator->receivers().empty());
}

TEST_P(NetworkStreamCreatorTest, ANullAnnouncementIsLogged) {
    EXPECT_EQ(m_creator->OnCreateConsumerForNetStream(nullptr, nullptr, 0), nullptr);
    const auto exceptions = RecordingLogger::takeExceptions();
    ASSERT_EQ(exceptions.size(), 1U);
    EXPECT_EQ(exceptions[0].m_result, KV_E_INVALID_POINTER);
}

TEST_P(NetworkStreamCreatorTest, TheHostMayKeepADescription) {
    IKvNetworkReceiverStreamInformation* kept = nullptr;
    m_detector.onInformation = [&](IKvNetworkReceiverStreamInformation* information) {
        kept = information;
        EXPECT_EQ(kept->AddRef(), 3U) << "the list's, the announcement's and the host's";
    };
    announce({kAudio, 99, {}, 44100, 1});
    m_detector.onInformation = nullptr;
    EXPECT_EQ(kept->AddRef(), 3U) << "the announcement gave its own back";
    kept->Release();
    m_creator = std::make_unique<NetworkStreamCreator>(&m_detector);
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
    EXPECT_EQ(m_video.takeDelivered(), (std::vector<DeliveredUnit>{{{1, 2}, 1}}));
    // The framed stream's empty first unit is delivered, too.
    EXPECT_EQ(m_audio.takeDelivered(), (std::vector<DeliveredUnit>{{{}, 0}, {{3, 4}, 1}, {{5}, 1}}));
    m_creator->releaseAllPendingSamples();
    EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
}

TEST_P(NetworkStreamCreatorTest, LifeIsLoggedAndReceiversEndBeforeNotifiers) {
    m_creator.reset();
    forget();
    auto creator = isRtmp() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                            : std::make_unique<NetworkStreamCreator>(&m_detector);
    const void* const address = creator.get();
    EXPECT_EQ(RecordingLogger::takeLines(true),
              (Lines{{3, 0, withAddress("NetworkStreamCreator constructor, this:[%p]", address)}}));
    for (const Announcement& announcement :
         {Announcement{kAudio, 99}, Announcement{kVideo, 96}, Announcement{kAudio, 100}}) {
        IMediaConsumer* const consumer = ScriptedSdk::announce(*creator, announcement);
        ASSERT_NE(consumer, nullptr);
        ScriptedSdk::play(*consumer, {{1}, 0, announcement.streamType});
    }
    const std::string lastLine = withAddress("NetworkStreamCreator destructor,this:[%p]", address);
    forget();
    creator.reset();
    EXPECT_EQ(
        takeTexts(),
        (std::vector<std::string>{
            lastLine, "NetworkStreamReceiver destructor.", "NetworkStreamReceiver destructor.",
            "NetworkStreamReceiver destructor.", "GenericAudioStreamNotifier destructor.",
            "GenericVideoStreamNotifier destructor.", "LatmStreamNotifier destructor.",
            "AacInformation destructor.", "AacInformation destructor.", "H264Information destructor."}));
    EXPECT_EQ(CallLog::instance().take(),
              (Calls{"ReleaseBuffer(buffer1)", "allocator ended", "ReleaseBuffer(buffer2)", "allocator ended",
                     "ReleaseBuffer(buffer3)", "allocator ended", "config1 ended", "config2 ended"}))
        << "what was pending is dropped, not delivered";

    { const NetworkStreamCreator unused(&m_detector); }
    EXPECT_EQ(takeTexts().size(), 2U) << "a creator without streams writes its own lines only";
}

// The worker delivers the last access unit through the notifier while the creator is being destroyed.
TEST_P(NetworkStreamCreatorTest, DestructionWaitsForARunningWorker) {
    IMediaConsumer* const consumer = announce({kVideo, 96});
    ScriptedSdk::play(*consumer, {{1, 2, 3}, 0});
    m_creator->receivers().front()->forceEndOfStream();
    m_creator.reset();
    EXPECT_EQ(m_video.takeDelivered(), (std::vector<DeliveredUnit>{{{1, 2, 3}, 0}}));
    EXPECT_EQ(m_video.takeStatuses(), std::vector<HRESULT>{KV_S_STREAM_ENDED});
}

// Announcements on several threads, and walks of the receivers on another: each stream gets its own notifier.
TEST_P(NetworkStreamCreatorTest, AnnouncementsAndWalksMayMeet) {
    constexpr int kThreads = 3;
    constexpr int kRounds = 40;
    std::vector<std::thread> threads;
    threads.reserve(kThreads + 1);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (int round = 0; round < kRounds; ++round) {
                EXPECT_NE(announce({thread == 0 ? kAudio : kVideo, thread == 0 ? 99U : 96U}), nullptr);
            }
            CoUninitialize();
        });
    }
    threads.emplace_back([this] {
        for (int round = 0; round < kRounds; ++round) {
            for (NetworkStreamReceiver* const receiver : m_creator->receivers()) {
                receiver->resetForStart();
            }
            m_creator->releaseAllPendingSamples();
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(m_creator->receivers().size(), static_cast<std::size_t>(kThreads * kRounds));
}

INSTANTIATE_TEST_SUITE_P(Creators, NetworkStreamCreatorTest, testing::Bool(),
                         [](const auto& test) { return test.param ? "Rtmp" : "Other"; });

} // namespace
