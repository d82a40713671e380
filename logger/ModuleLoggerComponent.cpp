#include "ModuleLoggerComponent.h"

#include <atomic>
#include <new>

#include "LogLine.h"
#include "LogOutput.h"

namespace ModuleLogger {

namespace {

constexpr std::uint32_t highestLevel = 4;
constexpr std::uint32_t defaultLevel = 2;

std::atomic<std::uint32_t> g_useCount{0};

// The level that KV_LOG_LEVEL asks for; anything but one digit from 0 to 4 is passed over.
std::uint32_t chosenLevel() noexcept {
    const char* text = logLevelVariable();
    const bool isLevel = text != nullptr && text[0] >= '0' && text[0] <= '4' && text[1] == '\0';
    return isLevel ? static_cast<std::uint32_t>(text[0] - '0') : defaultLevel;
}

void writeLine(LogLine& line) noexcept { writeToStandardError(line.finish()); }

class Logger final : public IModuleLogger {
public:
    Logger() noexcept : m_level(chosenLevel()) { ++g_useCount; }

    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        if (iid != IID_IUnknown && iid != IID_IModuleLogger) {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *object = static_cast<IModuleLogger*>(this);
        return S_OK;
    }

    ULONG AddRef() override { return ++m_references; }

    ULONG Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    HRESULT LogException(std::uint32_t moduleId, const CKvVaneException* exception) override {
        if (exception == nullptr) {
            return E_POINTER;
        }
        LogLine line(highestLevel, moduleId, exception->m_sourceFile, exception->m_line);
        line.addResult(exception->m_result).add(" \"").add(exception->m_expression).add("\" in ");
        line.add(exception->m_function);
        writeLine(line);
        return S_OK;
    }

    HRESULT LogMessage(std::uint32_t moduleId, std::uint32_t /*category*/, std::uint32_t level,
                       const char* sourceFile, const char* /*function*/, std::uint32_t line,
                       const char* text) override {
        if (level < m_level) {
            return S_OK;
        }
        LogLine output(level, moduleId, sourceFile, line);
        writeLine(output.add(text));
        return S_OK;
    }

private:
    ~Logger() { --g_useCount; }

    const std::uint32_t m_level;
    std::atomic<ULONG> m_references{0};
};

class LoggerFactory final : public IClassFactory {
public:
    HRESULT QueryInterface(REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        const bool isOwn = iid == IID_IUnknown || iid == IID_IClassFactory;
        *object = isOwn ? static_cast<IClassFactory*>(this) : nullptr;
        if (!isOwn) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }

    // References do not end the factory, but they keep its code loaded.
    ULONG AddRef() override { return ++g_useCount; }
    ULONG Release() override { return --g_useCount; }

    HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        if (object == nullptr) {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        auto* logger = new (std::nothrow) Logger;
        if (logger == nullptr) {
            return E_OUTOFMEMORY;
        }
        logger->AddRef();
        const HRESULT result = logger->QueryInterface(iid, object);
        logger->Release();
        return result;
    }

    HRESULT LockServer(BOOL lock) override {
        if (lock != FALSE) {
            AddRef();
        } else {
            Release();
        }
        return S_OK;
    }
};

constinit LoggerFactory g_factory;

} // namespace

IClassFactory* loggerClassObject() noexcept { return &g_factory; }

std::uint32_t loggerUseCount() noexcept { return g_useCount; }

} // namespace ModuleLogger
