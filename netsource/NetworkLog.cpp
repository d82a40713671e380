#include "NetworkLog.h"

#include "ComApartment.h"
#include "ModuleLogger.h"

namespace KorvelVideo::NetworkSource {

namespace {

constexpr std::uint32_t kStreamCategory = 3;
constexpr std::uint32_t kFailureCategory = 0;

} // namespace

// Lines are rare, so the component is made for each: nothing of it is held when the host takes it away.
void writeLog(LogLevel level, const char* file, const char* function, std::uint32_t line,
              const std::string& text) noexcept {
    const ComApartment apartment;
    void* object = nullptr;
    if (FAILED(CoCreateInstance(CLSID_ModuleLogger, nullptr, CLSCTX_INPROC_SERVER, IID_IModuleLogger,
                                &object)) ||
        object == nullptr) {
        return;
    }
    auto* const logger = static_cast<ModuleLogger::IModuleLogger*>(object);
    const std::uint32_t category = level == LogLevel::error ? kFailureCategory : kStreamCategory;
    logger->LogMessage(kLogModuleId, category, static_cast<std::uint32_t>(level), file, function, line,
                       text.c_str());
    logger->Release();
}

} // namespace KorvelVideo::NetworkSource
