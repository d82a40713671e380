#pragma once

// The component as a host sees it: four factories, the settings that each reads, and the receiver that it
// makes.
//
//     CoCreateInstance(CLSID_RtspReceiverFactory, nullptr, CLSCTX_INPROC_SERVER,
//                      IID_IKvRtspReceiverFactory, reinterpret_cast<void**>(&factory));
//     // Opens the source and announces its streams.
//     factory->CreateReceiver(settings, callback, &receiver);
//     // Data flows into the sinks.
//     receiver->Start();
//     receiver->Stop();
//     receiver->Release();

#include <cstdint>

#include "KvResultCodes.h"
#include "KvStreamInformation.h"
#include "PlatformCom.h"

// A receiver. The host calls one receiver's operations one at a time, on any thread, also from inside a call
// of a sink. There nothing can wait for that call to return, so a source that Stop, Redirect or the last
// Release leaves is closed a little later, on a thread of the module: until then its sinks may still be
// called, and its local port is taken. After a last Release from inside such a call, keep the sinks and the
// detector callback until the module can be unloaded.
struct IKvNetworkReceiverController : IUnknown {
    // Begins delivery to the sinks. KV_E_DISCONNECTED when no source is open, after Stop or a failed
    // Redirect.
    virtual HRESULT Start() = 0;

    // Ends delivery and closes the source; what was pending is dropped. No sink is called after it has
    // returned, but for an RTMP receiver's end-of-stream status. A second call returns 0 and does nothing.
    virtual HRESULT Stop() = 0;

    // Stops, opens `url`, which must be of the same protocol, announces its streams anew and starts. Failures
    // to open leave it as a thrown CKvVaneException; the receiver is then stopped. Only a session description
    // file that cannot be read, and a lack of memory inside a sink's callback, leave it as it was.
    virtual HRESULT Redirect(const char* url) = 0;

protected:
    ~IKvNetworkReceiverController() = default;
};

// Settings, implemented by the host and read only while a receiver is created. Texts belong to the settings
// object. GetNetworkInterfaceCard names the local interface to receive on (a name or a local address); null
// or empty leaves the choice to the system.

struct IKvRtspReceiverSettings : IUnknown {
    virtual const char* GetUrl() = 0;
    virtual const char* GetNetworkInterfaceCard() = 0;
    // Base of the local pair of receive ports; 0 or negative lets the system choose.
    virtual std::int32_t GetPort() = 0;

protected:
    ~IKvRtspReceiverSettings() = default;
};

struct IKvRtmpReceiverSettings : IUnknown {
    virtual const char* GetUrl() = 0;
    virtual const char* GetNetworkInterfaceCard() = 0;
    virtual std::int32_t GetPort() = 0;

protected:
    ~IKvRtmpReceiverSettings() = default;
};

struct IKvRtpReceiverSettings : IUnknown {
    // A URL, or the path of a session description file (RFC 8866) when it contains ".sdp".
    virtual const char* GetUrl() = 0;
    virtual const char* GetNetworkInterfaceCard() = 0;
    // Handed to the network client as its parameter 3 when it is not 0.
    virtual std::uint32_t GetClientOptionValue() = 0;

protected:
    ~IKvRtpReceiverSettings() = default;
};

struct IKvTsOverUdpReceiverSettings : IUnknown {
    virtual const char* GetUrl() = 0;
    virtual const char* GetNetworkInterfaceCard() = 0;

protected:
    ~IKvTsOverUdpReceiverSettings() = default;
};

// The factories. CreateReceiver opens the source and asks `callback` for the sink of every stream, on a
// thread of the network client, before it returns 0 with the only reference in *receiver. On failure it
// returns the code, logs it once, and does not write *receiver; KV_E_UNKNOWN_ERROR is returned as
// KV_E_CONNECTION_FAILED (and so is 0x89998296 by the RTMP factory). Thread-safe.

struct IKvRtspReceiverFactory : IUnknown {
    virtual HRESULT CreateReceiver(IKvRtspReceiverSettings* settings,
                                   IKvNetworkStreamDetectorCallback* callback,
                                   IKvNetworkReceiverController** receiver) = 0;

protected:
    ~IKvRtspReceiverFactory() = default;
};

struct IKvRtmpReceiverFactory : IUnknown {
    virtual HRESULT CreateReceiver(IKvRtmpReceiverSettings* settings,
                                   IKvNetworkStreamDetectorCallback* callback,
                                   IKvNetworkReceiverController** receiver) = 0;

protected:
    ~IKvRtmpReceiverFactory() = default;
};

struct IKvRtpReceiverFactory : IUnknown {
    virtual HRESULT CreateReceiver(IKvRtpReceiverSettings* settings,
                                   IKvNetworkStreamDetectorCallback* callback,
                                   IKvNetworkReceiverController** receiver) = 0;

protected:
    ~IKvRtpReceiverFactory() = default;
};

struct IKvTsOverUdpReceiverFactory : IUnknown {
    virtual HRESULT CreateReceiver(IKvTsOverUdpReceiverSettings* settings,
                                   IKvNetworkStreamDetectorCallback* callback,
                                   IKvNetworkReceiverController** receiver) = 0;

protected:
    ~IKvTsOverUdpReceiverFactory() = default;
};

// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A031} to ...A034: the factories' interfaces
inline constexpr IID IID_IKvRtspReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x31}};
inline constexpr IID IID_IKvRtmpReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x32}};
inline constexpr IID IID_IKvRtpReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x33}};
inline constexpr IID IID_IKvTsOverUdpReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x34}};

// {5B0B6B0C-7D0E-4B44-9D27-0B1F64C0A041} to ...A044: the factories' classes
inline constexpr CLSID CLSID_RtspReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x41}};
inline constexpr CLSID CLSID_RtmpReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x42}};
inline constexpr CLSID CLSID_RtpReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x43}};
inline constexpr CLSID CLSID_TsOverUdpReceiverFactory{
    0x5B0B6B0C, 0x7D0E, 0x4B44, {0x9D, 0x27, 0x0B, 0x1F, 0x64, 0xC0, 0xA0, 0x44}};
