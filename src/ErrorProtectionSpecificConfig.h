#pragma once

#include <cstdint>
#include <vector>

#include "BitReader.h"

namespace KorvelVideo::Network {

// How the payload of an error resilient audio object type is protected: ISO/IEC 14496-3, 1.8.2.1.
//
// All sequences are flat: the values of all predefined sets and their classes in stream order, one sequence
// for each syntax element; number_of_class tells the sets apart. What is not read is 0 or not in the
// sequence. Nothing is validated, missing bits read as 0.
//
// Bounds: every value in a sequence has at least one bit in the stream, so at most 4 bytes of memory for each
// bit read; behind the end of the data one set of 63 classes and 255 empty sets at most.
struct ErrorProtectionSpecificConfig {
    std::uint32_t number_of_predefined_set = 0;
    std::uint32_t interleave_type = 0;
    std::uint32_t bit_stuffing = 0;
    std::uint32_t number_of_concatenated_frame = 0;
    std::vector<std::uint32_t> number_of_class{};
    std::vector<std::uint32_t> length_escape{};
    std::vector<std::uint32_t> rate_escape{};
    std::vector<std::uint32_t> crclen_escape{};
    std::vector<std::uint32_t> concatenate_flag{};
    std::vector<std::uint32_t> fec_type{};
    std::vector<std::uint32_t> termination_switch{};
    std::vector<std::uint32_t> interleave_switch{};
    std::uint32_t class_optional = 0; // of the last class
    std::vector<std::uint32_t> number_of_bits_for_length{};
    std::vector<std::uint32_t> class_length{};
    std::vector<std::uint32_t> class_rate{};
    std::vector<std::uint32_t> class_crclen{};
    std::uint32_t class_reordered_output = 0; // of the last set
    std::vector<std::uint32_t> class_output_order{};
    std::uint32_t header_protection = 0;
    std::uint32_t header_rate = 0;
    std::uint32_t header_crclen = 0;

    bool operator==(const ErrorProtectionSpecificConfig&) const = default;
};

[[nodiscard]] ErrorProtectionSpecificConfig parseErrorProtectionSpecificConfig(BitReader& reader);

} // namespace KorvelVideo::Network
