#include "NetworkStreamCreator.h"

#include <memory>
#include <stdexcept>

#include "CKvUnknown.h"
#include "KvVaneException.h"
#include "NotifierFixture.h"
#include "RtmpNetworkStreamCreator.h"
#include "RtmpNetworkStreamReceiver.h"
#include "RunTogether.h"

using namespace KorvelVideo::Network;
using ScriptedSdk::Announcement;
using ScriptedSdk::IMediaConsumer;

namespace {

constexpr std::uint32_t kAudio = 0;
constexpr std::uint32_t kVideo = 1;

// Both creators, by whether they are RTMP's, which takes no transport stream.
class NetworkStreamCreatorTest : public NotifierFixture, public testing::WithParamInterface<bool> {
protected:
    NetworkStreamCreatorTest() { renew(); }
    ~NetworkStreamCreatorTest() override {
        m_creator.reset();
        EXPECT_EQ(getLiveObjectCount(), 0) << "information objects";
        EXPECT_EQ(m_detector.references(), 0U);
    }

    static bool isRtmp() { return GetParam(); }
    void renew() {
        m_creator.reset();
        forget();
        ScriptedSdk::reset();
        RecordingCodecConfiguration::created = 0;
        m_creator = isRtmp() ? std::make_unique<RtmpNetworkStreamCreator>(&m_detector)
                             : std::make_unique<NetworkStreamCreator>(&m_detector);
    }
    IMediaConsumer* announce(const Announcement& announcement) {
        return ScriptedSdk::announce(*m_creator, announcement);
    }

    RecordingDetector m_detector{&m_sink, &m_audio};
    std::unique_ptr<NetworkStreamCreator> m_creator;
};

// A row is the life of a creator to which one stream is announced, and then a video stream: media kind,
// stream type, sampling rate and channels of the first, its configuration, and what fails; all calls and all
// that is logged.
TEST_P(NetworkStreamCreatorTest, EachKindOfStreamIsDescribedOfferedAndBuiltOrRefused) {
    for (const auto& [row, expected] : readSections("delivery/announcements.txt")) {
        SCOPED_TRACE(row);
        std::istringstream words(row);
        std::string creator;
        std::string configuration;
        std::string failure;
        Announcement announcement;
        words >> creator >> announcement.mediaKind >> announcement.streamType >>
            announcement.audioSamplingRate >> announcement.audioChannels >> configuration >> failure;
        if (creator != (isRtmp() ? "rtmp" : "other")) {
            continue;
        }
        if (configuration != "-") {
            announcement.codecConfig = readBytes("sps/" + configuration + ".sps");
        }
        m_detector.videoSink = failure == "no-sink" ? nullptr : &m_sink;
        m_detector.audioSink = failure == "no-sink" ? nullptr : &m_audio;
        renew();
        ScriptedSdk::failCall("CreateBufferAllocator", 1, failure == "no-allocator" ? 0 : 1000);
        IMediaConsumer* const consumer = announce(announcement);
        CallLog::instance().record(consumer != nullptr ? "-- taken" : "-- refused");
        // The next stream is none the worse: its receiver is built over its own notifier.
        m_detector.videoSink = &m_sink;
        IMediaConsumer* const next = announce({kVideo, 96});
        ASSERT_NE(next, nullptr);
        EXPECT_EQ(dynamic_cast<RtmpNetworkStreamReceiver*>(next) != nullptr, isRtmp());
        ScriptedSdk::notify(*next, 5);
        std::vector<NetworkStreamReceiver*> made{dynamic_cast<NetworkStreamReceiver*>(next)};
        if (consumer != nullptr) {
            made.insert(made.begin(), dynamic_cast<NetworkStreamReceiver*>(consumer));
            ScriptedSdk::play(*consumer, {{1}, 0, announcement.streamType});
        }
        EXPECT_EQ(m_creator->receivers(), made);
        m_creator.reset(); // what is pending is dropped, not delivered
        EXPECT_EQ(takeText(), expected);
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
    EXPECT_EQ(m_creator->OnCreateConsumerForNetStream(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(RecordingLogger::takeExceptions().at(0).m_result, KV_E_INVALID_POINTER);
}

// Announcements on several threads, and walks of the receivers on another: each stream gets its own notifier.
TEST_P(NetworkStreamCreatorTest, AnnouncementsAndWalksMeet) {
    const Unrecorded unrecorded;
    const auto announceOne = [this](std::uint32_t round) {
        EXPECT_NE(announce({round % 2, round % 2 == 0 ? 99U : 96U}), nullptr);
    };
    const auto walk = [this](std::uint32_t) { m_creator->releaseAllPendingSamples(); };
    runTogether(500, {announceOne, announceOne, announceOne, walk});
    EXPECT_EQ(m_creator->receivers().size(), 1500U);
}

INSTANTIATE_TEST_SUITE_P(Creators, NetworkStreamCreatorTest, testing::Bool(),
                         [](const auto& test) { return test.param ? "Rtmp" : "Other"; });

} // namespace
