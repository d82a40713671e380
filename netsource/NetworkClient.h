#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "ConsumerSink.h"
#include "ConsumerTable.h"
#include "NetworkClientCounters.h"
#include "Source.h"
#include "StreamingSdk.h"

namespace KorvelVideo::NetworkSource {

// The client behind CreateNetworkClient: one source and the consumers of its streams. The operations of one
// client are called one at a time; any of them may be called from inside a consumer's or the host's callback.
class NetworkClient final : public MainConcept::NetworkStreaming::SdkNetworkClient {
public:
    using Creator = MainConcept::NetworkStreaming::INetStreamCreator;
    using Consumer = MainConcept::NetworkStreaming::IMediaConsumer;
    using ParameterType = MainConcept::NetworkStreaming::_tagMCNetClientParamType;

    // What a test replaces.
    struct Surroundings {
        std::function<std::shared_ptr<Source>(const std::string& url)> makeSource;
        ConsumerSink::Clock clock;
        std::chrono::milliseconds openLimit;
    };
    [[nodiscard]] static Surroundings systemSurroundings();

    NetworkClient(Creator& creator, void* receiver, Surroundings surroundings);

    std::uint32_t Release() override;
    // keClientInvalidParameter (the URL, or a second Init), keClientUnknownHost, keClientNotFound (no such
    // interface, local address or stream), keClientAccessDenied, keClientConnectionRefused,
    // keClientConnectionFailed, keClientTimedOut (after 10 s), keClientNotSupported, keClientOutOfMemory;
    // each with one log line that names what is wrong. Announces every stream on a thread of the client's
    // own, which has COM initialised, and returns after that.
    std::uint32_t Init(const char* url, const char* networkInterfaceCard) override;
    // Of the arguments only the values that the module passes are supported.
    std::uint32_t Play(double start, double end, double speed) override;
    // Returns within 200 ms whatever the sender does. A call to a consumer that is in progress on another
    // thread is waited for, because the consumer may be destroyed afterwards.
    std::uint32_t Stop() override;
    // Counts from the next Play on. A wrong size gives keClientInvalidParameter, an unknown parameter
    // keClientNotSupported.
    std::uint32_t SetParameter(ParameterType parameterType, const void* value,
                               std::int32_t valueSize) override;
    // Also while playing. keClientNotFound for a consumer of another client.
    std::uint32_t EnableConsumer(Consumer* consumer, std::int32_t first, const std::uint8_t* enabled,
                                 std::int32_t last) override;
    std::uint32_t Shutdown() override;

    void ReservedSlot0() override {}
    void ReservedSlot1() override {}
    void ReservedSlot3() override {}
    void ReservedSlot6() override {}
    void ReservedSlot9() override {}
    void ReservedSlot11() override {}
    void ReservedSlot12() override {}

    // All but the number. Any thread.
    void fillCounters(ClientCounters& counters) const;

private:
    struct Opening;

    ~NetworkClient();

    static void openAndAnnounce(const std::shared_ptr<Opening>& opening);
    static std::shared_ptr<ConsumerTable> announce(const Source& source, Creator& creator);

    Creator& m_creator;
    void* const m_receiver;
    const Surroundings m_surroundings;
    std::atomic<std::uint32_t> m_references{1};
    SourceParameters m_parameters;
    std::shared_ptr<ConsumerSink> m_sink; // while playing

    mutable std::mutex m_mutex; // guards what the counters query reads
    std::string m_shownUrl;
    bool m_playing = false;
    std::shared_ptr<Source> m_source;           // once opened
    std::shared_ptr<ConsumerTable> m_consumers; // once announced
};

} // namespace KorvelVideo::NetworkSource
