// Datagram URLs, which users write, and the transport stream packets that datagrams bring.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "ContinuityCheck.h"
#include "DatagramAddress.h"
#include "Require.h"

using namespace KorvelVideo::NetworkSource;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(data, data + size);
    for (const std::string& text : {url, "udp://" + url}) {
        DatagramAddress address;
        const std::string problem = parseDatagramAddress(text, address);
        KV_REQUIRE(isDatagramUrl(text) || !problem.empty());
        KV_REQUIRE(address.address.size() + address.source.size() <= text.size());
    }

    // Packets in one piece and in two count the same errors.
    ContinuityCheck whole;
    ContinuityCheck parts;
    const std::span<const std::uint8_t> packets(data, size);
    const std::size_t half = size / kTransportPacketSize / 2 * kTransportPacketSize;
    const std::uint64_t errors = whole.check(packets);
    KV_REQUIRE(errors <= size / kTransportPacketSize);
    KV_REQUIRE(parts.check(packets.first(half)) + parts.check(packets.subspan(half)) == errors);
    return 0;
}
