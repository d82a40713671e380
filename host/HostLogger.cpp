#include "HostLogger.h"

#include <atomic>
#include <new>
#include <utility>

#include "ComObject.h"
#include "ModuleLogger.h"
#include "ModuleLoggerComponent.h"
#include "System.h"
#include "Terminal.h"

namespace KorvelVideo::Host {

namespace {

std::atomic<std::uint32_t> g_level{0};
std::atomic<Terminal*> g_terminal{nullptr};

// Makes room among the live lines, then lets the logging component write.
class HostLogger final : public CountedObject<ModuleLogger::IModuleLogger> {
public:
    explicit HostLogger(Reference<ModuleLogger::IModuleLogger> component) noexcept
        : CountedObject(IID_IModuleLogger), m_component(std::move(component)) {}

    HRESULT LogException(std::uint32_t moduleId, const CKvVaneException* exception) override {
        makeRoom();
        return m_component->LogException(moduleId, exception);
    }

    HRESULT LogMessage(std::uint32_t moduleId, std::uint32_t category, std::uint32_t level,
                       const char* sourceFile, const char* function, std::uint32_t line,
                       const char* text) override {
        if (level < g_level) {
            return S_OK;
        }
        makeRoom();
        return m_component->LogMessage(moduleId, category, level, sourceFile, function, line, text);
    }

private:
    static void makeRoom() {
        if (Terminal* terminal = g_terminal; terminal != nullptr) {
            terminal->makeRoom();
        }
    }

    const Reference<ModuleLogger::IModuleLogger> m_component;
};

HRESULT createLogger(REFIID iid, void** object) {
    Reference<ModuleLogger::IModuleLogger> component;
    const HRESULT created = ModuleLogger::loggerClassObject()->CreateInstance(nullptr, IID_IModuleLogger,
                                                                              component.receiveVoid());
    if (FAILED(created)) {
        return created;
    }
    auto* logger = new (std::nothrow) HostLogger(std::move(component));
    if (logger == nullptr) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = logger->QueryInterface(iid, object);
    logger->Release();
    return result;
}

} // namespace

HRESULT registerLogger(std::uint32_t level, Terminal& terminal) {
    static ClassObject classObject(createLogger);
    g_level = level;
    g_terminal = &terminal;
    // The component writes what gets past the level above.
    setEnvironmentVariable("KV_LOG_LEVEL", "0");
    // What is registered lasts as long as the apartment: for ever.
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    DWORD cookie = 0;
    return CoRegisterClassObject(CLSID_ModuleLogger, &classObject, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                                 &cookie);
}

void retireLogger() noexcept { g_terminal = nullptr; }

} // namespace KorvelVideo::Host
