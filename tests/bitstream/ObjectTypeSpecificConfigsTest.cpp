#include "ObjectTypeSpecificConfigs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "BitWriter.h"
#include "ErrorProtectionSpecificConfig.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

// Parses the bits, with ones behind them, and checks the record and that just these bits were taken.
template <typename Config, typename Parser>
void expectConfig(const char* digits, const Config& expected, Parser parser) {
    const auto count = std::count_if(digits, digits + std::strlen(digits), [](char c) { return c != ' '; });
    const Bytes bytes = BitWriter(digits).u(~0ULL, 64).data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    EXPECT_EQ(parser(reader), expected) << digits;
    EXPECT_EQ(reader.bitsConsumed(), count) << digits;
}

TEST(ObjectTypes, Celp) {
    const auto celp = [](const char* digits, const CelpSpecificConfig& expected) {
        expectConfig(digits, expected, parseCelpSpecificConfig);
    };
    celp("1 1 0 0 101", {.isBaseLayer = 1, .ExcitationMode = 1, .RPE_Configuration = 5});
    celp("1 0 1 1 10101 11 1", {.isBaseLayer = 1,
                                .SampleRateMode = 1,
                                .FineRateControl = 1,
                                .MPE_Configuration = 21,
                                .NumEnhLayers = 3,
                                .BandwidthScalabilityMode = 1});
    celp("0 1 10", {.isBWSLayer = 1, .BWS_configuration = 2});
    celp("0 0 11", {.CELP_BRS_id = 3});

    const auto er = [](const char* digits, const ErrorResilientCelpSpecificConfig& expected) {
        expectConfig(digits, expected, parseErrorResilientCelpSpecificConfig);
    };
    er("1 1 0 0 1 101",
       {.isBaseLayer = 1, .ExcitationMode = 1, .RPE_Configuration = 5, .SilenceCompression = 1});
    er("1 0 0 1 0 00001 10 0",
       {.isBaseLayer = 1, .FineRateControl = 1, .MPE_Configuration = 1, .NumEnhLayers = 2});
    er("0 1 01", {.isBWSLayer = 1, .BWS_configuration = 1});
}

TEST(ObjectTypes, Hvxc) {
    expectConfig("1 1 10 1", HvxcSpecificConfig{1, 1, 2, 1}, parseHvxcSpecificConfig);
    expectConfig("0", HvxcSpecificConfig{}, parseHvxcSpecificConfig);
    expectConfig("1 0 11 1 1", ErrorResilientHvxcSpecificConfig{1, 0, 3, 1, 1},
                 parseErrorResilientHvxcSpecificConfig);
    expectConfig("1 1 01 0", ErrorResilientHvxcSpecificConfig{1, 1, 1, 0, 0},
                 parseErrorResilientHvxcSpecificConfig);
}

TEST(ObjectTypes, TextToSpeech) {
    expectConfig("10001 100000000000000011 1 0 1 0 1 0 1",
                 TTSSpecificConfig{17, 0x20003, 1, 0, 1, 0, 1, 0, 1}, parseTTSSpecificConfig);
}

TEST(ObjectTypes, StructuredAudio) {
    expectConfig("001 1 111 0", StructuredAudioSpecificConfig{.scoreFiles = 1},
                 parseStructuredAudioSpecificConfig);
    expectConfig("000 1 101 1 011 1 110 1 101 1 010 1 100 0", StructuredAudioSpecificConfig{1, 0, 1, 1, 1, 2},
                 parseStructuredAudioSpecificConfig);
}

TEST(ObjectTypes, Parametric) {
    const auto parametric = [](const char* digits, const ParametricSpecificConfig& expected) {
        expectConfig(digits, expected, parseParametricSpecificConfig);
    };
    parametric("1 00 1 10 1 1 1", {.isBaseLayer = 1,
                                   .HVXCvarMode = 1,
                                   .HVXCrateMode = 2,
                                   .extensionFlag = 1,
                                   .var_ScalableFlag = 1,
                                   .PARAextensionFlag = 1});
    parametric("1 01 1 10000001 1001 100000000001 10 1", {.isBaseLayer = 1,
                                                          .PARAmode = 1,
                                                          .HILNquantMode = 1,
                                                          .HILNmaxNumLine = 129,
                                                          .HILNsampleRateCode = 9,
                                                          .HILNframeLength = 2049,
                                                          .HILNcontMode = 2,
                                                          .PARAextensionFlag = 1});
    parametric(
        "1 10 0 01 0 0 00000011 0000 000000000111 00 0",
        {.isBaseLayer = 1, .PARAmode = 2, .HVXCrateMode = 1, .HILNmaxNumLine = 3, .HILNframeLength = 7});
    parametric("0 1 11", {.HILNenhaLayer = 1, .HILNenhaQuantMode = 3});
    parametric("0 0", {});
}

TEST(ObjectTypes, SinusoidalCoding) {
    const auto ssc = [](std::uint32_t channels) {
        return [=](BitReader& reader) { return parseSSCSpecificConfig(reader, channels); };
    };
    expectConfig("10 1001 11", SSCSpecificConfig{2, 9, 3, 0, 0}, ssc(1));
    expectConfig("10 1001 11 01 10", SSCSpecificConfig{2, 9, 3, 1, 2}, ssc(2));
    expectConfig("10 1001 11 10", SSCSpecificConfig{2, 9, 3, 2, 0}, ssc(2));
    expectConfig("10 1001 11 01", SSCSpecificConfig{2, 9, 3, 1, 0}, ssc(3));
}

TEST(ErrorProtection, WithoutSets) {
    expectConfig("00000000 01 101 011 0",
                 ErrorProtectionSpecificConfig{
                     .interleave_type = 1, .bit_stuffing = 5, .number_of_concatenated_frame = 3},
                 parseErrorProtectionSpecificConfig);
    expectConfig("00000000 01 101 011 1 10001 00011",
                 ErrorProtectionSpecificConfig{.interleave_type = 1,
                                               .bit_stuffing = 5,
                                               .number_of_concatenated_frame = 3,
                                               .header_protection = 1,
                                               .header_rate = 17,
                                               .header_crclen = 3},
                 parseErrorProtectionSpecificConfig);
}

TEST(ErrorProtection, TwoSetsOfTwoAndOneClasses) {
    expectConfig("00000010 10 000 010 "
                 "000010 "                                     // a set of two classes
                 "1 0 1  1 00 1 11 1  1010 10001 "             // length escape, no FEC
                 "0 1 0  0 10 01 0  1000000000000001 11000 "   // rate escape, FEC 2
                 "1 000001 000010 "                            // reordered
                 "000001 "                                     // a set of one class
                 "0 0 1  1 11 10 1  0000000000000111 1000001 " // no escape but the CRC's, FEC 3
                 "0 "                                          // not reordered
                 "0",
                 ErrorProtectionSpecificConfig{.number_of_predefined_set = 2,
                                               .interleave_type = 2,
                                               .number_of_concatenated_frame = 2,
                                               .number_of_class = {2, 1},
                                               .length_escape = {1, 0, 0},
                                               .rate_escape = {0, 1, 0},
                                               .crclen_escape = {1, 0, 1},
                                               .concatenate_flag = {1, 0, 1},
                                               .fec_type = {0, 2, 3},
                                               .termination_switch = {1},
                                               .interleave_switch = {3, 1, 2},
                                               .class_optional = 1,
                                               .number_of_bits_for_length = {10},
                                               .class_length = {0x8001, 7},
                                               .class_rate = {17, 65},
                                               .class_crclen = {24},
                                               .class_reordered_output = 0,
                                               .class_output_order = {1, 2}},
                 parseErrorProtectionSpecificConfig);
}

TEST(ErrorProtection, OneConcatenatedFrameAndNoInterleaving) {
    expectConfig("00000001 00 000 001  000001  1 1 1 01 0 0011  0 0",
                 ErrorProtectionSpecificConfig{.number_of_predefined_set = 1,
                                               .number_of_concatenated_frame = 1,
                                               .number_of_class = {1},
                                               .length_escape = {1},
                                               .rate_escape = {1},
                                               .crclen_escape = {1},
                                               .fec_type = {1},
                                               .number_of_bits_for_length = {3}},
                 parseErrorProtectionSpecificConfig);
}

} // namespace
