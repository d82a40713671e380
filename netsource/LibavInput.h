#pragma once

// One opened input of libavformat: opening, reading and closing that can be interrupted, with the limits that
// input from the network needs. One thread at a time; may be handed from thread to thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LibavLog.h"
#include "StreamingSdk.h"

struct AVFormatContext;
struct AVPacket;

namespace KorvelVideo::NetworkSource {

using MainConcept::NetworkStreaming::ClientStatus;

struct AvPacketDeleter {
    void operator()(AVPacket* packet) const noexcept;
};
using AvPacketPtr = std::unique_ptr<AVPacket, AvPacketDeleter>;

class LibavInput {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    // Asked many times a second while a call blocks; true ends the call.
    using StopTest = std::function<bool()>;

    struct Request {
        std::string url;         // empty when `description` is given
        std::string description; // session description text
        const char* format = ""; // libavformat's name of the demuxer; the only one allowed
        const char* protocols = "";
        std::vector<std::pair<const char*, std::string>> options;
    };

    static constexpr unsigned kMostRedirects = 5;

    LibavInput() = default;
    LibavInput(const LibavInput&) = delete;
    LibavInput& operator=(const LibavInput&) = delete;
    // Closes; says good-bye to the peer, but waits no more than a moment for it.
    ~LibavInput();

    // Opens within `deadline`. On failure `failure()` says what happened.
    [[nodiscard]] ClientStatus open(const Request& request, TimePoint deadline, StopTest stop);

    enum class ReadResult { packet, stopped, endOfStream, disconnected };
    // Reads the next packet.
    [[nodiscard]] ReadResult read(AVPacket& packet, const StopTest& stop);

    [[nodiscard]] AVFormatContext& context() const noexcept { return *m_context; }
    [[nodiscard]] const LibavObservations& observations() const noexcept { return m_observations; }
    // Why the last call failed, in words, without credentials.
    [[nodiscard]] const std::string& failure() const noexcept { return m_failure; }

private:
    struct ContextDeleter {
        void operator()(AVFormatContext* context) const noexcept;
    };
    static int interruptCallback(void* opaque) noexcept;
    [[nodiscard]] bool mustStop() noexcept;
    [[nodiscard]] ClientStatus failed(int error);

    const LibavLogRedirection m_redirection;
    LibavObservations m_observations;
    StopTest m_stop;
    TimePoint m_deadline = TimePoint::max();
    bool m_stopped = false;
    bool m_timedOut = false;
    std::string m_failure;
    std::unique_ptr<AVFormatContext, ContextDeleter> m_context;
};

// The text with what stands between "://" and '@' hidden.
[[nodiscard]] std::string withoutCredentials(std::string text);

} // namespace KorvelVideo::NetworkSource
