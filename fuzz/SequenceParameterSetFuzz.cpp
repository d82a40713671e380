#include <cmath>
#include <cstddef>
#include <cstdint>

#include "H264SequenceParameterSet.h"
#include "Require.h"
#include "VideoFormatDetection.h"

using namespace KorvelVideo::Network;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto description = describeAvcConfiguration(data, static_cast<std::uint32_t>(size));
    KV_REQUIRE(description.format.m_size == 28);
    KV_REQUIRE(description.format.m_frameRate <= 10 && description.format.m_aspectRatio <= 4);
    if (size <= 5) {
        KV_REQUIRE(description.profile == 0 && description.format.m_width == 0);
        return 0;
    }
    const H264SequenceParameterSet sps(data + 5, static_cast<std::uint32_t>(size - 5));
    KV_REQUIRE(sps.offset_for_ref_frame.size() <= size * 8);
    KV_REQUIRE(sps.offset_for_ref_frame.size() <= sps.num_ref_frames_in_pic_order_cnt_cycle);
    KV_REQUIRE(std::isfinite(sps.getDisplayAspectRatio()) && std::isfinite(sps.getFrameRate()));
    KV_REQUIRE(sps.getWidth() == description.format.m_width &&
               sps.getHeight() == description.format.m_height);
    KV_REQUIRE(sps.getLumaBitDepth() == description.format.m_bitDepth);
    KV_REQUIRE(sps.getProfileIdc() == description.profile && sps.getLevelIdc() == description.level);
    KV_REQUIRE(sps.vui || sps.getColourPrimaries() + sps.getTransferCharacteristics() +
                                  sps.getMatrixCoefficients() + sps.getVideoFullRangeFlag() ==
                              0);
    return 0;
}
