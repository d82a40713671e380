#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "CKvUnknown.h"
#include "KvNetworkReceiver.h"
#include "NetworkStreamCreator.h"
#include "StreamingSdk.h"

namespace KorvelVideo::Network {

class DeferredWork;

// What the four receivers have in common: it owns one client of the streaming SDK, with the creator that
// answers for the streams which the client finds, and takes it through its life: create, initialise, play,
// stop, shut down, release. The host calls one receiver's operations one at a time.
//
// From inside a callback of this module (on a thread of the client, or of a worker that delivers the end of a
// stream) the client cannot be closed, since that waits for the callback to return. So there
//   Stop        returns 0 at once; a thread of its own stops and closes the client. The sinks may be called
//               until then; the next Stop, Redirect or last Release from outside waits for it.
//   Redirect    opens the new source at once; the old one, and a local port that it holds, is free only some
//               time after the callback has returned.
//   Release     of the last reference returns at once; a thread of its own destroys the receiver. The sinks
//               and the detector callback must live until DllCanUnloadNow no longer counts it.
class BaseReceiver : public TKvObject<IKvNetworkReceiverController> {
public:
    // Opens the source: on return the client has announced its streams and plays nothing yet. `callback` is
    // not owned and must outlive the receiver; `networkInterfaceCard` may be null. With `hasClientOption` the
    // client's parameter 3 is set to `clientOption` whenever a client is created. `name` is for diagnostics.
    // Raises CKvVaneException; what was begun is then undone.
    BaseReceiver(const wchar_t* name, IKvNetworkStreamDetectorCallback* callback, const char* url,
                 const char* networkInterfaceCard, bool hasClientOption, std::uint32_t clientOption);

    // Stops, closes and waits for whatever still runs. Never inside a callback of its own.
    ~BaseReceiver() override;

    // Enables every stream and begins delivery; the result of the client's Play. KV_E_DISCONNECTED when there
    // is no client, after Stop or a failed Redirect: Redirect makes one.
    HRESULT Start() override;

    // Ends delivery and closes the source; the result of the client's Stop. A second call returns 0. Never
    // raises.
    HRESULT Stop() override;

    // Opens another URL of the same protocol. Returns 0 and leaves the receiver not playing, or raises
    // CKvVaneException and leaves it stopped, without a client when the old one was closed already.
    HRESULT Redirect(const char* url) override;

protected:
    // Sets one parameter of the client; raises the mapped status.
    void setOption(MainConcept::NetworkStreaming::_tagMCNetClientParamType parameterType, const void* value,
                   std::int32_t valueSize);
    void setLocalPort(std::uint16_t port);

    // Calls an operation of every stream receiver, in order. A failure is logged and costs that call only.
    void forEachStream(void (NetworkStreamReceiver::*operation)()) noexcept;

    // Runs a step of Redirect that needs the new client; when it raises, the client is closed.
    template <class Step>
    void closeClientOnFailure(Step step) {
        try {
            step();
        } catch (...) {
            releaseClient(m_client);
            throw;
        }
    }

private:
    class Closing;
    class Ending;
    using Client = MainConcept::NetworkStreaming::SdkNetworkClient;

    BaseReceiver(const wchar_t* name, IKvNetworkStreamDetectorCallback* callback,
                 const char* networkInterfaceCard, bool hasClientOption, std::uint32_t clientOption);

    // The last reference has gone.
    void endLife() noexcept override;

    static void validateParameters(const IKvNetworkStreamDetectorCallback* callback, const char* url);
    // "rtp", "rtsp", "udp" or "rtmp", by the first of the words sdp, rtp, rtsp, udp and rtmp, in this order,
    // that occurs anywhere in the URL.
    static std::string getProtocol(const char* url);
    void validateRedirectUrl(const char* url) const;
    void createClient();
    void initializeClient(const char* url, const char* networkInterfaceCard);
    void openAnew(const char* url);
    void deferClosing(bool stopsClient, bool retiresCreator);
    void waitForClosing() noexcept;

    static void releaseAllPendingSamples(NetworkStreamCreator* creator) noexcept;
    static std::uint32_t stopClient(Client*& client, NetworkStreamCreator* creator) noexcept;
    static void releaseClient(Client*& client) noexcept;

    Client* m_client = nullptr;
    IKvNetworkStreamDetectorCallback* m_callback;
    std::string m_networkInterfaceCard;
    std::atomic<bool> m_stopped{true}; // false from the end of the construction on
    std::string m_protocol;
    std::unique_ptr<NetworkStreamCreator> m_streamCreator;
    bool m_hasClientOption;
    std::uint32_t m_clientOption;
    bool m_socketServiceStarted = false;
    std::shared_ptr<DeferredWork> m_closing; // the last that was begun inside a callback
    std::shared_ptr<Ending> m_ending;        // made beforehand: the last Release must not fail
};

} // namespace KorvelVideo::Network
