#include "ErrorProtectionSpecificConfig.h"

namespace KorvelVideo::Network {

namespace {

std::uint32_t append(std::vector<std::uint32_t>& values, BitReader& reader, std::int32_t bits) {
    return values.emplace_back(reader.readUnsigned(bits));
}

//     length_escape, rate_escape, crclen_escape                1 each
//     if (number_of_concatenated_frame != 1)
//       concatenate_flag                                       1
//     fec_type                                                 2
//     if (fec_type == 0)
//       termination_switch                                     1
//     if (interleave_type == 2)
//       interleave_switch                                      2
//     class_optional                                           1
//     if (length_escape == 1)
//       number_of_bits_for_length                              4
//     else
//       class_length                                           16
//     if (rate_escape != 1)
//       class_rate                                             7 if (fec_type != 0), else 5
//     if (crclen_escape != 1)
//       class_crclen                                           5
void parseClass(BitReader& reader, ErrorProtectionSpecificConfig& config) {
    const bool lengthEscape = append(config.length_escape, reader, 1) == 1;
    const bool rateEscape = append(config.rate_escape, reader, 1) == 1;
    const bool crclenEscape = append(config.crclen_escape, reader, 1) == 1;
    if (config.number_of_concatenated_frame != 1) {
        append(config.concatenate_flag, reader, 1);
    }
    const std::uint32_t fecType = append(config.fec_type, reader, 2);
    if (fecType == 0) {
        append(config.termination_switch, reader, 1);
    }
    if (config.interleave_type == 2) {
        append(config.interleave_switch, reader, 2);
    }
    config.class_optional = reader.readUnsigned(1);
    if (lengthEscape) {
        append(config.number_of_bits_for_length, reader, 4);
    } else {
        append(config.class_length, reader, 16);
    }
    if (!rateEscape) {
        append(config.class_rate, reader, fecType != 0 ? 7 : 5);
    }
    if (!crclenEscape) {
        append(config.class_crclen, reader, 5);
    }
}

//   number_of_class                                            6
//   for (j = 0; j < number_of_class; j++) the class
//   class_reordered_output                                     1
//   if (class_reordered_output == 1)
//     for (j = 0; j < number_of_class; j++)
//       class_output_order                                     6
void parsePredefinedSet(BitReader& reader, ErrorProtectionSpecificConfig& config) {
    const std::uint32_t classes = append(config.number_of_class, reader, 6);
    for (std::uint32_t j = 0; j < classes; ++j) {
        parseClass(reader, config);
    }
    config.class_reordered_output = reader.readUnsigned(1);
    if (config.class_reordered_output == 1) {
        for (std::uint32_t j = 0; j < classes; ++j) {
            append(config.class_output_order, reader, 6);
        }
    }
}

} // namespace

// 1.8.2.1 ErrorProtectionSpecificConfig( )
//   number_of_predefined_set                                   8
//   interleave_type                                            2
//   bit_stuffing                                               3
//   number_of_concatenated_frame                               3
//   for (i = 0; i < number_of_predefined_set; i++) the set
//   header_protection                                          1
//   if (header_protection == 1) {
//     header_rate                                              5
//     header_crclen                                            5
//   }
ErrorProtectionSpecificConfig parseErrorProtectionSpecificConfig(BitReader& reader) {
    ErrorProtectionSpecificConfig config;
    config.number_of_predefined_set = reader.readUnsigned(8);
    config.interleave_type = reader.readUnsigned(2);
    config.bit_stuffing = reader.readUnsigned(3);
    config.number_of_concatenated_frame = reader.readUnsigned(3);
    for (std::uint32_t i = 0; i < config.number_of_predefined_set; ++i) {
        parsePredefinedSet(reader, config);
    }
    config.header_protection = reader.readUnsigned(1);
    if (config.header_protection == 1) {
        config.header_rate = reader.readUnsigned(5);
        config.header_crclen = reader.readUnsigned(5);
    }
    return config;
}

} // namespace KorvelVideo::Network
