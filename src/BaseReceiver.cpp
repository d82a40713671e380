#include "BaseReceiver.h"

#include <array>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "CallbackScope.h"
#include "DeferredWork.h"
#include "Logging.h"
#include "Raise.h"
#include "RtmpNetworkStreamCreator.h"
#include "StatusTables.h"

namespace KorvelVideo::Network {

using MainConcept::NetworkStreaming::_tagMCNetClientParamType;
using MainConcept::NetworkStreaming::kSocketServiceOk;
using MainConcept::NetworkStreaming::SdkClientSettings;

namespace {

// Runs a step of a stop, which goes on when the step fails.
template <class Step>
void attempt(Step step) {
    try {
        step();
    } catch (const CKvBaseException& exception) {
        logText(kCategoryFailure, kLevelError, KV_SITE, exception.getMessage());
    } catch (const std::exception& exception) {
        logText(kCategoryFailure, kLevelError, KV_SITE, exception.what());
    } catch (...) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "Unknown exception in a step of a stop.");
    }
}

} // namespace

// Closes a client after the callback inside which that was asked for; then the creator, when the receiver
// has given it up.
class BaseReceiver::Closing final : public DeferredWork {
public:
    Closing(Client* client, NetworkStreamCreator* creator, bool stopsClient,
            std::shared_ptr<DeferredWork> earlier) noexcept
        : m_client(client), m_creator(creator), m_stopsClient(stopsClient), m_earlier(std::move(earlier)) {}

    void retire(std::unique_ptr<NetworkStreamCreator> creator) noexcept {
        m_retiredCreator = std::move(creator);
    }

private:
    void run() noexcept override {
        if (m_earlier != nullptr) {
            m_earlier->wait();
            m_earlier.reset();
        }
        if (m_stopsClient) {
            static_cast<void>(stopClient(m_client, m_creator));
        } else {
            releaseAllPendingSamples(m_creator);
            releaseClient(m_client);
        }
        m_retiredCreator.reset();
    }

    Client* m_client;
    NetworkStreamCreator* m_creator;
    bool m_stopsClient;
    std::shared_ptr<DeferredWork> m_earlier;
    std::unique_ptr<NetworkStreamCreator> m_retiredCreator;
};

// Destroys a receiver after the callback inside which its last reference was released.
class BaseReceiver::Ending final : public DeferredWork {
public:
    explicit Ending(BaseReceiver* receiver) noexcept : m_receiver(receiver) {}

private:
    void run() noexcept override { delete m_receiver; }

    BaseReceiver* m_receiver;
};

BaseReceiver::BaseReceiver(const wchar_t* name, IKvNetworkStreamDetectorCallback* callback,
                           const char* networkInterfaceCard, bool hasClientOption, std::uint32_t clientOption)
    : TKvObject(name, nullptr), m_callback(callback),
      m_networkInterfaceCard(networkInterfaceCard != nullptr ? networkInterfaceCard : ""),
      m_hasClientOption(hasClientOption), m_clientOption(clientOption),
      m_ending(std::make_shared<Ending>(this)) {}

// The constructor that it delegates to has finished, so a failure below runs the destructor.
BaseReceiver::BaseReceiver(const wchar_t* name, IKvNetworkStreamDetectorCallback* callback, const char* url,
                           const char* networkInterfaceCard, bool hasClientOption, std::uint32_t clientOption)
    : BaseReceiver(name, callback, networkInterfaceCard, hasClientOption, clientOption) {
    validateParameters(m_callback, url);
    m_protocol = getProtocol(url);
    KV_THROW_IF_SDK_CALL_FAILED(mapSocketServiceStatus, StartSocketService());
    m_socketServiceStarted = true;
    createClient();
    initializeClient(url, networkInterfaceCard);
    m_stopped = false;
}

BaseReceiver::~BaseReceiver() {
    if (m_closing != nullptr) {
        m_closing->wait();
    }
    if (!m_stopped.exchange(true)) {
        forEachStream(&NetworkStreamReceiver::setStopCalled);
        if (mapNetworkStatus(stopClient(m_client, m_streamCreator.get())) < 0) {
            logText(kCategoryFailure, kLevelError, KV_SITE, "Error stopping RtspReceiver.");
        }
    }
    releaseAllPendingSamples(m_streamCreator.get());
    releaseClient(m_client);
    // Paired with the start: a construction that failed before it has nothing to stop.
    if (m_socketServiceStarted && StopSocketService() != kSocketServiceOk) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "Error stopping socket service.");
    }
}

void BaseReceiver::endLife() noexcept {
    if (CallbackScope::isActive()) {
        DeferredWork::start(m_ending);
    } else {
        delete this;
    }
}

HRESULT BaseReceiver::Start() {
    if (m_client == nullptr) {
        return KV_E_DISCONNECTED;
    }
    try {
        const auto receivers = m_streamCreator->receivers();
        m_stopped = false;
        for (NetworkStreamReceiver* const receiver : receivers) {
            const std::uint8_t enabled = 1;
            if (m_client->EnableConsumer(receiver, 0, &enabled, 1) != 0) {
                logText(kCategoryFailure, kLevelError, KV_SITE, "Error enabling receiver.");
            }
            receiver->resetForStart();
        }
    } catch (const std::bad_alloc&) {
        return KV_E_OUT_OF_MEMORY;
    }
    return mapNetworkStatus(m_client->Play(0.0, -1.0, 1.0));
}

HRESULT BaseReceiver::Stop() {
    // Set first: a callback that stops while this waits for it finds nothing left to do.
    if (m_stopped.exchange(true)) {
        waitForClosing();
        return S_OK;
    }
    forEachStream(&NetworkStreamReceiver::setStopCalled);
    if (!CallbackScope::isActive()) {
        const HRESULT result = mapNetworkStatus(stopClient(m_client, m_streamCreator.get()));
        waitForClosing(); // of a source that a redirect inside a callback left
        return result;
    }
    try {
        deferClosing(true, false);
        return S_OK;
    } catch (const std::bad_alloc&) {
        m_stopped = false;
        return KV_E_OUT_OF_MEMORY;
    }
}

HRESULT BaseReceiver::Redirect(const char* url) {
    if (!m_stopped) {
        static_cast<void>(Stop());
    }
    if (!m_stopped) { // no memory to stop inside a callback: the source plays on
        KV_THROW(KV_E_OUT_OF_MEMORY);
    }
    waitForClosing();
    validateParameters(m_callback, url);
    try {
        validateRedirectUrl(url);
        openAnew(url);
    } catch (const std::bad_alloc&) {
        KV_THROW(KV_E_OUT_OF_MEMORY);
    }
    return S_OK;
}

void BaseReceiver::openAnew(const char* url) {
    if (CallbackScope::isActive()) {
        deferClosing(false, true);
    } else {
        releaseAllPendingSamples(m_streamCreator.get());
        releaseClient(m_client);
    }
    closeClientOnFailure([this, url] {
        createClient();
        initializeClient(url, m_networkInterfaceCard.empty() ? nullptr : m_networkInterfaceCard.c_str());
    });
}

void BaseReceiver::validateParameters(const IKvNetworkStreamDetectorCallback* callback, const char* url) {
    if (callback == nullptr || url == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
}

std::string BaseReceiver::getProtocol(const char* url) {
    struct Word {
        std::string_view word;
        const char* protocol;
    };
    // A session description stands for its RTP streams. The order decides: an RTSP address whose path ends in
    // .sdp is "rtp".
    static constexpr std::array<Word, 5> words{
        {{"sdp", "rtp"}, {"rtp", "rtp"}, {"rtsp", "rtsp"}, {"udp", "udp"}, {"rtmp", "rtmp"}}};
    const std::string_view text(url);
    for (const Word& candidate : words) {
        if (text.find(candidate.word) != std::string_view::npos) {
            return candidate.protocol;
        }
    }
    KV_THROW(KV_E_INVALID_PARAMETER);
}

void BaseReceiver::validateRedirectUrl(const char* url) const {
    if (getProtocol(url) != m_protocol) {
        KV_THROW(KV_E_INVALID_PROTOCOL);
    }
}

void BaseReceiver::createClient() {
    if (m_protocol == "rtmp") {
        m_streamCreator = std::make_unique<RtmpNetworkStreamCreator>(m_callback);
    } else {
        m_streamCreator = std::make_unique<NetworkStreamCreator>(m_callback);
    }
    SdkClientSettings settings{};
    settings.receiver = this;
    m_client = CreateNetworkClient(m_streamCreator.get(), &settings);
    if (m_client == nullptr) {
        KV_THROW(KV_E_CONNECTION_FAILED);
    }
    if (m_hasClientOption) {
        setOption(MainConcept::NetworkStreaming::keParameterOption, &m_clientOption, sizeof(m_clientOption));
    }
}

void BaseReceiver::initializeClient(const char* url, const char* networkInterfaceCard) {
    KV_THROW_IF_SDK_CALL_FAILED(mapNetworkStatus, m_client->Init(url, networkInterfaceCard));
}

void BaseReceiver::setOption(_tagMCNetClientParamType parameterType, const void* value,
                             std::int32_t valueSize) {
    KV_THROW_IF_SDK_CALL_FAILED(mapNetworkStatus, m_client->SetParameter(parameterType, value, valueSize));
}

void BaseReceiver::setLocalPort(std::uint16_t port) {
    setOption(MainConcept::NetworkStreaming::keParameterLocalPort, &port, sizeof(port));
}

void BaseReceiver::forEachStream(void (NetworkStreamReceiver::*operation)()) noexcept {
    if (m_streamCreator == nullptr) {
        return;
    }
    try {
        for (NetworkStreamReceiver* const receiver : m_streamCreator->receivers()) {
            attempt([receiver, operation] { (receiver->*operation)(); });
        }
    } catch (const std::bad_alloc&) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "No memory to walk the streams.");
    }
}

void BaseReceiver::deferClosing(bool stopsClient, bool retiresCreator) {
    auto closing = std::make_shared<Closing>(m_client, m_streamCreator.get(), stopsClient, m_closing);
    m_client = nullptr;
    if (retiresCreator) {
        closing->retire(std::move(m_streamCreator));
    }
    m_closing = closing;
    DeferredWork::start(std::move(closing));
}

// Inside a callback there is no waiting: the closing may be waiting for that callback.
void BaseReceiver::waitForClosing() noexcept {
    if (m_closing != nullptr && !CallbackScope::isActive()) {
        m_closing->wait();
        m_closing.reset();
    }
}

// A wait that fails costs nothing but itself: the stream receivers give the rest back when they end.
void BaseReceiver::releaseAllPendingSamples(NetworkStreamCreator* creator) noexcept {
    if (creator != nullptr) {
        attempt([creator] { creator->releaseAllPendingSamples(); });
    }
}

std::uint32_t BaseReceiver::stopClient(Client*& client, NetworkStreamCreator* creator) noexcept {
    if (client == nullptr) {
        return MainConcept::NetworkStreaming::keClientOk;
    }
    const std::uint32_t status = client->Stop();
    releaseAllPendingSamples(creator);
    releaseClient(client);
    return status;
}

void BaseReceiver::releaseClient(Client*& client) noexcept {
    if (client == nullptr) {
        return;
    }
    if (client->Shutdown() != 0) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "Error shutting down network client.");
    }
    if (client->Release() != 0) {
        logText(kCategoryFailure, kLevelError, KV_SITE,
                "Network client not released because the reference count was not 0.");
    }
    client = nullptr;
}

} // namespace KorvelVideo::Network
