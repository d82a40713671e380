#include <cstddef>
#include <cstdint>

#include "Require.h"
#include "StreamMuxConfig.h"

// The configuration of a frame, behind its useSameStreamMux bit.

using namespace KorvelVideo::Network;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LatmConfigState state;
    state.currentConfig.audioObjectType = 8;
    BitReader reader(data, static_cast<std::int32_t>(size));
    reader.skipBits(1);
    BitReader again = reader;
    const StreamMuxConfig config = parseStreamMuxConfig(reader, state);
    KV_REQUIRE(config == parseStreamMuxConfig(again, state));
    KV_REQUIRE(config.audioMuxVersionA == 1
                   ? config.programs.empty()
                   : config.programs.size() == static_cast<std::size_t>(config.numProgram) + 1);
    for (const LatmProgram& program : config.programs) {
        KV_REQUIRE(program.layers.size() == static_cast<std::size_t>(program.numLayer) + 1);
        for (const LatmLayer& layer : program.layers) {
            const AudioSpecificConfig& before =
                layer.layerIndex == 0 ? state.currentConfig : program.layers[layer.layerIndex - 1].config;
            KV_REQUIRE(layer.useSameConfig == 0 || layer.config == before);
        }
    }
    return 0;
}
