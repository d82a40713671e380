#pragma once

// The logging component, class CLSID_ModuleLogger. Its lines go to standard error, one write for each, so
// that lines of several threads and processes do not mix:
//
//     2026-03-01T12:00:00.123Z error   module 7 src/BaseReceiver:120 Error enabling receiver.
//
// A caught exception is written at the level "error", its text being the result code in hexadecimal, the
// expression that failed and the function it failed in.
//
// The environment variable KV_LOG_LEVEL (0 to 4, 2 when it is not set) is read when the component is created:
// lines below that level are not written.

#include "ModuleLogger.h"

namespace ModuleLogger {

// The component's class object, which lives as long as the process and is safe on any thread. A host makes
// the component known to its modules with
//     CoRegisterClassObject(CLSID_ModuleLogger, loggerClassObject(), CLSCTX_INPROC_SERVER,
//                           REGCLS_MULTIPLEUSE, &cookie);
// before it loads them.
IClassFactory* loggerClassObject() noexcept;

// Loggers alive and server locks held: with 0 the component's code may be unloaded.
std::uint32_t loggerUseCount() noexcept;

} // namespace ModuleLogger
