#pragma once

// Result codes and status codes. Negative is failure, zero and positive are success, as for every COM result.
// All of the component's own codes belong to facility 0x999: failures read 0x8999xxxx, status codes
// 0x0999xxxx.

#include <cstdint>

#include "PlatformCom.h"

constexpr HRESULT kvResult(std::uint32_t code) noexcept { return static_cast<HRESULT>(code); }

inline constexpr HRESULT KV_E_OUT_OF_MEMORY = kvResult(0x89998043);
// A URL names no supported protocol, or a session description file cannot be read.
inline constexpr HRESULT KV_E_INVALID_PARAMETER = kvResult(0x89998044);
// A required pointer is null: an argument, or what a call of the host or the SDK should have produced.
inline constexpr HRESULT KV_E_INVALID_POINTER = kvResult(0x89998045);
// A redirect names another protocol than the receiver's.
inline constexpr HRESULT KV_E_INVALID_PROTOCOL = kvResult(0x89998279);
// The source could not be opened.
inline constexpr HRESULT KV_E_CONNECTION_FAILED = kvResult(0x89998290);
// Sent as a status: the connection was lost.
inline constexpr HRESULT KV_E_DISCONNECTED = kvResult(0x89998302);
// A buffer lent by the host is smaller than the data to be copied into it.
inline constexpr HRESULT KV_E_BUFFER_SIZE_TOO_SMALL = kvResult(0x89998307);
// A status of the streaming SDK that has no code of its own.
inline constexpr HRESULT KV_E_UNKNOWN_ERROR = kvResult(0x89998FFF);

// Status codes that a host's sink receives through NotifyStatus, beside KV_E_DISCONNECTED.

// Data of the stream arrives: the first since the start, or since the stream fell silent or ended.
inline constexpr HRESULT KV_S_STREAM_ACTIVE = kvResult(0x0999202E);
// The stream has ended and its last access unit has been delivered.
inline constexpr HRESULT KV_S_STREAM_ENDED = kvResult(0x0999202F);
// The stream has been silent for at least 3 s; what was pending has been delivered.
inline constexpr HRESULT KV_S_STREAM_SILENT = kvResult(0x099900A6);
// The streaming SDK sent its notification 5.
inline constexpr HRESULT KV_S_STREAM_NOTICE = kvResult(0x09990075);
