#pragma once

#include <cstddef>
#include <cstdint>

// Classes of SKvVideoFormatDescription.

enum EKvAspectRatio : std::uint32_t {
    keKvAspectRatioUnknown = 0,
    keKvAspectRatio4x3 = 1,
    keKvAspectRatio16x9 = 2,
    keKvAspectRatio2x1 = 3,
    keKvAspectRatio256x135 = 4,
};

enum EKvFrameRate : std::uint32_t {
    keKvFrameRateUnknown = 0,
    keKvFrameRate24 = 1,
    keKvFrameRate23_976 = 2,
    keKvFrameRate25 = 3,
    keKvFrameRate30 = 4,
    keKvFrameRate29_97 = 5,
    keKvFrameRate50 = 8,
    keKvFrameRate60 = 9,
    keKvFrameRate59_94 = 10,
};

enum EKvScanMode : std::uint32_t {
    keKvScanModeUnknown = 0,
    keKvScanModeInterlaced = 1,
    keKvScanModeInterlaced480 = 2,
    keKvScanModeProgressive = 3,
};

enum EKvColourClass : std::uint32_t {
    keKvColourClassUnknown = 0,
    keKvColourClassBt709 = 2,
    keKvColourClassBt2020 = 3,          // 10-bit transfer characteristics
    keKvColourClassBt2020Pq = 4,        // SMPTE ST 2084
    keKvColourClassBt2020Hlg = 5,       // ARIB STD-B67
    keKvColourClassBt2020FullRange = 6, // unspecified transfer characteristics
};

// A video format. All zero but for the size when the stream did not describe itself.
struct SKvVideoFormatDescription {
    std::uint32_t m_size;        // of this record: 28
    std::uint32_t m_width;       // cropped, in samples
    std::uint32_t m_height;      // cropped, in lines
    std::uint32_t m_bitDepth;    // luma
    std::uint32_t m_aspectRatio; // EKvAspectRatio, of the displayed picture
    std::uint32_t m_frameRate;   // EKvFrameRate
    std::uint32_t m_scanMode;    // EKvScanMode
};
static_assert(offsetof(SKvVideoFormatDescription, m_width) == 4);
static_assert(offsetof(SKvVideoFormatDescription, m_height) == 8);
static_assert(offsetof(SKvVideoFormatDescription, m_bitDepth) == 12);
static_assert(offsetof(SKvVideoFormatDescription, m_aspectRatio) == 16);
static_assert(offsetof(SKvVideoFormatDescription, m_frameRate) == 20);
static_assert(offsetof(SKvVideoFormatDescription, m_scanMode) == 24);
static_assert(sizeof(SKvVideoFormatDescription) == 28);

// Colour code points of ISO/IEC 14496-10, Annex E.
struct SKvColourDescription {
    std::uint32_t m_size; // of this record: 20
    std::uint32_t m_colourPrimaries;
    std::uint32_t m_transferCharacteristics;
    std::uint32_t m_matrixCoefficients;
    std::uint8_t m_fullRange; // 1 or 0
    std::uint8_t m_reserved[3];
};
static_assert(offsetof(SKvColourDescription, m_colourPrimaries) == 4);
static_assert(offsetof(SKvColourDescription, m_transferCharacteristics) == 8);
static_assert(offsetof(SKvColourDescription, m_matrixCoefficients) == 12);
static_assert(offsetof(SKvColourDescription, m_fullRange) == 16);
static_assert(sizeof(SKvColourDescription) == 20);
