#pragma once

#include <mutex>

#include "DatagramAddress.h"
#include "ReceivePool.h"
#include "Sockets.h"
#include "Source.h"

namespace KorvelVideo::NetworkSource {

class DatagramReceiver;

// An MPEG-2 transport stream in datagrams, plain or in RTP packets of payload type 33. One stream is
// announced, of type 33. Each delivered buffer holds whole datagrams' payloads one after another, untouched;
// its time stamp is when they were taken from the socket, in units of 100 ns of the system's monotonic clock.
//
// `open` checks the address and binds the socket, so that a wrong address or a taken port is told at once.
// `start` joins the multicast group: before, nothing is asked of the network. What a unicast sender sent in
// between is delivered, as long as the socket buffer held all of it; once it overflowed, delivery begins with
// what arrives after `start`, so that the gap does not lie inside the stream. Of the parameters only the
// network interface has an effect: the URL names the port.
class DatagramSource final : public Source, public std::enable_shared_from_this<DatagramSource> {
public:
    explicit DatagramSource(std::string url);
    ~DatagramSource() override;

    [[nodiscard]] ClientStatus open(const SourceParameters& parameters, TimePoint deadline) override;
    [[nodiscard]] const std::vector<ElementaryStream>& streams() const noexcept override { return m_streams; }
    [[nodiscard]] ClientStatus start(const SourceParameters& parameters,
                                     std::shared_ptr<SourceSink> sink) override;
    void stop() noexcept override;
    void interrupt() noexcept override {}

    // The local port, for whoever left it to the system; 0 before `open`.
    [[nodiscard]] std::uint16_t localPort() const noexcept override { return m_localPort.load(); }

private:
    const std::string m_url;
    DatagramAddress m_address;
    std::vector<ElementaryStream> m_streams;
    DatagramEndpoint m_endpoint;
    std::atomic<std::uint16_t> m_localPort{0};
    std::mutex m_mutex; // guards what follows
    std::unique_ptr<DatagramSocket> m_boundSocket;
    std::shared_ptr<DatagramReceiver> m_receiver; // while started
    std::shared_ptr<ReceivePool> m_pool;
};

} // namespace KorvelVideo::NetworkSource
