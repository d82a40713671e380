#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "IAudioVideoReceptionNotifier.h"
#include "KvStreamInformation.h"
#include "NetworkStreamReceiver.h"
#include "StreamingSdk.h"
#include "TKvSmartPtr.h"

namespace KorvelVideo::Network {

// Answers the network client for every elementary stream that it announces: describes the stream to the host,
// asks the host for a sink, and makes the notifier that fills the sink and the receiver that the client
// feeds. It owns every notifier and receiver that it made, and keeps the descriptions of H.264 and AAC
// streams, until it is destroyed; nothing is removed before.
//
// Threads: the client announces streams on its own threads while the host's threads walk the receivers. A
// lock guards the lists and is never held while the host, the client or a receiver is called.
class NetworkStreamCreator : public MainConcept::NetworkStreaming::INetStreamCreator {
public:
    // `detectorCallback` is the host's: never null, not owned, no reference taken; it must outlive the
    // creator.
    explicit NetworkStreamCreator(IKvNetworkStreamDetectorCallback* detectorCallback);
    NetworkStreamCreator(const NetworkStreamCreator&) = delete;
    NetworkStreamCreator& operator=(const NetworkStreamCreator&) = delete;

    // Called after the client has been shut down. Destroys the receivers, each of which waits for its worker
    // and gives its buffers back, then the notifiers that they used, then the descriptions.
    ~NetworkStreamCreator() override;

    // The consumer of the announced stream, owned by the creator, or null when the stream is not taken: of an
    // unsupported type, refused by the host, or failed to set up (logged). What was kept for it before the
    // failure stays. Failures other than CKvVaneException pass on to the client.
    MainConcept::NetworkStreaming::IMediaConsumer*
    OnCreateConsumerForNetStream(MainConcept::NetworkStreaming::_tagMCNetStreamMediaInfo* mediaInfo,
                                 MainConcept::NetworkStreaming::IMCPlaylistItemQualitySelector* selector,
                                 std::uint32_t value) override;
    void ReservedSlot2() override {}
    void ReservedSlot3() override {}

    // The receivers made up to now, in creation order, each valid until the creator is destroyed.
    [[nodiscard]] std::vector<NetworkStreamReceiver*> receivers() const;

    // Waits for the worker of each receiver in turn and drops what it has pending. A receiver that fails does
    // not keep the others from it; the first failure is raised at the end.
    void releaseAllPendingSamples();

protected:
    using MediaInfo = MainConcept::NetworkStreaming::_tagMCNetStreamMediaInfo;

    // Describe the stream to the host, make its notifier and keep it as the last one. The notifier is also
    // returned, so that announcements on several threads do not depend on each other.
    IAudioVideoReceptionNotifier* createAvcNotifier(const MediaInfo& mediaInfo);
    IAudioVideoReceptionNotifier* createGenericAudioNotifier(const MediaInfo& mediaInfo);
    IAudioVideoReceptionNotifier* createLatmNotifier(const MediaInfo& mediaInfo);

    // One of the three, as the announcement asks; null for any other stream. Raises KV_E_INVALID_POINTER for
    // a null announcement.
    IAudioVideoReceptionNotifier* createElementaryStreamNotifier(const MediaInfo* mediaInfo);

    // Keeps the receiver and returns it as the consumer.
    MainConcept::NetworkStreaming::IMediaConsumer*
    addReceiver(std::unique_ptr<NetworkStreamReceiver> receiver);

    // The log line, if any, for a stream that is not taken because of its type.
    static void logUnsupportedStream(const MediaInfo& mediaInfo, const char* sourceFile, const char* function,
                                     std::uint32_t line);

private:
    using Information = TKvSmartPtr<IKvNetworkReceiverStreamInformation>;
    using Informations = std::vector<Information>;

    IAudioVideoReceptionNotifier* createTransportStreamNotifier(const Information& information);
    template <class Notifier>
    IAudioVideoReceptionNotifier* createAacNotifier(const MediaInfo& mediaInfo);
    static bool isTransportStream(const MediaInfo& mediaInfo) noexcept;
    void addInformation(Informations& informations, const Information& information);
    IAudioVideoReceptionNotifier* addNotifier(std::unique_ptr<IAudioVideoReceptionNotifier> notifier);

    IKvNetworkStreamDetectorCallback* m_detectorCallback;
    Informations m_h264Informations;
    Informations m_aacInformations;
    std::vector<std::unique_ptr<IAudioVideoReceptionNotifier>> m_notifiers;
    std::vector<std::unique_ptr<NetworkStreamReceiver>> m_receivers;
    mutable std::mutex m_listsLock; // guards the four lists
};

} // namespace KorvelVideo::Network
