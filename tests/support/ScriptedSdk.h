#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "StreamingSdk.h"

// The streaming SDK of the tests: its entry points, doing what a test says and recording each call in the
// CallLog. Buffers are named buffer1, buffer2, ... in the order in which they were lent.
namespace ScriptedSdk {

// Forgets every script and counter; expects that no buffer is lent and no allocator alive.
void reset();

// The next allocator is not created.
void failNextAllocatorCreation();
// The next buffer is not lent; `capacity` is reported all the same.
void failNextAllocation(std::uint32_t capacity = 0);
// The next ConfirmBufferSize fails.
void failNextConfirmation();
// While off, allocator calls are not recorded.
void setRecording(bool recording);

[[nodiscard]] int liveAllocators();
// Buffers lent and not given back, and how often a buffer was given back that was not lent.
[[nodiscard]] int lentBuffers();
[[nodiscard]] int wrongReleases();

// Plays one buffer through a consumer as the SDK does: GetBuffer, fill, OnData. Without a buffer from the
// consumer nothing is handed on and false is returned.
struct Sample {
    std::vector<std::uint8_t> bytes;
    std::uint64_t timeStamp = 0;
    std::uint32_t streamType = MainConcept::NetworkStreaming::keStreamTypeH264;
    std::uint8_t sampleValid = 1;
    std::uint8_t discard = 0;
};
bool play(MainConcept::NetworkStreaming::IMediaConsumer& consumer, const Sample& sample);

void notify(MainConcept::NetworkStreaming::IMediaConsumer& consumer, int type);

// Announces one elementary stream as a client does and returns the creator's consumer. The record is gone
// when the call ends, with the bytes that it points to.
struct Announcement {
    std::uint32_t mediaKind = MainConcept::NetworkStreaming::keMediaVideo;
    std::uint32_t streamType = MainConcept::NetworkStreaming::keStreamTypeH264;
    std::vector<std::uint8_t> codecConfig = {};
    std::uint32_t audioSamplingRate = 0;
    std::uint32_t audioChannels = 0;
};
MainConcept::NetworkStreaming::IMediaConsumer*
announce(MainConcept::NetworkStreaming::INetStreamCreator& creator, const Announcement& announcement);

} // namespace ScriptedSdk
