#include "LibavSource.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string_view>

#include <ifaddrs.h>
#include <netdb.h>
#include <netinet/in.h>

#include "BlockingSource.h"
#include "LibavReception.h"
#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

namespace {

using namespace MainConcept::NetworkStreaming;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto kOpenLimit = 10s;
constexpr auto kFallbackSilence = 3s;
constexpr auto kIdleInterval = 250ms;
// What opening keeps of its time to announce what it has found.
constexpr auto kAnnouncingTime = 500ms;
constexpr std::size_t kLongestUrl = 2048;
constexpr const char* kReceiveBuffer = "4194304";

bool startsWith(std::string_view text, std::string_view start) noexcept {
    return text.substr(0, start.size()) == start;
}

// The host of a URL, without brackets; empty when there is none.
std::string hostOf(std::string_view url) {
    url.remove_prefix(url.find("://") + 3);
    std::string_view authority = url.substr(0, url.find_first_of("/?#"));
    if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
        authority.remove_prefix(at + 1);
    }
    if (startsWith(authority, "[")) {
        return std::string(authority.substr(1, authority.find(']') - 1));
    }
    return std::string(authority.substr(0, authority.find(':')));
}

// libavformat reports an unknown host like any other failure, so it is asked for here.
bool resolves(const std::string& host) noexcept {
    addrinfo* addresses = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, nullptr, &addresses) != 0) {
        return false;
    }
    freeaddrinfo(addresses);
    return true;
}

// The address of an interface given by its name; anything else is taken for an address as it stands.
std::string interfaceAddress(const std::string& interface) {
    ifaddrs* interfaces = nullptr;
    if (getifaddrs(&interfaces) != 0) {
        return interface;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(interfaces, freeifaddrs);
    for (const ifaddrs* at = interfaces; at != nullptr; at = at->ifa_next) {
        std::array<char, NI_MAXHOST> address{};
        if (interface == at->ifa_name && at->ifa_addr != nullptr && at->ifa_addr->sa_family == AF_INET &&
            getnameinfo(at->ifa_addr, sizeof(sockaddr_in), address.data(), address.size(), nullptr, 0,
                        NI_NUMERICHOST) == 0) {
            return address.data();
        }
    }
    return interface;
}

class LibavSource final : public BlockingSource {
public:
    explicit LibavSource(std::string address)
        : m_address(std::move(address)),
          m_protocol(startsWith(m_address, "rtsp://")   ? Protocol::rtsp
                     : startsWith(m_address, "rtmp://") ? Protocol::rtmp
                                                        : Protocol::description) {}

    [[nodiscard]] ClientStatus open(const SourceParameters& parameters, TimePoint deadline) override;
    [[nodiscard]] const std::vector<ElementaryStream>& streams() const noexcept override { return m_streams; }

protected:
    [[nodiscard]] SourceEnd run(Round& round) override;

private:
    enum class Protocol { rtsp, rtmp, description };
    enum class Transport { udp, udpThenTcp, tcp, any };
    enum class Purpose { describe, play };

    struct Description {
        ClientStatus status = keClientTimedOut;
        std::string failure = "timed out";
        std::vector<ElementaryStream> streams;
        std::size_t streamCount = 0;
        std::unique_ptr<LibavReception> reception;
    };

    [[nodiscard]] std::string name() const;
    [[nodiscard]] std::string addressFault() const;
    [[nodiscard]] LibavInput::Request request(const SourceParameters& parameters, Transport transport,
                                              Purpose purpose) const;
    [[nodiscard]] Description describe(const SourceParameters& parameters, TimePoint deadline) const;
    [[nodiscard]] Description describeInput(const SourceParameters& parameters, Purpose purpose,
                                            TimePoint deadline) const;
    [[nodiscard]] std::unique_ptr<LibavReception> play(Round& round, Transport transport);

    const std::string m_address;
    const Protocol m_protocol;
    std::vector<ElementaryStream> m_streams;
    std::size_t m_streamCount = 0; // of the sender, received or not
    std::mutex m_openedMutex;
    std::unique_ptr<LibavReception> m_opened; // RTMP: for the first round
};

std::string LibavSource::name() const {
    return m_protocol == Protocol::description ? "session description" : withoutCredentials(m_address);
}

std::string LibavSource::addressFault() const {
    if (m_protocol == Protocol::description) {
        if (m_address.size() > kLongestDescription) {
            return "longer than 1 MiB";
        }
        return m_address.find("m=") == std::string::npos ? "describes no media" : "";
    }
    if (m_address.size() > kLongestUrl) {
        return "longer than 2048 characters";
    }
    // Among them line ends, which would let an address write further lines into requests.
    if (std::any_of(m_address.begin(), m_address.end(), [](char c) { return c <= ' ' || c == '\x7F'; })) {
        return "contains a character that must be percent-encoded";
    }
    return hostOf(m_address).empty() ? "names no host" : "";
}

LibavInput::Request LibavSource::request(const SourceParameters& parameters, Transport transport,
                                         Purpose purpose) const {
    LibavInput::Request request;
    request.url = m_address;
    switch (m_protocol) {
    case Protocol::rtsp:
        request.format = "rtsp";
        request.protocols = "rtp,udp,tcp";
        request.options = {{"allowed_media_types", "video+audio"}, {"buffer_size", kReceiveBuffer}};
        request.options.emplace_back("rtsp_transport", transport == Transport::udp   ? "udp"
                                                       : transport == Transport::tcp ? "tcp"
                                                                                     : "udp+tcp");
        if (transport == Transport::any) {
            request.options.emplace_back("rtsp_flags", "prefer_tcp");
        }
        if (purpose == Purpose::describe) {
            request.options.emplace_back("initial_pause", "1");
        }
        if (parameters.localPort != 0) {
            // One pair a stream, from the port on. In a range for more than three pairs libavformat takes a
            // random first one out of the lower half.
            const std::size_t base = parameters.localPort;
            const std::size_t ports = m_streamCount <= 3 ? 6 : 4 * m_streamCount;
            request.options.emplace_back("min_port", std::to_string(base));
            request.options.emplace_back("max_port",
                                         std::to_string(std::min<std::size_t>(base + ports - 1, 65535)));
        }
        break;
    case Protocol::rtmp:
        request.format = "flv";
        request.protocols = "rtmp,tcp";
        request.options = {{"rtmp_live", "live"}, {"flv_metadata", "1"}};
        break;
    case Protocol::description:
        request.url.clear();
        request.description = m_address;
        request.format = "sdp";
        request.protocols = "rtp,udp";
        request.options = {{"allowed_media_types", "video+audio"}, {"buffer_size", kReceiveBuffer}};
        if (!parameters.networkInterface.empty()) {
            request.options.emplace_back("localaddr", interfaceAddress(parameters.networkInterface));
        }
        break;
    }
    return request;
}

LibavSource::Description LibavSource::describeInput(const SourceParameters& parameters, Purpose purpose,
                                                    TimePoint deadline) const {
    Description result;
    auto reception = std::make_unique<LibavReception>();
    const auto stop = [this] { return interrupted(); };
    result.status = reception->input().open(request(parameters, Transport::any, purpose), deadline, stop);
    if (result.status != keClientOk) {
        result.failure = reception->input().failure();
        return result;
    }
    result.status =
        reception->describe(purpose == Purpose::play ? deadline - kAnnouncingTime : Clock::now(), stop);
    result.failure = reception->failure();
    if (result.status == keClientOk) {
        result.streams = reception->announcements();
        result.streamCount = reception->streamCount();
        result.reception = std::move(reception);
    }
    return result;
}

LibavSource::Description LibavSource::describe(const SourceParameters& parameters, TimePoint deadline) const {
    if (m_protocol != Protocol::description && !resolves(hostOf(m_address))) {
        return {keClientUnknownHost, "the host is unknown", {}, 0, nullptr};
    }
    if (m_protocol == Protocol::rtsp) {
        Description fromServer = describeInput(parameters, Purpose::describe, deadline);
        const bool lacksConfiguration = fromServer.status == keClientTimedOut && Clock::now() < deadline;
        if (!lacksConfiguration) {
            return fromServer;
        }
    }
    return describeInput(parameters, Purpose::play, deadline);
}

ClientStatus LibavSource::open(const SourceParameters& parameters, TimePoint deadline) {
    if (const std::string fault = addressFault(); !fault.empty()) {
        KV_NET_LOG(error, "The " + name() + " is unusable: " + fault);
        return keClientInvalidParameter;
    }
    if (m_protocol != Protocol::description && !parameters.networkInterface.empty()) {
        KV_NET_LOG(notice, name() + " is reached by the system's routes: the network interface \"" +
                               parameters.networkInterface + "\" is for datagrams only");
    }
    Description result = describe(parameters, deadline);
    if (result.status != keClientOk) {
        KV_NET_LOG(error, name() + " cannot be opened: " + result.failure);
        return result.status;
    }
    m_streams = std::move(result.streams);
    m_streamCount = result.streamCount;
    if (m_protocol == Protocol::rtmp) {
        const std::lock_guard lock(m_openedMutex);
        m_opened = std::move(result.reception);
    }
    return keClientOk;
}

std::unique_ptr<LibavReception> LibavSource::play(Round& round, Transport transport) {
    auto reception = std::make_unique<LibavReception>();
    const ClientStatus status =
        reception->input().open(request(round.parameters(), transport, Purpose::play),
                                Clock::now() + kOpenLimit, [&round] { return round.stopped(); });
    if (status != keClientOk) {
        if (!round.stopped()) {
            KV_NET_LOG(error, name() + " cannot be played: " + reception->input().failure());
        }
        return nullptr;
    }
    return reception;
}

SourceEnd LibavSource::run(Round& round) {
    std::unique_ptr<LibavReception> reception;
    {
        const std::lock_guard lock(m_openedMutex);
        reception = std::move(m_opened);
    }
    bool mayFallBack = m_protocol == Protocol::rtsp && round.parameters().interleavedFallback;
    if (!reception) {
        reception = play(round, mayFallBack ? Transport::udpThenTcp : Transport::udp);
    }
    for (;;) {
        if (!reception) {
            return SourceEnd::disconnected;
        }
        reception->attach(m_streams);
        const auto fallbackTime = Clock::now() + kFallbackSilence;
        auto nextIdle = Clock::now() + kIdleInterval;
        const auto fallsBack = [&] {
            return mayFallBack && !reception->gotPackets() && Clock::now() >= fallbackTime;
        };
        bool quiet = false;
        // Asked by what blocks, so this is where silence is noticed.
        const auto stop = [&] {
            if (!round.stopped() && Clock::now() >= nextIdle) {
                nextIdle = Clock::now() + kIdleInterval;
                if (quiet) {
                    reception->flush(round.sink());
                }
                quiet = true;
                round.sink().idle();
            }
            return round.stopped() || fallsBack();
        };
        LibavInput::ReadResult result = LibavInput::ReadResult::packet;
        while (result == LibavInput::ReadResult::packet && !round.stopped()) {
            result = reception->receive(round.sink(), m_counters, stop);
            quiet = false;
        }
        reception->flush(round.sink());
        if (!round.stopped() && result == LibavInput::ReadResult::stopped) {
            KV_NET_LOG(event, name() + " sends nothing over UDP, trying TCP");
            mayFallBack = false;
            reception.reset();
            reception = play(round, Transport::tcp);
            continue;
        }
        if (!round.stopped() && result == LibavInput::ReadResult::disconnected) {
            KV_NET_LOG(event, name() + " is lost: " + reception->input().failure());
        }
        return result == LibavInput::ReadResult::endOfStream ? SourceEnd::endOfStream
                                                             : SourceEnd::disconnected;
    }
}

} // namespace

std::shared_ptr<Source> makeLibavSource(const std::string& url) {
    const bool isDescription = startsWith(url, "v=") || url.find('\n') != std::string::npos;
    if (!isDescription && !startsWith(url, "rtsp://") && !startsWith(url, "rtmp://")) {
        KV_NET_LOG(error,
                   "\"" + withoutCredentials(url) +
                       "\" is neither an rtsp://, rtmp://, rtp:// or udp:// URL nor a session description.");
        return nullptr;
    }
    return std::make_shared<LibavSource>(url);
}

} // namespace KorvelVideo::NetworkSource
