#pragma once

#include <cstdint>
#include <memory>

#include "H264VuiParameters.h"
#include "NaiveBitReader.h"

// A sequence parameter set read bit by bit, its VUI on the heap: the baseline of the benchmarks. Just the
// syntax of the recorded stream that they use: high profile without scaling lists, no HRD.

namespace naive {

inline std::uint32_t readUe(NaiveBitReader& reader) {
    std::int32_t leadingZeros = 0;
    while (leadingZeros < 32 && reader.readUnsigned(1) == 0) {
        ++leadingZeros;
    }
    std::uint32_t suffix = 0;
    for (std::int32_t i = 0; i < leadingZeros; ++i) {
        suffix = suffix << 1 | reader.readUnsigned(1);
    }
    return static_cast<std::uint32_t>((std::uint64_t{1} << leadingZeros) - 1 + suffix);
}

struct SequenceParameterSet {
    std::uint32_t elements[24] = {};
    std::unique_ptr<KorvelVideo::Network::H264VuiParameters> vui;
};

inline void parseVui(NaiveBitReader& reader, KorvelVideo::Network::H264VuiParameters& vui) {
    vui.aspect_ratio_info_present_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
    if (vui.aspect_ratio_info_present_flag != 0) {
        vui.aspect_ratio_idc = static_cast<std::uint8_t>(reader.readUnsigned(8));
    }
    vui.overscan_info_present_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
    vui.video_signal_type_present_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
    if (vui.video_signal_type_present_flag != 0) {
        vui.video_format = static_cast<std::uint8_t>(reader.readUnsigned(3));
        vui.video_full_range_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
        if (reader.readUnsigned(1) != 0) {
            vui.colour_primaries = static_cast<std::uint8_t>(reader.readUnsigned(8));
            vui.transfer_characteristics = static_cast<std::uint8_t>(reader.readUnsigned(8));
            vui.matrix_coefficients = static_cast<std::uint8_t>(reader.readUnsigned(8));
        }
    }
    vui.chroma_loc_info_present_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
    vui.timing_info_present_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
    if (vui.timing_info_present_flag != 0) {
        vui.num_units_in_tick = static_cast<std::uint32_t>(reader.peekRbspBits(32));
        reader.skipRbspBits(32);
        vui.time_scale = static_cast<std::uint32_t>(reader.peekRbspBits(32));
        reader.skipRbspBits(32);
        vui.fixed_frame_rate_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
    }
    reader.skipBits(2);
    vui.pic_struct_present_flag = static_cast<std::uint8_t>(reader.readUnsigned(1));
}

inline SequenceParameterSet parseSequenceParameterSet(NaiveBitReader reader) {
    SequenceParameterSet sps;
    std::uint32_t* next = sps.elements;
    *next++ = reader.readUnsigned(8);
    *next++ = reader.readUnsigned(8);
    *next++ = reader.readUnsigned(8);
    for (int i = 0; i < 4; ++i) { // the identifier, the chroma format and the bit depths
        *next++ = readUe(reader);
    }
    reader.skipBits(2);
    *next++ = readUe(reader);
    const std::uint32_t pic_order_cnt_type = readUe(reader);
    *next++ = pic_order_cnt_type == 0 ? readUe(reader) : 0;
    *next++ = readUe(reader);
    reader.skipBits(1);
    *next++ = readUe(reader);
    *next++ = readUe(reader);
    if (reader.readUnsigned(1) == 0) {
        reader.skipBits(1);
    }
    reader.skipBits(1);
    if (reader.readUnsigned(1) != 0) {
        for (int i = 0; i < 4; ++i) {
            *next++ = readUe(reader);
        }
    }
    if (reader.readUnsigned(1) != 0) {
        sps.vui = std::make_unique<KorvelVideo::Network::H264VuiParameters>();
        parseVui(reader, *sps.vui);
    }
    return sps;
}

} // namespace naive
