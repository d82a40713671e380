#include <cstddef>
#include <cstdint>

#include "AudioSpecificConfig.h"
#include "Require.h"

using namespace KorvelVideo::Network;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    BitReader reader(data, static_cast<std::int32_t>(size));
    const AudioSpecificConfig config = parseAudioSpecificConfig(reader);
    KV_REQUIRE(config.sbrPresentFlag == -1 || config.sbrPresentFlag == 1);
    KV_REQUIRE(config.audioObjectType <= 95 && config.channelConfiguration <= 15);
    const ErrorProtectionSpecificConfig& protection = config.errorProtectionConfig;
    KV_REQUIRE(protection.number_of_class.size() == protection.number_of_predefined_set);
    KV_REQUIRE(protection.fec_type.size() == protection.length_escape.size());
    KV_REQUIRE(protection.fec_type.size() <= size + 64);
    KV_REQUIRE(config.gaConfig.programConfig.comment_field_data.size() ==
               config.gaConfig.programConfig.comment_field_bytes);
    return 0;
}
