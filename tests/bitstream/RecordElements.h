#pragma once

#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "H264SequenceParameterSet.h"
#include "StreamMuxConfig.h"

namespace KorvelVideo::Network {

// The syntax elements of a record by name, in stream order, and the numbers that follow from them. Sequences
// are in parentheses.
using Elements = std::vector<std::pair<std::string, std::string>>;

template <typename Value>
std::string asValue(const Value& value) {
    std::ostringstream text;
    text.precision(10);
    if constexpr (std::is_arithmetic_v<Value>) {
        text << +value;
    } else {
        for (const auto& item : value) {
            text << (text.tellp() == 0 ? "(" : ",") << item;
        }
        text << (value.empty() ? "0" : ")");
    }
    return text.str();
}

// names: "r.first, part.second", of the values in this order; they become "first" and "part.second".
template <typename... Values>
void add(Elements& elements, const std::string& names, const Values&... values) {
    std::istringstream words(names);
    const auto next = [&] {
        std::string name;
        words >> name;
        name.resize(name.find_last_not_of(',') + 1);
        return name.substr(name.starts_with("r.") ? 2 : 0);
    };
    (elements.emplace_back(next(), asValue(values)), ...);
}

#define KV_ADD(elements, ...) add(elements, #__VA_ARGS__, __VA_ARGS__)

inline void addHrd(Elements& to, const H264HrdParameters& r) {
    KV_ADD(to, r.cpb_cnt_minus1, r.bit_rate_scale, r.cpb_size_scale);
    for (std::uint32_t i = 0; i <= r.cpb_cnt_minus1; ++i) {
        const std::string at = "[" + std::to_string(i) + "]";
        to.emplace_back("bit_rate_value_minus1" + at, asValue(r.bit_rate_value_minus1[i]));
        to.emplace_back("cpb_size_value_minus1" + at, asValue(r.cpb_size_value_minus1[i]));
        to.emplace_back("cbr_flag" + at, asValue(r.cbr_flag[i]));
        to.emplace_back("BitRate" + at, asValue(r.BitRate[i]));
    }
}

inline void addVui(Elements& to, const H264VuiParameters& r) {
    KV_ADD(to, r.aspect_ratio_info_present_flag, r.aspect_ratio_idc, r.sar_width, r.sar_height,
           r.overscan_info_present_flag, r.overscan_appropriate_flag, r.video_signal_type_present_flag,
           r.video_format, r.video_full_range_flag, r.colour_description_present_flag, r.colour_primaries,
           r.transfer_characteristics, r.matrix_coefficients, r.chroma_loc_info_present_flag,
           r.chroma_sample_loc_type_top_field, r.chroma_sample_loc_type_bottom_field,
           r.timing_info_present_flag, r.num_units_in_tick, r.time_scale, r.fixed_frame_rate_flag);
    add(to, "nal_hrd_parameters_present_flag", r.nalHrdParameters.has_value());
    if (r.nalHrdParameters) {
        addHrd(to, *r.nalHrdParameters);
    }
    add(to, "vcl_hrd_parameters_present_flag", r.vclHrdParameters.has_value());
    if (r.vclHrdParameters) {
        addHrd(to, *r.vclHrdParameters);
    }
    KV_ADD(to, r.pic_struct_present_flag);
}

inline void addProgram(Elements& to, const ProgramConfigElement& program) {
    KV_ADD(to, program.element_instance_tag, program.object_type, program.sampling_frequency_index,
           program.num_front_channel_elements, program.num_side_channel_elements,
           program.num_back_channel_elements, program.num_lfe_channel_elements,
           program.num_assoc_data_elements, program.num_valid_cc_elements, program.mono_mixdown_present,
           program.mono_mixdown_element_number, program.stereo_mixdown_present,
           program.stereo_mixdown_element_number, program.matrix_mixdown_idx_present,
           program.matrix_mixdown_idx, program.pseudo_surround_enable, program.front_element_is_cpe,
           program.front_element_tag_select, program.side_element_is_cpe, program.side_element_tag_select,
           program.back_element_is_cpe, program.back_element_tag_select, program.lfe_element_tag_select,
           program.assoc_data_element_tag_select, program.cc_element_is_ind_sw,
           program.valid_cc_element_tag_select, program.comment_field_bytes, program.comment_field_data);
}

inline Elements elementsOf(const H264SequenceParameterSet& r) {
    Elements to;
    KV_ADD(to, r.profile_idc, r.level_idc, r.seq_parameter_set_id, r.chroma_format_idc,
           r.separate_colour_plane_flag, r.ChromaArrayType, r.bit_depth_luma_minus8,
           r.bit_depth_chroma_minus8, r.log2_max_frame_num_minus4, r.pic_order_cnt_type,
           r.log2_max_pic_order_cnt_lsb_minus4, r.delta_pic_order_always_zero_flag, r.offset_for_non_ref_pic,
           r.offset_for_top_to_bottom_field, r.num_ref_frames_in_pic_order_cnt_cycle, r.offset_for_ref_frame,
           r.max_num_ref_frames, r.pic_width_in_mbs_minus1, r.pic_height_in_map_units_minus1,
           r.frame_mbs_only_flag, r.mb_adaptive_frame_field_flag, r.frame_cropping_flag,
           r.frame_crop_left_offset, r.frame_crop_right_offset, r.frame_crop_top_offset,
           r.frame_crop_bottom_offset);
    add(to, "vui_parameters_present_flag", r.vui.has_value());
    if (r.vui) {
        addVui(to, *r.vui);
    }
    add(to, "width height bitDepth displayAspectRatio frameRate", r.getWidth(), r.getHeight(),
        r.getLumaBitDepth(), r.getDisplayAspectRatio(), r.getFrameRate());
    return to;
}

inline Elements elementsOf(const AudioSpecificConfig& r) {
    Elements to;
    const GASpecificConfig& ga = r.gaConfig;
    const CelpSpecificConfig& celp = r.celpConfig;
    const ErrorResilientCelpSpecificConfig& er = r.erCelpConfig;
    const HvxcSpecificConfig& hvxc = r.hvxcConfig;
    const ErrorResilientHvxcSpecificConfig& erHvxc = r.erHvxcConfig;
    const TTSSpecificConfig& tts = r.ttsConfig;
    const StructuredAudioSpecificConfig& audio = r.structuredAudioConfig;
    const ParametricSpecificConfig& para = r.parametricConfig;
    const SSCSpecificConfig& ssc = r.sscConfig;
    const ErrorProtectionSpecificConfig& ep = r.errorProtectionConfig;
    KV_ADD(to, r.audioObjectType, r.samplingFrequencyIndex, r.samplingFrequency, r.channelConfiguration,
           r.sbrPresentFlag, r.extensionAudioObjectType, r.extensionSamplingFrequencyIndex,
           r.extensionSamplingFrequency, ga.frameLengthFlag, ga.dependsOnCoreCoder, ga.coreCoderDelay,
           ga.extensionFlag);
    addProgram(to, ga.programConfig);
    KV_ADD(to, ga.layerNr, ga.numOfSubFrame, ga.layer_length, ga.aacSectionDataResilienceFlag,
           ga.aacScalefactorDataResilienceFlag, ga.aacSpectralDataResilienceFlag, ga.extensionFlag3,
           celp.isBaseLayer, celp.ExcitationMode, celp.SampleRateMode, celp.FineRateControl,
           celp.RPE_Configuration, celp.MPE_Configuration, celp.NumEnhLayers, celp.BandwidthScalabilityMode,
           celp.isBWSLayer, celp.BWS_configuration, celp.CELP_BRS_id, er.isBaseLayer, er.ExcitationMode,
           er.SampleRateMode, er.FineRateControl, er.SilenceCompression, er.RPE_Configuration,
           er.MPE_Configuration, er.NumEnhLayers, er.BandwidthScalabilityMode, er.isBWSLayer,
           er.BWS_configuration, er.CELP_BRS_id, hvxc.isBaseLayer, hvxc.HVXCvarMode, hvxc.HVXCrateMode,
           hvxc.extensionFlag, erHvxc.isBaseLayer, erHvxc.HVXCvarMode, erHvxc.HVXCrateMode,
           erHvxc.extensionFlag, erHvxc.var_ScalableFlag, tts.TTS_Sequence_ID, tts.Language_Code,
           tts.Gender_Enable, tts.Age_Enable, tts.Speech_Rate_Enable, tts.Prosody_Enable, tts.Video_Enable,
           tts.Lip_Shape_Enable, tts.Trick_Mode_Enable, audio.orchestraFiles, audio.scoreFiles,
           audio.midiFiles, audio.samples, audio.sampleBanks, audio.symbolTables, para.isBaseLayer,
           para.PARAmode, para.HVXCvarMode, para.HVXCrateMode, para.extensionFlag, para.var_ScalableFlag,
           para.HILNquantMode, para.HILNmaxNumLine, para.HILNsampleRateCode, para.HILNframeLength,
           para.HILNcontMode, para.PARAextensionFlag, para.HILNenhaLayer, para.HILNenhaQuantMode,
           ssc.decoder_level, ssc.update_rate, ssc.synthesis_method, ssc.mode_ext, ssc.reserved,
           r.mpeg12Extension, r.epConfig, ep.number_of_predefined_set, ep.interleave_type, ep.bit_stuffing,
           ep.number_of_concatenated_frame, ep.number_of_class, ep.length_escape, ep.rate_escape,
           ep.crclen_escape, ep.concatenate_flag, ep.fec_type, ep.termination_switch, ep.interleave_switch,
           ep.class_optional, ep.number_of_bits_for_length, ep.class_length, ep.class_rate, ep.class_crclen,
           ep.class_reordered_output, ep.class_output_order, ep.header_protection, ep.header_rate,
           ep.header_crclen, r.directMapping);
    return to;
}

inline Elements elementsOf(const StreamMuxConfig& r) {
    Elements to;
    KV_ADD(to, r.audioMuxVersion, r.audioMuxVersionA, r.taraBytesForValue, r.taraBufferFullness,
           r.allStreamsSameTimeFraming, r.numSubFrames, r.numProgram);
    for (const LatmProgram& program : r.programs) {
        to.emplace_back("program", std::to_string(program.programIndex) + ":");
        KV_ADD(to, program.numLayer);
        for (const LatmLayer& layer : program.layers) {
            to.emplace_back("layer", std::to_string(layer.layerIndex) + ":");
            KV_ADD(to, layer.useSameConfig, layer.ascBytesForValue, layer.ascLen);
            const Elements specific = elementsOf(layer.config);
            to.insert(to.end(), specific.begin(), specific.end());
            KV_ADD(to, layer.frameLengthType, layer.latmBufferFullness, layer.coreFrameOffset,
                   layer.frameLength);
        }
    }
    KV_ADD(to, r.otherDataPresent, r.otherDataBytesForValue, r.otherDataLenBits, r.crcCheckPresent,
           r.crcCheckSum);
    return to;
}

// A line "name=value" for each element that is not 0 or empty, as table files have them.
inline std::string asText(const Elements& elements) {
    std::string text;
    for (const auto& [name, value] : elements) {
        if (value != "0") {
            text.append(name).append("=").append(value).append("\n");
        }
    }
    return text;
}

} // namespace KorvelVideo::Network
