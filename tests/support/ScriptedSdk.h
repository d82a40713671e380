#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "StreamingSdk.h"

// The streaming SDK of the tests: its entry points, doing what a test says, with every call recorded in the
// CallLog. Clients, consumers and buffers are named client1, client2, ... in the order in which they were
// made, given or lent. A status of 0 is success, 11 for the socket layer.
namespace ScriptedSdk {

using MainConcept::NetworkStreaming::IMediaConsumer;
using MainConcept::NetworkStreaming::INetStreamCreator;

// An elementary stream as a client announces it.
struct Announcement {
    std::uint32_t mediaKind = MainConcept::NetworkStreaming::keMediaVideo;
    std::uint32_t streamType = MainConcept::NetworkStreaming::keStreamTypeH264;
    std::vector<std::uint8_t> codecConfig = {};
    std::uint32_t audioSamplingRate = 0;
    std::uint32_t audioChannels = 0;
};

// Forgets every script and number. From now on every client announces these streams in Init, from a thread of
// its own, before Init returns.
void reset(std::vector<Announcement> announcements = {});

// The next call of the named operation ("StartSocketService", "Init", "Shutdown", ...) returns `status`,
// after `skip` more that succeed. Of those that return an object it is none: a client, an allocator, or a
// buffer, whose capacity is `status` then.
void failCall(const std::string& call, std::uint32_t status, int skip = 0);
// Whether a failure of that call has not happened yet.
[[nodiscard]] bool isFailurePending(const std::string& call);

// What is left of all that was made, and what was done wrong since the program began: operations of a client
// called from inside one of its own callbacks, or a release before its end or with a callback still running;
// buffers given back that were not lent.
struct Remains {
    int services = 0; // successful starts of the socket layer without a stop
    int clients = 0;
    int allocators = 0;
    int buffers = 0; // lent
    int misuses = 0;

    bool operator==(const Remains&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const Remains& remains) {
        return stream << remains.services << " services, " << remains.clients << " clients, "
                      << remains.allocators << " allocators, " << remains.buffers << " buffers, "
                      << remains.misuses << " misuses";
    }
};
[[nodiscard]] Remains remains();

// Of the newest client: its creator, and the consumers that it got from that.
[[nodiscard]] INetStreamCreator& lastCreator();
[[nodiscard]] std::vector<IMediaConsumer*> consumers();

// Runs `callback` on a thread of the newest client. The client's Stop and Shutdown wait for it, as those of a
// real client wait for the delivery under way.
void runOnClientThread(std::function<void()> callback);
// Waits up to 30 s until no such thread is left; false when one is.
[[nodiscard]] bool waitForClientThreads();

// Plays one buffer through a consumer as the SDK does: GetBuffer, fill, OnData. Without a buffer from the
// consumer nothing is handed on and false is returned.
struct Sample {
    std::vector<std::uint8_t> bytes;
    std::uint64_t timeStamp = 0;
    std::uint32_t streamType = MainConcept::NetworkStreaming::keStreamTypeH264;
    std::uint8_t sampleValid = 1;
    std::uint8_t discard = 0;
};
bool play(IMediaConsumer& consumer, const Sample& sample);

void notify(IMediaConsumer& consumer, int type);

// Announces one elementary stream as a client does and returns the creator's consumer. The record is gone
// when the call ends, with the bytes that it points to.
IMediaConsumer* announce(INetStreamCreator& creator, const Announcement& announcement);

} // namespace ScriptedSdk
