#include "RecordingLogger.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "CallLog.h"
#include "ModuleLogger.h"
#include "TestObject.h"

namespace {

// Never destroyed: the module's holders log and release their loggers after main has ended.
struct Records {
    std::mutex lock;
    std::vector<LogLine> lines;
    std::vector<CKvVaneException> exceptions;
    std::vector<std::string> sites;
    std::atomic<bool> enabled{true};
    std::atomic<int> alive{0};

    template <class Kept>
    Kept take(Kept& kept) {
        const std::lock_guard guard(lock);
        return std::exchange(kept, {});
    }
};

Records& records() {
    static auto* const instance = new Records;
    return *instance;
}

class Logger final : public TestObject<ModuleLogger::IModuleLogger> {
public:
    Logger() : TestObject(IID_IModuleLogger) { ++records().alive; }
    ~Logger() override { --records().alive; }

    HRESULT LogException(std::uint32_t /*moduleId*/, const CKvVaneException* exception) override {
        return keep([&] { records().exceptions.push_back(*exception); });
    }
    HRESULT LogMessage(std::uint32_t moduleId, std::uint32_t category, std::uint32_t level,
                       const char* sourceFile, const char* function, std::uint32_t /*line*/,
                       const char* text) override {
        return keep([&] {
            const std::string prefix = moduleId == 7 ? "" : "module " + std::to_string(moduleId) + ": ";
            records().lines.push_back({category, level, prefix + text});
            records().sites.push_back(std::string(sourceFile) + "|" + function);
        });
    }

private:
    template <class Action>
    static HRESULT keep(const Action& action) {
        const FakeScope fake;
        const std::lock_guard lock(records().lock);
        if (records().enabled) {
            action();
        }
        return S_OK;
    }
};

struct Registration {
    Registration() {
        CoInitializeEx(nullptr, COINIT_MULTITHREADED); // and so every thread that enters no apartment
        RecordingLogger::registerClass();
    }
};

// Before every static of ordinary priority, the module's holders among them.
[[gnu::init_priority(101)]] Registration g_registration;

} // namespace

namespace RecordingLogger {

std::vector<LogLine> takeLines(bool withLifetimeLines) {
    std::vector<LogLine> lines = records().take(records().lines);
    std::erase_if(lines, [&](const LogLine& line) { return !withLifetimeLines && line.level == 0; });
    return lines;
}
std::vector<CKvVaneException> takeExceptions() { return records().take(records().exceptions); }
std::string takeExceptionText() {
    std::string text;
    for (const CKvVaneException& exception : takeExceptions()) {
        text += hexadecimal(exception.m_result) + " " + exception.m_sourceFile + ": " +
                exception.m_expression + "\n";
    }
    return text;
}
std::vector<std::string> takeSites() { return records().take(records().sites); }

void clear() {
    static_cast<void>(takeLines());
    static_cast<void>(takeExceptions());
    static_cast<void>(takeSites());
}

void setEnabled(bool enabled) { records().enabled = enabled; }

void registerClass() {
    static auto* const loggerClass = new TestClass([]() -> IUnknown* { return new Logger; });
    DWORD cookie = 0;
    CoRegisterClassObject(CLSID_ModuleLogger, loggerClass, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
}

int alive() { return records().alive; }

} // namespace RecordingLogger

Unrecorded::Unrecorded() {
    CallLog::instance().setEnabled(false);
    RecordingLogger::setEnabled(false);
}
Unrecorded::~Unrecorded() {
    CallLog::instance().setEnabled(true);
    RecordingLogger::setEnabled(true);
}
