#pragma once

// The host's audio side: the sink of an AAC stream, the sample buffers that it lends, and the object that
// carries the codec configuration.

#include <cstddef>
#include <cstdint>

#include "PlatformCom.h"

// A buffer of the host that holds one access unit of raw AAC payload.
struct IKvAudioSamples : IUnknown {
    // Attaches `object` under the interface identifier `iid`; the buffer adds its own reference.
    virtual HRESULT AttachCustomObject(REFIID iid, IUnknown* object) = 0;
    virtual HRESULT ReservedSlot4() { return E_NOTIMPL; }

    // The access unit's time stamp as the network client gave it (100 ns units from the client shipped with
    // this module). The pointer is valid during the call.
    virtual HRESULT SetTimeStampInfo(const std::uint64_t* timeStamp) = 0;
    virtual HRESULT ReservedSlot6() { return E_NOTIMPL; }

    // The bytes are complete. Also called once more for a buffer that will not be delivered after a failure.
    virtual HRESULT SignalWriteCompletion() = 0;
    virtual HRESULT ReservedSlot8() { return E_NOTIMPL; }

    // The address and capacity in bytes of the buffer, valid until it is delivered or released.
    virtual HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) = 0;
    virtual HRESULT ReservedSlot10() { return E_NOTIMPL; }

protected:
    ~IKvAudioSamples() = default;
};

// The host's sink of one AAC stream. The module takes no reference on it: it must outlive the receiver.
// Called on threads of the network client and on the module's worker, one access unit at a time and statuses
// at any time; only data that comes after its stream's end was announced may be delivered while the worker
// still delivers what came before.
struct IKvAudioCallback : IUnknown {
    // Lends a buffer with room for `bufferSizeToAskFor` bytes (0 is possible for framed AAC). *samples
    // carries one reference for the caller. A negative result, or none, drops this access unit only.
    virtual HRESULT ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) = 0;

    // Takes the filled buffer back; a host that keeps it adds its own reference. The result is ignored.
    virtual HRESULT DeliverAudioSamples(IKvAudioSamples* samples) = 0;

    // An event of the stream, see KvResultCodes.h.
    virtual HRESULT NotifyStatus(HRESULT status) = 0;

protected:
    ~IKvAudioCallback() = default;
};

// Handed to IKvAACCodecConfigDataAccess; it and its bytes are valid during the call only, so the object
// copies them.
struct SKvCodecConfigData {
    std::uint32_t m_size;             // of this record: 16
    std::uint32_t m_configLength;     // bytes at m_configData
    const std::uint8_t* m_configData; // AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1); may be null
};
static_assert(offsetof(SKvCodecConfigData, m_size) == 0);
static_assert(offsetof(SKvCodecConfigData, m_configLength) == 4);
static_assert(offsetof(SKvCodecConfigData, m_configData) == 8);
static_assert(sizeof(SKvCodecConfigData) == 16);

// Carries a stream's codec configuration. The host registers a class for it; the module creates one object
// per stream with CoCreateInstance and attaches it to every buffer of the stream.
struct IKvAACCodecConfigDataAccess : IUnknown {
    virtual HRESULT SetCodecConfigData(const SKvCodecConfigData* data) = 0;

protected:
    ~IKvAACCodecConfigDataAccess() = default;
};

// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A011}
inline constexpr IID IID_IKvAACCodecConfigDataAccess{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x11}};
// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A012}
inline constexpr CLSID CLSID_KvAACCodecConfigDataAccess{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x12}};
