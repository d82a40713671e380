#include "RtmpNetworkStreamCreator.h"

#include "CallbackScope.h"
#include "Logging.h"
#include "RtmpNetworkStreamReceiver.h"

namespace KorvelVideo::Network {

using MainConcept::NetworkStreaming::IMCPlaylistItemQualitySelector;
using MainConcept::NetworkStreaming::IMediaConsumer;

IMediaConsumer* RtmpNetworkStreamCreator::OnCreateConsumerForNetStream(
    MediaInfo* mediaInfo, IMCPlaylistItemQualitySelector* /*selector*/, std::uint32_t /*value*/) {
    const CallbackScope scope;
    try {
        IAudioVideoReceptionNotifier* const notifier = createElementaryStreamNotifier(mediaInfo);
        if (notifier == nullptr) {
            logUnsupportedStream(*mediaInfo, KV_SITE);
            return nullptr;
        }
        return addReceiver(std::make_unique<RtmpNetworkStreamReceiver>(notifier));
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
        return nullptr;
    }
}

} // namespace KorvelVideo::Network
