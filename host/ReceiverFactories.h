#pragma once

// Where receivers come from: the four factory classes of the component, created by class identifier.

#include <cstdint>
#include <string>

#include "ComObject.h"
#include "KvNetworkReceiver.h"
#include "Options.h"

namespace KorvelVideo::Host {

// What the settings object of any protocol answers.
struct ReceiverSettings {
    std::string url;
    std::string networkInterface;
    std::int32_t port = 0;
    std::uint32_t clientOption = 0;
};

class ReceiverFactories {
public:
    // Finds the factory of `kind`: its class as registered, else in the module beside the program or in the
    // lib folder next to the program's folder. On failure the text says what was tried. Main thread.
    [[nodiscard]] HRESULT load(ReceiverKind kind, std::string& problem);

    // Asks the factory, which `load` has found, for a receiver. Nothing is thrown. Any thread.
    [[nodiscard]] HRESULT create(ReceiverKind kind, const ReceiverSettings& settings,
                                 IKvNetworkStreamDetectorCallback& callback,
                                 Reference<IKvNetworkReceiverController>& receiver) const noexcept;

private:
    Reference<IKvRtspReceiverFactory> m_rtsp;
    Reference<IKvRtmpReceiverFactory> m_rtmp;
    Reference<IKvRtpReceiverFactory> m_rtp;
    Reference<IKvTsOverUdpReceiverFactory> m_tsOverUdp;
};

} // namespace KorvelVideo::Host
