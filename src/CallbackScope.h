#pragma once

namespace KorvelVideo::Network {

// Marks a call of the network client, or of a worker, during which the host may be called. What has to wait
// for that call to return, such as closing its client, must not be done inside it.
class CallbackScope {
public:
    CallbackScope() noexcept;
    ~CallbackScope();
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    // Whether the calling thread is inside such a call, of whatever stream.
    [[nodiscard]] static bool isActive() noexcept;
};

} // namespace KorvelVideo::Network
