#include "AudioSpecificConfig.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "BitWriter.h"
#include "TestData.h"

using namespace KorvelVideo::Network;

namespace {

struct ConfigCase {
    const char* name;
    const char* bits;
    int consumed;
    std::function<void(AudioSpecificConfig&)> expected; // sets what is not the default
};

class Configs : public testing::TestWithParam<ConfigCase> {};

TEST_P(Configs, WholeRecord) {
    AudioSpecificConfig expected;
    expected.sbrPresentFlag = -1;
    GetParam().expected(expected);
    const Bytes bytes = BitWriter(GetParam().bits).data();
    BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    EXPECT_EQ(parseAudioSpecificConfig(reader), expected);
    EXPECT_EQ(reader.bitsConsumed(), GetParam().consumed);
}

// The first 13 bits of most rows: an object type at 48000 Hz with two channels.
void stereo(AudioSpecificConfig& config, std::uint32_t audioObjectType) {
    config.audioObjectType = audioObjectType;
    config.samplingFrequencyIndex = 3;
    config.samplingFrequency = 48000;
    config.channelConfiguration = 2;
}

INSTANTIATE_TEST_SUITE_P(
    AudioSpecificConfig, Configs,
    testing::Values(
        ConfigCase{"LowComplexity", "00010 0011 0010 000", 16, [](auto& config) { stereo(config, 2); }},
        ConfigCase{"SpectralBandReplication", "00101 0110 0010 0011 00010 000", 25,
                   [](auto& config) {
                       config.audioObjectType = 2;
                       config.samplingFrequencyIndex = 6;
                       config.samplingFrequency = 24000;
                       config.channelConfiguration = 2;
                       config.sbrPresentFlag = 1;
                       config.extensionAudioObjectType = 5;
                       config.extensionSamplingFrequencyIndex = 3;
                       config.extensionSamplingFrequency = 48000;
                   }},
        ConfigCase{"ExplicitFrequencies",
                   "00101 1111 000000001010110001000100 0001 1111 000000000000000000000101 00010 000", 73,
                   [](auto& config) {
                       config.audioObjectType = 2;
                       config.samplingFrequencyIndex = 15;
                       config.samplingFrequency = 44100;
                       config.channelConfiguration = 1;
                       config.sbrPresentFlag = 1;
                       config.extensionAudioObjectType = 5;
                       config.extensionSamplingFrequencyIndex = 15;
                       config.extensionSamplingFrequency = 5;
                   }},
        ConfigCase{"ReservedIndex", "00010 1101 0010 000", 16,
                   [](auto& config) {
                       stereo(config, 2);
                       config.samplingFrequencyIndex = 13;
                       config.samplingFrequency = 0;
                   }},
        ConfigCase{"EscapedType", "11111 000001 0011 0010 1", 20,
                   [](auto& config) {
                       stereo(config, 33);
                       config.mpeg12Extension = 1;
                   }},
        ConfigCase{"ParametricStereoIsNotSignalled", "11101 0011 0010 111", 13,
                   [](auto& config) { stereo(config, 29); }},
        ConfigCase{"CoreCoderDelay", "00010 0011 0010 0 1 10000000000001 0", 30,
                   [](auto& config) {
                       stereo(config, 2);
                       config.gaConfig.dependsOnCoreCoder = 1;
                       config.gaConfig.coreCoderDelay = 0x2001;
                   }},
        ConfigCase{"Scalable", "00110 0011 0010 100 101", 19,
                   [](auto& config) {
                       stereo(config, 6);
                       config.gaConfig.frameLengthFlag = 1;
                       config.gaConfig.layerNr = 5;
                   }},
        ConfigCase{"ErrorResilient", "10001 0011 0010 001 101 1 01", 22,
                   [](auto& config) {
                       stereo(config, 17);
                       config.gaConfig.extensionFlag = 1;
                       config.gaConfig.aacSectionDataResilienceFlag = 1;
                       config.gaConfig.aacSpectralDataResilienceFlag = 1;
                       config.gaConfig.extensionFlag3 = 1;
                       config.epConfig = 1;
                   }},
        ConfigCase{"ErrorResilientScalable", "10100 0011 0010 001 011 010 1 00", 25,
                   [](auto& config) {
                       stereo(config, 20);
                       config.gaConfig.extensionFlag = 1;
                       config.gaConfig.layerNr = 3;
                       config.gaConfig.aacScalefactorDataResilienceFlag = 1;
                       config.gaConfig.extensionFlag3 = 1;
                   }},
        ConfigCase{"BitSliced", "10110 0011 0010 001 10001 10000000001 0 00", 35,
                   [](auto& config) {
                       stereo(config, 22);
                       config.gaConfig.extensionFlag = 1;
                       config.gaConfig.numOfSubFrame = 17;
                       config.gaConfig.layer_length = 1025;
                   }},
        ConfigCase{"ExtensionOfAType21", "10101 0011 0010 001 1 00", 19,
                   [](auto& config) {
                       stereo(config, 21);
                       config.gaConfig.extensionFlag = 1;
                       config.gaConfig.extensionFlag3 = 1;
                   }},
        ConfigCase{"ErrorProtection", "10111 0011 0010 000 10 00000000 00 000 000 0", 35,
                   [](auto& config) {
                       stereo(config, 23);
                       config.epConfig = 2;
                   }},
        ConfigCase{"DirectMapping", "11000 0011 0010 0 0 11 11 00000000 01 000 000 0 1", 37,
                   [](auto& config) {
                       stereo(config, 24);
                       config.erCelpConfig.CELP_BRS_id = 3;
                       config.epConfig = 3;
                       config.errorProtectionConfig.interleave_type = 1;
                       config.directMapping = 1;
                   }},
        ConfigCase{"Celp", "01000 0011 0010 0 0 10", 17,
                   [](auto& config) {
                       stereo(config, 8);
                       config.celpConfig.CELP_BRS_id = 2;
                   }},
        ConfigCase{"Hvxc", "01001 0011 0010 1 1 00 0", 18,
                   [](auto& config) {
                       stereo(config, 9);
                       config.hvxcConfig = {1, 1, 0, 0};
                   }},
        ConfigCase{"TextToSpeech", "01100 0011 0010 10000 000000000000000001 0000001", 43,
                   [](auto& config) {
                       stereo(config, 12);
                       config.ttsConfig.TTS_Sequence_ID = 16;
                       config.ttsConfig.Language_Code = 1;
                       config.ttsConfig.Trick_Mode_Enable = 1;
                   }},
        ConfigCase{"StructuredAudio", "10000 0011 0010 010 0", 17,
                   [](auto& config) {
                       stereo(config, 16);
                       config.structuredAudioConfig.midiFiles = 1;
                   }},
        ConfigCase{"ErrorResilientHvxc", "11001 0011 0010 1 0 00 1 1 00", 21,
                   [](auto& config) {
                       stereo(config, 25);
                       config.erHvxcConfig = {1, 0, 0, 1, 1};
                   }},
        ConfigCase{"Parametric", "11011 0011 0010 0 1 10 01", 19,
                   [](auto& config) {
                       stereo(config, 27);
                       config.parametricConfig.HILNenhaLayer = 1;
                       config.parametricConfig.HILNenhaQuantMode = 2;
                       config.epConfig = 1;
                   }},
        ConfigCase{"SinusoidalKnowsTheChannels", "11100 0011 0010 00 0000 00 01 11", 25,
                   [](auto& config) {
                       stereo(config, 28);
                       config.sscConfig.mode_ext = 1;
                       config.sscConfig.reserved = 3;
                   }},
        ConfigCase{"NoSpecificConfig", "10010 0011 0010 1111", 13, [](auto& config) { stereo(config, 18); }},
        ConfigCase{"TypesFromThirtyFive", "11111 000111 0011 0010 1111", 19,
                   [](auto& config) { stereo(config, 39); }},
        ConfigCase{"CutShort", "00010 001", 64,
                   [](auto& config) { // the bits that are missing take no room
                       config.audioObjectType = 2;
                       config.samplingFrequencyIndex = 1;
                       config.samplingFrequency = 88200;
                   }}),
    nameOfRow);

TEST(AudioSpecificConfig, EveryFrequencyIndex) {
    const std::uint32_t frequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                         16000, 12000, 11025, 8000,  7350,  0,     0};
    for (std::uint32_t index = 0; index < 15; ++index) {
        const Bytes bytes = BitWriter("00010").u(index, 4).bits("0001 000").data();
        BitReader reader(bytes.data(), static_cast<std::int32_t>(bytes.size()));
        EXPECT_EQ(parseAudioSpecificConfig(reader).samplingFrequency, frequencies[index]) << index;
    }
}

TEST(ProgramConfig, EveryElementAndTheAlignmentOfTheComment) {
    BitWriter bits("00010 0011 0000 0 0 0"); // low complexity, no channel configuration: the element follows
    bits.bits("1010 01 0011  0010 0001 0001 01 010 0001"); // counts
    bits.bits("1 1001  1 0110  1 10 1");                   // mixdowns
    bits.bits("1 0001 0 0010  1 0011  0 0100  1111 0101 0110  1 0111");
    const int bitsBefore = 16 + 31 + 14 + 5 * 4 + 4 + 8 + 5;
    bits.u(0, (8 - bitsBefore % 8) % 8).bytes({2, 0x41, 0xC2, 0xEE});
    ProgramConfigElement expected{.element_instance_tag = 10,
                                  .object_type = 1,
                                  .sampling_frequency_index = 3,
                                  .num_front_channel_elements = 2,
                                  .num_side_channel_elements = 1,
                                  .num_back_channel_elements = 1,
                                  .num_lfe_channel_elements = 1,
                                  .num_assoc_data_elements = 2,
                                  .num_valid_cc_elements = 1,
                                  .mono_mixdown_present = 1,
                                  .mono_mixdown_element_number = 9,
                                  .stereo_mixdown_present = 1,
                                  .stereo_mixdown_element_number = 6,
                                  .matrix_mixdown_idx_present = 1,
                                  .matrix_mixdown_idx = 2,
                                  .pseudo_surround_enable = 1,
                                  .front_element_is_cpe = {1, 0},
                                  .front_element_tag_select = {1, 2},
                                  .side_element_is_cpe = {1},
                                  .side_element_tag_select = {3},
                                  .back_element_is_cpe = {0},
                                  .back_element_tag_select = {4},
                                  .lfe_element_tag_select = {15},
                                  .assoc_data_element_tag_select = {5, 6},
                                  .cc_element_is_ind_sw = {1},
                                  .valid_cc_element_tag_select = {7},
                                  .comment_field_bytes = 2,
                                  .comment_field_data = {0x41, 0xC2}};
    BitReader reader(bits.data().data(), static_cast<std::int32_t>(bits.data().size()));
    EXPECT_EQ(parseAudioSpecificConfig(reader).gaConfig.programConfig, expected);
    EXPECT_EQ(reader.readUnsigned(8), 0xEEU);
}

} // namespace
