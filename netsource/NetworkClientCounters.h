#pragma once

// What the clients of libkvnetsource count, for hosts that want to show or watch it. One query gives every
// client that lives in the process. A host that has not linked the library finds the query by its name in the
// library that the module has loaded.

#include <cstddef>
#include <cstdint>

namespace KorvelVideo::NetworkSource {

// One elementary stream, since the client was made.
struct StreamCounters {
    std::uint32_t streamType; // StreamTypeCode of StreamingSdk.h
    std::uint32_t enabled;    // 1 when its consumer is enabled
    std::uint64_t bytes;      // delivered to the consumer
    std::uint64_t buffers;    // the same, in buffers
    // Nanoseconds since the last delivery; kNoDataYet before the first.
    std::uint64_t nanosecondsSinceData;
};

inline constexpr std::uint64_t kNoDataYet = ~std::uint64_t{0};

// One client, since it was made.
struct ClientCounters {
    static constexpr std::size_t kMaxStreams = 8;
    static constexpr std::size_t kMaxUrlSize = 256;

    std::uint32_t size;   // sizeof(ClientCounters), set by the caller in the first record
    std::uint32_t number; // counts the clients of the process from 1
    // SdkClientSettings::receiver.
    void* receiver;
    char url[kMaxUrlSize]; // what Init was given, cut to fit and ended by 0; without a password
    std::uint32_t playing;
    std::uint32_t localPort;        // 0 when the source has none
    std::uint64_t packets;          // datagrams, or packets of a demuxer
    std::uint64_t kernelDrops;      // datagrams the system dropped because the socket buffer was full
    std::uint64_t damaged;          // malformed datagrams or packets, left out
    std::uint64_t rtpLost;          // sequence numbers that never came
    std::uint64_t rtpReordered;     // packets put back into order
    std::uint64_t rtpDuplicates;    // packets that came twice or too late, left out
    std::uint64_t continuityErrors; // transport stream continuity counter jumps and damaged packets
    std::uint64_t unbufferedBytes;  // left out because the consumer lent no buffer
    std::uint32_t streamCount;      // streams that have a consumer; the first kMaxStreams follow
    std::uint32_t reserved;
    StreamCounters streams[kMaxStreams];
};

} // namespace KorvelVideo::NetworkSource

extern "C" {

// Fills up to `capacity` records, one for each client from its creation to its last Release, in order of
// creation, and returns how many clients there are. Writes nothing when `clients` is null, or when the first
// record's size is not the one above. Any thread; blocks no delivery.
std::uint32_t GetNetworkClientCounters(KorvelVideo::NetworkSource::ClientCounters* clients,
                                       std::uint32_t capacity);
}
