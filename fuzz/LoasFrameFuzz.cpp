#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "LoasFrame.h"
#include "Require.h"

using namespace KorvelVideo::Network;

namespace {

// Into a heap buffer of just the capacity, which the address sanitizer guards. Returns what was written.
std::vector<std::uint8_t> extract(const BitReader& reader, std::uint32_t capacity,
                                  const LatmConfigState& state, std::size_t size) {
    std::vector<std::uint8_t> output(capacity);
    const LoasFrame frame = parseLoasFrame(reader, output.data(), capacity, state);
    KV_REQUIRE(frame.audioMuxElement.payloadByteCount <= capacity);
    KV_REQUIRE(frame.audioMuxElement.otherDataBits.size() <= size * 8);
    output.resize(frame.audioMuxElement.payloadByteCount);
    return output;
}

void check(const BitReader& reader, const LatmConfigState& state, std::size_t size) {
    const std::int32_t measured = measureLoasFrame(reader, state);
    KV_REQUIRE(measured >= 0 && static_cast<std::size_t>(measured) <= size + 8191);
    const auto count = static_cast<std::uint32_t>(measured);
    const std::vector<std::uint8_t> whole = extract(reader, count, state, size);
    KV_REQUIRE(whole.size() == count);
    const std::vector<std::uint8_t> half = extract(reader, count / 2, state, size);
    KV_REQUIRE(half.size() == count / 2 && std::equal(half.begin(), half.end(), whole.begin()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const BitReader reader(data, static_cast<std::int32_t>(size));
    check(reader, {}, size);
    // The same bytes against the configuration that they carry themselves
    LatmConfigState state;
    state.muxConfig = parseLoasFrame(reader, nullptr, 0, {}).audioMuxElement.muxConfig;
    check(reader, state, size);
    return 0;
}
