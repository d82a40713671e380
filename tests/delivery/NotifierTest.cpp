#include <memory>
#include <stdexcept>

#include "AvcStreamNotifier.h"
#include "GenericAudioStreamNotifier.h"
#include "GenericVideoStreamNotifier.h"
#include "KvVaneException.h"
#include "LatmStreamNotifier.h"
#include "NotifierFixture.h"

// What the four notifiers have in common: an access unit of eight bytes on its way to a host that may fail.

using namespace KorvelVideo::Network;

namespace {

using Notifier = std::unique_ptr<IAudioVideoReceptionNotifier>;

template <class VideoNotifier>
Notifier makeVideo(RecordingSink* sink) {
    return std::make_unique<VideoNotifier>(sink);
}
template <class AudioNotifier>
Notifier makeAudio(RecordingSink* sink) {
    Bytes config{0x11, 0x90};
    return std::make_unique<AudioNotifier>(sink, config.data(), 2);
}

struct Kind {
    Notifier (*make)(RecordingSink*);
    std::vector<Bytes> pieces; // of which the payload is kPayload
};

const Bytes kPayload{1, 2, 3, 4, 5, 6, 7, 8};
const std::vector<Bytes> kPlain{{1, 2, 3}, {}, {4, 5, 6, 7, 8}};
const std::map<std::string, Kind> kKinds{
    {"GenericVideo", {makeVideo<GenericVideoStreamNotifier>, kPlain}},
    {"Avc", {makeVideo<AvcStreamNotifier>, kPlain}},
    {"GenericAudio", {makeAudio<GenericAudioStreamNotifier>, kPlain}},
    {"Latm", {makeAudio<LatmStreamNotifier>, {{3, 1, 2, 3}, {0}, {5, 4, 5, 6, 7, 8}}}}};

class NotifierTest : public NotifierFixture {
protected:
    // Lets the named call of the host fail or throw.
    void arrange(const std::string& call, const std::string& how) {
        if (how == "throws") { // as a host does that redirects inside the call
            m_sink.during(call, [] {
                throw CKvVaneException("src/Host", "host", 1, "Redirect", KV_E_INVALID_PROTOCOL);
            });
        } else if (call != "nothing") {
            const std::int64_t result = call != "capacity" ? kvResult(0x80070005) : how == "more" ? 100 : -1;
            m_sink.script.fail(call, result, 2, how == "second" ? 1 : 0);
        }
    }
};

// A row is the life of a notifier: the kind, what fails and how; all calls and all that is logged.
TEST_F(NotifierTest, EachFailureOfTheHostLosesOnlyItsOwnAccessUnit) {
    for (const auto& [row, expected] : readSections("delivery/host-failures.txt")) {
        SCOPED_TRACE(row);
        std::istringstream words(row);
        std::string kindName;
        std::string call;
        std::string how;
        words >> kindName >> call >> how;
        const Kind& kind = kKinds.at(kindName);
        std::vector<Bytes> pieces = kind.pieces;
        RecordingCodecConfiguration::created = 0;
        m_sink.restart();
        Notifier notifier = kind.make(&m_sink);
        arrange(call, how);
        notifier->notifyReception(unitOver(pieces), 9);
        const std::string life = takeText();
        EXPECT_EQ(m_sink.liveBuffers(), 0);
        m_sink.restart();
        notifier->notifyReception(unitOver(pieces), 1ULL << 40);
        EXPECT_EQ(m_sink.takeDelivered().back(), (DeliveredUnit{kPayload, 1ULL << 40}));
        forget();
        notifier.reset();
        EXPECT_EQ(life + takeText(), expected);
    }
}

TEST_F(NotifierTest, WhatIsNeverAskedOfTheHost) {
    for (const auto& [name, kind] : kKinds) {
        SCOPED_TRACE(name);
        forget();
        EXPECT_THROW(kind.make(nullptr), CKvVaneException);
        EXPECT_EQ(takeText(), "") << "a null sink is refused before anything else";
        const Notifier notifier = kind.make(&m_sink);
        forget();
        // Lengths only: nothing may be read before the sum is known. Neither is a length prefix.
        std::uint8_t bytes[9] = {1};
        notifier->notifyReception({{bytes, 0xFFFFFFFF}, {bytes, 9}}, 1);
        EXPECT_EQ(takeCalls(), Calls{});
        const auto exceptions = RecordingLogger::takeExceptions();
        ASSERT_EQ(exceptions.size(), 1U);
        EXPECT_EQ(exceptions[0].m_result, KV_E_BUFFER_SIZE_TOO_SMALL);
        for (const AccessUnit& empty : {AccessUnit{}, AccessUnit{{bytes, 0}}}) {
            notifier->notifyReception(empty, 1);
            EXPECT_EQ(takeCalls().empty(), name != "Latm") << "only what is framed may be empty";
        }
    }
}

TEST_F(NotifierTest, AHostThatThrowsLosesNoBuffer) {
    m_sink.during("SetTimeStampInfo", [] { throw std::runtime_error("host"); });
    for (const auto& [name, kind] : kKinds) {
        const Notifier notifier = kind.make(&m_sink);
        std::vector<Bytes> pieces = kind.pieces;
        EXPECT_THROW(notifier->notifyReception(unitOver(pieces), 1), std::runtime_error) << name;
        EXPECT_EQ(m_sink.liveBuffers(), 0) << name;
    }
}

} // namespace
