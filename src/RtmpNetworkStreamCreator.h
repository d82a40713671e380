#pragma once

#include "NetworkStreamCreator.h"

namespace KorvelVideo::Network {

// The stream creator of RTMP sources: every consumer it makes is an RtmpNetworkStreamReceiver, and it takes
// no transport streams.
class RtmpNetworkStreamCreator final : public NetworkStreamCreator {
public:
    using NetworkStreamCreator::NetworkStreamCreator;

    MainConcept::NetworkStreaming::IMediaConsumer*
    OnCreateConsumerForNetStream(MainConcept::NetworkStreaming::_tagMCNetStreamMediaInfo* mediaInfo,
                                 MainConcept::NetworkStreaming::IMCPlaylistItemQualitySelector* selector,
                                 std::uint32_t value) override;
};

} // namespace KorvelVideo::Network
