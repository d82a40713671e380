#pragma once

// libavformat's log, for the threads of this library only. What other users of libavformat in the process log
// goes where it went before, as long as that was the default.

#include <cstddef>
#include <cstdint>
#include <string>

namespace KorvelVideo::NetworkSource {

// Descriptions of a server that are longer are not read.
inline constexpr std::size_t kLongestDescription = std::size_t{1} << 20;

// What libavformat tells in nothing but its log.
struct LibavObservations {
    unsigned redirects = 0;          // that an RTSP server asked for
    bool descriptionTooLong = false; // a server announced one longer than kLongestDescription
    unsigned byes = 0;               // RTP streams whose sender said good-bye
    std::uint64_t missed = 0;        // RTP packets that never came
    std::string lastError;
};

// While an object lives, what libavformat logs on this thread goes into `observations` and nowhere else.
class LibavLogScope {
public:
    explicit LibavLogScope(LibavObservations& observations) noexcept;
    LibavLogScope(const LibavLogScope&) = delete;
    LibavLogScope& operator=(const LibavLogScope&) = delete;
    ~LibavLogScope();

private:
    LibavObservations* const m_outer;
};

// Keeps the log redirected; the last one that ends restores the default. Every LibavInput holds one.
class LibavLogRedirection {
public:
    LibavLogRedirection();
    LibavLogRedirection(const LibavLogRedirection&) = delete;
    LibavLogRedirection& operator=(const LibavLogRedirection&) = delete;
    ~LibavLogRedirection();
};

} // namespace KorvelVideo::NetworkSource
