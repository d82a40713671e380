#pragma once

#include <atomic>
#include <cstdint>
#include <deque>

#include "Counter.h"
#include "StreamingSdk.h"

namespace KorvelVideo::NetworkSource {

// One announced stream and its consumer. Any thread.
struct ConsumerEntry {
    ConsumerEntry(std::uint32_t type, MainConcept::NetworkStreaming::IMediaConsumer* taker)
        : streamType(type), consumer(taker) {}

    const std::uint32_t streamType;
    // Owned by the stream creator; null when the stream is not taken.
    MainConcept::NetworkStreaming::IMediaConsumer* const consumer;
    std::atomic<bool> enabled{false};
    Counter bytes;
    Counter buffers;
    std::atomic<std::int64_t> lastData{0}; // nanoseconds of the monotonic clock; 0: none yet
};

// All announced streams of one client, numbered as the source numbers them. Complete before any is played.
using ConsumerTable = std::deque<ConsumerEntry>;

} // namespace KorvelVideo::NetworkSource
