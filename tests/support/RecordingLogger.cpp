#include "RecordingLogger.h"

#include <atomic>
#include <mutex>
#include <ostream>
#include <utility>

#include "ModuleLogger.h"
#include "TestObject.h"

namespace {

// Never destroyed: the module's holders log and release their loggers after main has ended.
struct Records {
    std::mutex lock;
    std::vector<LogLine> lines;
    std::vector<CKvVaneException> exceptions;
    std::vector<std::string> sites;
    bool enabled = true;
    int foreignModuleIds = 0;
    std::atomic<int> created{0};
    std::atomic<int> alive{0};
};

Records& records() {
    static auto* const instance = new Records;
    return *instance;
}

class Logger final : public TestObject<ModuleLogger::IModuleLogger> {
public:
    Logger() : TestObject(IID_IModuleLogger) {
        ++records().created;
        ++records().alive;
    }
    ~Logger() override { --records().alive; }

    HRESULT LogException(std::uint32_t moduleId, const CKvVaneException* exception) override {
        const std::lock_guard lock(records().lock);
        records().foreignModuleIds += moduleId == 7 ? 0 : 1;
        if (records().enabled) {
            records().exceptions.push_back(*exception);
        }
        return S_OK;
    }
    HRESULT LogMessage(std::uint32_t moduleId, std::uint32_t category, std::uint32_t level,
                       const char* sourceFile, const char* function, std::uint32_t /*line*/,
                       const char* text) override {
        const std::lock_guard lock(records().lock);
        records().foreignModuleIds += moduleId == 7 ? 0 : 1;
        if (records().enabled) {
            records().lines.push_back({category, level, text});
            records().sites.push_back(std::string(sourceFile) + "|" + function);
        }
        return S_OK;
    }
};

class LoggerClass final : public StaticTestObject<IClassFactory> {
public:
    HRESULT QueryInterface(REFIID, void** object) override {
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        auto* const logger = new Logger;
        const HRESULT result = logger->QueryInterface(iid, object);
        logger->Release();
        return result;
    }
    HRESULT LockServer(BOOL) override { return S_OK; }
};

struct Registration {
    Registration() {
        static auto* const loggerClass = new LoggerClass;
        DWORD cookie = 0;
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        CoRegisterClassObject(CLSID_ModuleLogger, loggerClass, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                              &cookie);
    }
};

// Before every static of ordinary priority, the module's holders among them.
[[gnu::init_priority(101)]] Registration g_registration;

} // namespace

std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
    return stream << '{' << line.category << ", " << line.level << ", \"" << line.text << "\"}";
}

namespace RecordingLogger {

std::vector<LogLine> takeLines(bool withLifetimeLines) {
    const std::lock_guard lock(records().lock);
    std::vector<LogLine> lines = std::exchange(records().lines, {});
    if (!withLifetimeLines) {
        std::erase_if(lines, [](const LogLine& line) { return line.level == 0; });
    }
    return lines;
}

std::vector<CKvVaneException> takeExceptions() {
    const std::lock_guard lock(records().lock);
    return std::exchange(records().exceptions, {});
}

std::vector<std::string> takeSites() {
    const std::lock_guard lock(records().lock);
    return std::exchange(records().sites, {});
}

void clear() {
    const std::lock_guard lock(records().lock);
    records().lines.clear();
    records().exceptions.clear();
    records().sites.clear();
}

void setEnabled(bool enabled) {
    const std::lock_guard lock(records().lock);
    records().enabled = enabled;
}

int created() { return records().created; }

int alive() { return records().alive; }

int foreignModuleIds() {
    const std::lock_guard lock(records().lock);
    return records().foreignModuleIds;
}

} // namespace RecordingLogger
