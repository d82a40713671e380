#include "Logging.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include "PlatformKernel.h"

ModuleLoggerHolder::ModuleLoggerHolder()
    : m_coInitializeResult(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)),
      m_threadId(GetCurrentThreadId()) {
    // Without a logger component the module runs all the same, so the result is not looked at.
    static_cast<void>(CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger,
                                       reinterpret_cast<void**>(&m_logger)));
}

ModuleLoggerHolder::~ModuleLoggerHolder() {
    m_logger = nullptr;
    if (m_coInitializeResult >= 0 && m_threadId == GetCurrentThreadId()) {
        CoUninitialize();
    }
}

namespace logging {

void writeException(const ModuleLoggerHolder& holder, const CKvVaneException& exception) {
    if (static_cast<ModuleLogger::IModuleLogger*>(holder.m_logger) == nullptr) {
        return;
    }
    static_cast<void>(holder.m_logger->LogException(kModuleId, &exception));
}

void writeText(const ModuleLoggerHolder& holder, std::uint32_t category, std::uint32_t level,
               const char* sourceFile, const char* function, std::uint32_t line, const char* text) {
    if (static_cast<ModuleLogger::IModuleLogger*>(holder.m_logger) == nullptr) {
        return;
    }
    static_cast<void>(
        holder.m_logger->LogMessage(kModuleId, category, level, sourceFile, function, line, text));
}

void writeFormatted(const ModuleLoggerHolder& holder, std::uint32_t category, std::uint32_t level,
                    const char* sourceFile, const char* function, std::uint32_t line, const char* format,
                    ...) {
    if (static_cast<ModuleLogger::IModuleLogger*>(holder.m_logger) == nullptr) {
        return;
    }
    std::array<char, 1024> text{};
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    if (length >= 0) {
        writeText(holder, category, level, sourceFile, function, line, text.data());
    }
}

} // namespace logging
