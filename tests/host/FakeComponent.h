#pragma once

// The four factory classes, played by a script: they announce streams, deliver access units and send status
// codes, each on a thread of its own, as the real ones do.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KvNetworkReceiver.h"

namespace KorvelVideo::Host {

struct FakeStream {
    EKvStreamType type = keKvStreamTypeTransportStream;
    std::vector<std::string> units;
    std::vector<HRESULT> statuses; // after the units
};

struct FakeScript {
    HRESULT openResult = S_OK;
    HRESULT startResult = S_OK;
    std::vector<FakeStream> streams;
    // Redirect announces these, or throws its code when that is negative.
    HRESULT redirectResult = S_OK;
    std::vector<FakeStream> redirectStreams;
    std::function<void()> whileOpening;
};

// Registers the classes for as long as it lives.
class FakeComponent {
public:
    explicit FakeComponent(FakeScript script);
    FakeComponent(const FakeComponent&) = delete;
    FakeComponent& operator=(const FakeComponent&) = delete;
    ~FakeComponent();

    // What was called, in order: "rtsp create URL interface port", "start", "stop", "redirect URL", "end".
    [[nodiscard]] std::vector<std::string> calls() const;

private:
    std::vector<DWORD> m_cookies;
};

} // namespace KorvelVideo::Host
