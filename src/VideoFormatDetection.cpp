#include "VideoFormatDetection.h"

#include <cmath>

namespace KorvelVideo::Network {

namespace {

// The bounds are single-precision numbers that are compared in double precision: a ratio of exactly 1.74 lies
// below 1.74f, one of exactly 1.3 above 1.30f.
std::uint32_t classifyAspectRatio(double ratio) noexcept {
    struct Range {
        double from;
        double below;
        EKvAspectRatio aspectRatio;
    };
    static constexpr Range ranges[] = {
        {double{1.30F}, double{1.37F}, keKvAspectRatio4x3},
        {double{1.74F}, double{1.82F}, keKvAspectRatio16x9},
        {double{1.95F}, double{2.05F}, keKvAspectRatio2x1},
        {double{1.88F}, double{1.95F}, keKvAspectRatio256x135},
    };
    for (const Range& range : ranges) {
        if (range.from <= ratio && ratio < range.below) {
            return range.aspectRatio;
        }
    }
    return keKvAspectRatioUnknown;
}

std::uint32_t classifyFrameRate(double rate) noexcept {
    struct Rate {
        double framesPerSecond; // to two decimals
        EKvFrameRate exact;
        EKvFrameRate justBelow; // less than one frame a second below
    };
    static constexpr Rate rates[] = {
        {24.0, keKvFrameRate24, keKvFrameRate23_976}, {25.0, keKvFrameRate25, keKvFrameRateUnknown},
        {30.0, keKvFrameRate30, keKvFrameRate29_97},  {50.0, keKvFrameRate50, keKvFrameRateUnknown},
        {60.0, keKvFrameRate60, keKvFrameRate59_94},
    };
    const double rounded = std::floor(100.0 * rate + 0.5) / 100.0;
    for (const Rate& known : rates) {
        if (rounded == known.framesPerSecond) {
            return known.exact;
        }
        if (known.framesPerSecond - 1.0 < rounded && rounded < known.framesPerSecond) {
            return known.justBelow;
        }
    }
    return keKvFrameRateUnknown;
}

// Interlaced streams announce their field rate.
double framesPerSecond(const H264SequenceParameterSet& sps) noexcept {
    const double rate = sps.getFrameRate();
    return sps.frame_mbs_only_flag == 0 && rate > 30.0 ? rate * 0.5 : rate;
}

std::uint32_t scanMode(const H264SequenceParameterSet& sps) noexcept {
    if (sps.frame_mbs_only_flag != 0) {
        return keKvScanModeProgressive;
    }
    return sps.getHeight() == 480 ? keKvScanModeInterlaced480 : keKvScanModeInterlaced;
}

SKvColourDescription colourDescription(const H264SequenceParameterSet& sps) noexcept {
    return {sizeof(SKvColourDescription),
            sps.getColourPrimaries(),
            sps.getTransferCharacteristics(),
            sps.getMatrixCoefficients(),
            static_cast<std::uint8_t>(sps.getVideoFullRangeFlag() != 0 ? 1 : 0),
            {}};
}

} // namespace

void detectVideoFormat(const H264SequenceParameterSet& sps, SKvVideoFormatDescription& format) noexcept {
    format.m_size = sizeof(SKvVideoFormatDescription);
    format.m_width = sps.getWidth();
    format.m_height = sps.getHeight();
    format.m_bitDepth = sps.getLumaBitDepth();
    format.m_aspectRatio = classifyAspectRatio(sps.getDisplayAspectRatio());
    format.m_frameRate = classifyFrameRate(framesPerSecond(sps));
    format.m_scanMode = scanMode(sps);
}

std::uint32_t classifyColourDescription(const SKvColourDescription& description) noexcept {
    const std::uint32_t primaries = description.m_colourPrimaries;
    const std::uint32_t transfer = description.m_transferCharacteristics;
    const std::uint32_t matrix = description.m_matrixCoefficients;
    if (primaries == 1 && transfer == 1 && matrix == 1) {
        return keKvColourClassBt709;
    }
    if (primaries != 9 || matrix != 9) {
        return keKvColourClassUnknown;
    }
    switch (transfer) {
    case 14:
        return keKvColourClassBt2020;
    case 16:
        return keKvColourClassBt2020Pq;
    case 18:
        return keKvColourClassBt2020Hlg;
    case 2:
        return description.m_fullRange == 1 ? keKvColourClassBt2020FullRange : keKvColourClassUnknown;
    default:
        return keKvColourClassUnknown;
    }
}

AvcConfigurationDescription describeAvcConfiguration(const std::uint8_t* configuration,
                                                     std::uint32_t length) {
    constexpr std::uint32_t startCodeAndHeader = 5;
    AvcConfigurationDescription result;
    if (configuration == nullptr || length <= startCodeAndHeader) {
        return result;
    }
    const H264SequenceParameterSet sps(configuration + startCodeAndHeader, length - startCodeAndHeader);
    detectVideoFormat(sps, result.format);
    result.colourClass = classifyColourDescription(colourDescription(sps));
    result.profile = sps.getProfileIdc();
    result.level = sps.getLevelIdc();
    return result;
}

} // namespace KorvelVideo::Network
