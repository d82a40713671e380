#pragma once

#include "GenericVideoStreamNotifier.h"

namespace KorvelVideo::Network {

// Delivers an H.264 stream as GenericVideoStreamNotifier does, bytes unchanged, but locks the filled surface
// once more before it completes it: a host that refuses the second lock does not get the surface back.
class AvcStreamNotifier final : public GenericVideoStreamNotifier {
public:
    using GenericVideoStreamNotifier::GenericVideoStreamNotifier;
    ~AvcStreamNotifier() override;

    // The host sees ProvideVideoSurface, Lock, Lock, SetTimeStampInfo, SignalWriteCompletion,
    // DeliverVideoSurface and the release of the notifier's reference; nothing at all for an access unit of 0
    // bytes.
    void notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) override;
};

} // namespace KorvelVideo::Network
