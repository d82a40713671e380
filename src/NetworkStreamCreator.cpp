#include "NetworkStreamCreator.h"

#include <exception>
#include <utility>

#include "AudioVideoInformation.h"
#include "AvcStreamNotifier.h"
#include "CallbackScope.h"
#include "GenericAudioStreamNotifier.h"
#include "GenericVideoStreamNotifier.h"
#include "LatmStreamNotifier.h"
#include "Logging.h"
#include "Raise.h"
#include "VideoFormatDetection.h"

namespace KorvelVideo::Network {

using MainConcept::NetworkStreaming::IMCPlaylistItemQualitySelector;
using MainConcept::NetworkStreaming::IMediaConsumer;
using MainConcept::NetworkStreaming::keMediaAudio;
using MainConcept::NetworkStreaming::keMediaVideo;
using MainConcept::NetworkStreaming::keStreamTypeAac;
using MainConcept::NetworkStreaming::keStreamTypeH264;
using MainConcept::NetworkStreaming::keStreamTypeLatm;
using MainConcept::NetworkStreaming::keStreamTypeTransportStream;

NetworkStreamCreator::NetworkStreamCreator(IKvNetworkStreamDetectorCallback* detectorCallback)
    : m_detectorCallback(detectorCallback) {
    logPrintf(kCategoryStream, kLevelLifetime, KV_SITE, "NetworkStreamCreator constructor, this:[%p]",
              static_cast<void*>(this));
}

NetworkStreamCreator::~NetworkStreamCreator() {
    logPrintf(kCategoryStream, kLevelLifetime, KV_SITE, "NetworkStreamCreator destructor,this:[%p]",
              static_cast<void*>(this));
    for (auto& receiver : m_receivers) {
        receiver.reset();
    }
    for (auto& notifier : m_notifiers) {
        notifier.reset();
    }
    m_aacInformations.clear();
    m_h264Informations.clear();
}

IMediaConsumer* NetworkStreamCreator::OnCreateConsumerForNetStream(
    MediaInfo* mediaInfo, IMCPlaylistItemQualitySelector* /*selector*/, std::uint32_t /*value*/) {
    const CallbackScope scope;
    try {
        Information transportStream; // not kept beyond the set-up
        IAudioVideoReceptionNotifier* notifier = createElementaryStreamNotifier(mediaInfo);
        if (notifier == nullptr && isTransportStream(*mediaInfo)) {
            transportStream = new TsInformation;
            notifier = createTransportStreamNotifier(transportStream);
        }
        if (notifier == nullptr) {
            logUnsupportedStream(*mediaInfo, KV_SITE);
            return nullptr;
        }
        return addReceiver(std::make_unique<NetworkStreamReceiver>(notifier));
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
        return nullptr;
    }
}

std::vector<NetworkStreamReceiver*> NetworkStreamCreator::receivers() const {
    const std::lock_guard lock(m_listsLock);
    std::vector<NetworkStreamReceiver*> receivers;
    receivers.reserve(m_receivers.size());
    for (const auto& receiver : m_receivers) {
        receivers.push_back(receiver.get());
    }
    return receivers;
}

void NetworkStreamCreator::releaseAllPendingSamples() {
    std::exception_ptr firstFailure;
    for (NetworkStreamReceiver* const receiver : receivers()) {
        try {
            receiver->releasePendingSamples();
        } catch (...) {
            if (firstFailure == nullptr) {
                firstFailure = std::current_exception();
            }
        }
    }
    if (firstFailure != nullptr) {
        std::rethrow_exception(firstFailure);
    }
}

IAudioVideoReceptionNotifier* NetworkStreamCreator::createAvcNotifier(const MediaInfo& mediaInfo) {
    const AvcConfigurationDescription description =
        describeAvcConfiguration(mediaInfo.codecConfig, mediaInfo.codecConfigLength);
    const Information information(new H264Information(description.format, description.colourClass,
                                                      description.profile, description.level));
    addInformation(m_h264Informations, information);
    IKvVideoCallback* const sink = m_detectorCallback->OnVideoStreamDetected(information);
    return addNotifier(std::make_unique<AvcStreamNotifier>(sink));
}

IAudioVideoReceptionNotifier* NetworkStreamCreator::createGenericAudioNotifier(const MediaInfo& mediaInfo) {
    return createAacNotifier<GenericAudioStreamNotifier>(mediaInfo);
}

IAudioVideoReceptionNotifier* NetworkStreamCreator::createLatmNotifier(const MediaInfo& mediaInfo) {
    return createAacNotifier<LatmStreamNotifier>(mediaInfo);
}

template <class Notifier>
IAudioVideoReceptionNotifier* NetworkStreamCreator::createAacNotifier(const MediaInfo& mediaInfo) {
    const Information information(new AacInformation(mediaInfo.audioSamplingRate, mediaInfo.audioChannels));
    addInformation(m_aacInformations, information);
    IKvAudioCallback* const sink = m_detectorCallback->OnAudioStreamDetected(information);
    return addNotifier(std::make_unique<Notifier>(sink, mediaInfo.codecConfig, mediaInfo.codecConfigLength));
}

IAudioVideoReceptionNotifier*
NetworkStreamCreator::createTransportStreamNotifier(const Information& information) {
    IKvVideoCallback* const sink = m_detectorCallback->OnVideoStreamDetected(information);
    return addNotifier(std::make_unique<GenericVideoStreamNotifier>(sink));
}

IAudioVideoReceptionNotifier*
NetworkStreamCreator::createElementaryStreamNotifier(const MediaInfo* mediaInfo) {
    if (mediaInfo == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    const std::uint32_t streamType = mediaInfo->streamType;
    if (mediaInfo->mediaKind == keMediaVideo && streamType == keStreamTypeH264) {
        return createAvcNotifier(*mediaInfo);
    }
    if (mediaInfo->mediaKind == keMediaAudio && streamType == keStreamTypeAac) {
        return createGenericAudioNotifier(*mediaInfo);
    }
    if (mediaInfo->mediaKind == keMediaAudio && streamType == keStreamTypeLatm) {
        return createLatmNotifier(*mediaInfo);
    }
    return nullptr;
}

bool NetworkStreamCreator::isTransportStream(const MediaInfo& mediaInfo) noexcept {
    return mediaInfo.streamType == keStreamTypeTransportStream &&
           (mediaInfo.mediaKind == keMediaVideo || mediaInfo.mediaKind == keMediaAudio);
}

void NetworkStreamCreator::logUnsupportedStream(const MediaInfo& mediaInfo, const char* sourceFile,
                                                const char* function, std::uint32_t line) {
    if (mediaInfo.mediaKind == keMediaVideo) {
        logText(kCategoryStream, kLevelQuestionable, sourceFile, function, line,
                "Unsupported video stream type.");
    } else if (mediaInfo.mediaKind != keMediaAudio) {
        logText(kCategoryStream, kLevelUnsupported, sourceFile, function, line, "Unsupported stream type.");
    }
}

void NetworkStreamCreator::addInformation(Informations& informations, const Information& information) {
    const std::lock_guard lock(m_listsLock);
    informations.push_back(information);
}

IAudioVideoReceptionNotifier*
NetworkStreamCreator::addNotifier(std::unique_ptr<IAudioVideoReceptionNotifier> notifier) {
    const std::lock_guard lock(m_listsLock);
    m_notifiers.push_back(std::move(notifier));
    return m_notifiers.back().get();
}

IMediaConsumer* NetworkStreamCreator::addReceiver(std::unique_ptr<NetworkStreamReceiver> receiver) {
    const std::lock_guard lock(m_listsLock);
    m_receivers.push_back(std::move(receiver));
    return m_receivers.back().get();
}

} // namespace KorvelVideo::Network
