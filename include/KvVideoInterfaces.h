#pragma once

// The host's video side: the sink of a video or transport stream, and the surfaces that it lends.

#include <cstddef>
#include <cstdint>

#include "PlatformCom.h"

enum EKvFaceType : std::uint32_t { keKvFaceTypeFront = 1 };

// Filled by IKvSurface::Lock. The caller zeroes it and sets m_size.
struct SKvLockedSurfaceDescription {
    std::uint32_t m_size; // of this record: 32
    std::uint32_t m_reserved[4];
    std::uint32_t m_bufferCapacity; // bytes that may be written at m_buffer
    std::uint8_t* m_buffer;         // valid until the surface is delivered or released
};
static_assert(offsetof(SKvLockedSurfaceDescription, m_size) == 0);
static_assert(offsetof(SKvLockedSurfaceDescription, m_reserved) == 4);
static_assert(offsetof(SKvLockedSurfaceDescription, m_bufferCapacity) == 20);
static_assert(offsetof(SKvLockedSurfaceDescription, m_buffer) == 24);
static_assert(sizeof(SKvLockedSurfaceDescription) == 32);

// A buffer of the host that holds one access unit. It is written once: Lock, the bytes, SetTimeStampInfo,
// SignalWriteCompletion; no unlock follows. Called on the thread that delivers the access unit.
struct IKvSurface : IUnknown {
    virtual HRESULT ReservedSlot3() { return E_NOTIMPL; }
    virtual HRESULT ReservedSlot4() { return E_NOTIMPL; }

    // The access unit's time stamp as the network client gave it (100 ns units from the client shipped with
    // this module). The pointer is valid during the call.
    virtual HRESULT SetTimeStampInfo(const std::uint64_t* timeStamp) = 0;
    virtual HRESULT ReservedSlot6() { return E_NOTIMPL; }

    // The bytes are complete.
    virtual HRESULT SignalWriteCompletion() = 0;
    virtual HRESULT ReservedSlot8() { return E_NOTIMPL; }

    // Gives access to the buffer. `first` is 0 and `face` keKvFaceTypeFront. May be called twice for one
    // access unit; the second call must leave what the first one's caller wrote.
    virtual HRESULT Lock(std::uint32_t first, EKvFaceType face, SKvLockedSurfaceDescription* description) = 0;
    virtual HRESULT ReservedSlot10() { return E_NOTIMPL; }

protected:
    ~IKvSurface() = default;
};

// The host's sink of one video or transport stream. The module takes no reference on it: it must outlive the
// receiver. Called on threads of the network client and on the module's worker, one access unit at a time and
// statuses at any time; only data that comes after its stream's end was announced may be delivered while the
// worker still delivers what came before.
struct IKvVideoCallback : IUnknown {
    // Lends a surface with room for `bufferSizeToAskFor` bytes, the exact size of the access unit. *surface
    // carries one reference for the caller. A negative result, or none, drops this access unit only.
    virtual HRESULT ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) = 0;

    // Takes the filled surface back; a host that keeps it adds its own reference. The result is ignored.
    virtual HRESULT DeliverVideoSurface(IKvSurface* surface) = 0;

    // An event of the stream, see KvResultCodes.h.
    virtual HRESULT NotifyStatus(HRESULT status) = 0;

protected:
    ~IKvVideoCallback() = default;
};
