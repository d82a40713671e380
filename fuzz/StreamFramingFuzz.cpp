// Elementary streams on their way from a sender's framing to lent buffers: any configuration, then any
// packets. Nothing is read outside them, every buffer goes back, time stamps never go back by less than a new
// start, and H.264 leaves in Annex B.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "Require.h"
#include "StreamTranslator.h"

using namespace KorvelVideo::NetworkSource;

namespace {

class CheckingSink final : public SourceSink {
public:
    std::span<std::uint8_t> borrow(std::size_t /*stream*/) override {
        if (++m_borrowed % 7 == 0) {
            return {};
        }
        std::vector<std::uint8_t> buffer(1 + m_borrowed % 64);
        const std::span<std::uint8_t> lent(buffer);
        m_lent.emplace(lent.data(), std::move(buffer));
        return lent;
    }
    void deliver(std::size_t /*stream*/, std::uint8_t* buffer, std::uint32_t length,
                 std::uint64_t timeStamp) override {
        const auto found = m_lent.find(buffer);
        KV_REQUIRE(found != m_lent.end() && length <= found->second.size());
        m_lent.erase(found);
        KV_REQUIRE(timeStamp <= INT64_MAX);
    }
    void giveBack(std::size_t /*stream*/, std::uint8_t* buffer) override {
        KV_REQUIRE(m_lent.erase(buffer) == 1);
    }
    bool deliverCopy(std::size_t /*stream*/, std::span<const std::span<const std::uint8_t>> pieces,
                     std::uint64_t timeStamp) override {
        KV_REQUIRE(timeStamp <= INT64_MAX);
        std::vector<std::uint8_t> copy; // reads every byte
        for (const auto piece : pieces) {
            copy.insert(copy.end(), piece.begin(), piece.end());
        }
        return copy.size() % 5 != 0;
    }
    void idle() override {}
    void end(SourceEnd /*reason*/) override {}
    [[nodiscard]] std::size_t lent() const { return m_lent.size(); }

private:
    std::map<const std::uint8_t*, std::vector<std::uint8_t>> m_lent;
    std::size_t m_borrowed = 0;
};

} // namespace

// One byte of kind, one of configuration length, the configuration, and then packets: one byte of time, one
// of length, the bytes.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) {
        return 0;
    }
    std::unique_ptr<StreamTranslator> translator;
    const unsigned kind = data[0] % 4U;
    switch (kind) {
    case 0:
    case 1:
        translator = makeAvcTranslator();
        break;
    case 2:
        translator = makeAacTranslator(48000, 2);
        break;
    default:
        translator = makeLoasTranslator();
    }
    std::span<const std::uint8_t> rest(data + 1, size - 1);
    const auto take = [&rest] {
        const std::size_t length = std::min<std::size_t>(rest[0], rest.size() - 1);
        const auto bytes = rest.subspan(1, length);
        rest = rest.subspan(1 + length);
        return std::vector<std::uint8_t>(bytes.begin(), bytes.end()); // so that reads past it are seen
    };
    translator->configure(take());
    CheckingSink sink;
    std::int64_t time = 0;
    while (rest.size() >= 2) {
        time += (std::int64_t{rest[0]} - 64) << (rest[0] & 15U);
        const bool hasTime = rest[0] % 8 != 0;
        rest = rest.subspan(1);
        const std::vector<std::uint8_t> bytes = take();
        MediaPacket packet;
        packet.data = bytes;
        packet.time = hasTime ? std::optional(time) : std::nullopt;
        packet.isFragment = kind == 1;
        translator->learn(packet.data);
        static_cast<void>(translator->deliver(packet, 0, sink));
    }
    translator->flush(0, sink);
    KV_REQUIRE(sink.lent() == 0);
    const ElementaryStream announced = translator->announcement();
    KV_REQUIRE(translator->complete() == !announced.codecConfig.empty() || kind < 2);
    return 0;
}
