#pragma once

// What kvreceive says of a run, as texts for people and as JSON lines. Values in, text out.

#include <cstdint>
#include <optional>
#include <string>

#include "Options.h"
#include "StreamDescription.h"

namespace KorvelVideo::Host {

// What a source lost on its way here, as far as the network client counts it.
struct Loss {
    std::uint64_t systemDrops = 0; // datagrams, for lack of room in the socket buffer
    std::uint64_t rtpLost = 0;     // packets that never came
    std::uint64_t damaged = 0;     // packets left out because they are malformed
    std::uint64_t unbufferedBytes = 0;
    std::uint64_t continuityErrors = 0; // transport stream

    bool operator==(const Loss&) const = default;
};

struct StreamReport {
    std::uint32_t stream = 0;
    std::uint32_t source = 0;
    StreamDescription description;
    double bitrate = 0; // bits per second, since the report before
    std::uint64_t units = 0;
    std::uint64_t bytes = 0;
    std::uint64_t timeStamp = 0; // 100 ns units
    std::optional<Seconds> age;  // of the last access unit
    std::optional<Loss> loss;    // of its source
    std::string file;            // empty when nothing is written
    std::uint64_t fileBytes = 0;
    std::uint64_t fileLostUnits = 0;
    std::string fileProblem;
};

// For people, without line feed.
[[nodiscard]] std::string announcementText(const StreamReport& report, const std::string& url);
[[nodiscard]] std::string statusText(std::uint32_t stream, HRESULT code);
[[nodiscard]] std::string statisticsText(const StreamReport& report);
[[nodiscard]] std::string summaryText(const StreamReport& report, Seconds duration);

// JSON objects. `time` is since the program started.
[[nodiscard]] std::string announcementJson(Seconds time, const StreamReport& report, const std::string& url);
[[nodiscard]] std::string statusJson(Seconds time, std::uint32_t stream, HRESULT code);
[[nodiscard]] std::string statisticsJson(Seconds time, const StreamReport& report);
[[nodiscard]] std::string summaryJson(Seconds time, const StreamReport& report, Seconds duration);
[[nodiscard]] std::string endJson(Seconds time, int exitCode);

} // namespace KorvelVideo::Host
