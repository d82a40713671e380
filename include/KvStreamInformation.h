#pragma once

// What the host learns of a stream before it chooses a sink for it, and the callback that asks it to.

#include <cstdint>

#include "KvAudioInterfaces.h"
#include "KvVideoFormat.h"
#include "KvVideoInterfaces.h"
#include "PlatformCom.h"

enum EKvStreamType : std::uint32_t {
    keKvStreamTypeH264 = 1,
    keKvStreamTypeAac = 2,
    keKvStreamTypeTransportStream = 3,
};

// Immutable; every operation may be called from any thread and never fails. A host that keeps the object adds
// a reference.
struct IKvNetworkReceiverStreamInformation : IUnknown {
    // EKvStreamType; tells which of the derived interfaces the object has.
    virtual std::uint32_t GetStreamType() = 0;

protected:
    ~IKvNetworkReceiverStreamInformation() = default;
};

struct IKvNetworkReceiverH264Information : IKvNetworkReceiverStreamInformation {
    virtual SKvVideoFormatDescription GetVideoFormat() = 0;
    // EKvColourClass
    virtual std::uint32_t GetColourClass() = 0;
    // profile_idc and level_idc of the sequence parameter set (ISO/IEC 14496-10, 7.4.2.1.1); 0 without one.
    virtual std::uint32_t GetProfile() = 0;
    virtual std::uint32_t GetLevel() = 0;

protected:
    ~IKvNetworkReceiverH264Information() = default;
};

// Two values of the network client's stream description, passed through. The client shipped with this module
// puts the sampling rate in Hz in the first and the number of channels in the second.
struct IKvNetworkReceiverAacInformation : IKvNetworkReceiverStreamInformation {
    virtual std::uint32_t GetFirstValue() = 0;
    virtual std::uint32_t GetSecondValue() = 0;

protected:
    ~IKvNetworkReceiverAacInformation() = default;
};

// The host's answer to each stream that a source turns out to have. Called on a thread of the network client
// while the receiver is being created or redirected. The module takes no reference on the callback or on a
// sink: both must outlive the receiver.
struct IKvNetworkStreamDetectorCallback : IUnknown {
    // Returns the sink of an H.264 or transport stream, or null to refuse it.
    virtual IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation* information) = 0;
    // Returns the sink of an AAC stream, or null to refuse it.
    virtual IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation* information) = 0;

protected:
    ~IKvNetworkStreamDetectorCallback() = default;
};

// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A021}
inline constexpr IID IID_IKvNetworkReceiverStreamInformation{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x21}};
// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A022}
inline constexpr IID IID_IKvNetworkReceiverH264Information{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x22}};
// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A023}
inline constexpr IID IID_IKvNetworkReceiverAacInformation{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x23}};
