#include "DatagramSource.h"

#include <utility>

#include "DatagramReceiver.h"
#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

using namespace MainConcept::NetworkStreaming;

DatagramSource::DatagramSource(std::string url) : m_url(std::move(url)) {}

DatagramSource::~DatagramSource() = default;

ClientStatus DatagramSource::open(const SourceParameters& parameters, TimePoint /*deadline*/) {
    if (const std::string problem = parseDatagramAddress(m_url, m_address); !problem.empty()) {
        KV_NET_LOG(error, problem);
        return keClientInvalidParameter;
    }
    SocketOutcome outcome =
        m_endpoint.resolve(m_address.source, m_address.address, m_address.port, parameters.networkInterface);
    const std::lock_guard lock(m_mutex);
    if (outcome.ok()) {
        m_boundSocket = std::make_unique<DatagramSocket>();
        outcome = m_boundSocket->bind(m_endpoint);
    }
    if (!outcome.ok()) {
        KV_NET_LOG(error, m_url + ": " + outcome.problem + ".");
        m_boundSocket.reset();
        return outcome.status;
    }
    const std::uint32_t granted = m_boundSocket->receiveBufferSize();
    if (granted < DatagramSocket::kReceiveBufferSize) {
        KV_NET_LOG(notice, m_url + ": the system grants a socket buffer of " + std::to_string(granted) +
                               " bytes instead of " + std::to_string(DatagramSocket::kReceiveBufferSize) +
                               "; bursts may be lost. Raise net.core.rmem_max.");
    }
    m_endpoint.setPort(m_boundSocket->localPort());
    m_localPort = m_boundSocket->localPort();
    ElementaryStream stream;
    stream.streamType = keStreamTypeTransportStream;
    stream.mediaKind = keMediaVideo;
    m_streams.push_back(std::move(stream));
    return keClientOk;
}

ClientStatus DatagramSource::start(const SourceParameters& /*parameters*/, std::shared_ptr<SourceSink> sink) {
    const std::lock_guard lock(m_mutex);
    if (m_receiver) {
        return keClientOk;
    }
    std::unique_ptr<DatagramSocket> socket = std::move(m_boundSocket);
    SocketOutcome outcome;
    if (!socket) { // started before
        socket = std::make_unique<DatagramSocket>();
        outcome = socket->bind(m_endpoint);
    }
    if (outcome.ok()) {
        outcome = socket->join(m_endpoint);
    }
    if (!outcome.ok()) {
        KV_NET_LOG(error, m_url + ": " + outcome.problem + ".");
        return outcome.status;
    }
    if (socket->drops() != 0) {
        socket->discardQueue();
    }
    m_pool = ReceivePool::shared();
    auto receiver = std::make_shared<DatagramReceiver>(m_address.framing, std::move(*socket), std::move(sink),
                                                       shared_from_this(), m_counters);
    if (!m_pool || !m_pool->add(receiver)) {
        KV_NET_LOG(error, m_url + ": the system has no resources left to wait for data.");
        receiver->finish();
        m_pool.reset();
        return keClientOutOfMemory;
    }
    m_receiver = std::move(receiver);
    return keClientOk;
}

void DatagramSource::stop() noexcept {
    std::shared_ptr<DatagramReceiver> receiver;
    std::shared_ptr<ReceivePool> pool;
    {
        const std::lock_guard lock(m_mutex);
        receiver = std::exchange(m_receiver, nullptr);
        pool = std::exchange(m_pool, nullptr);
    }
    if (receiver) {
        pool->remove(*receiver);
        receiver->finish();
    }
}

} // namespace KorvelVideo::NetworkSource
