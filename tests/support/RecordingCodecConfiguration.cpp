#include "RecordingCodecConfiguration.h"

#include <cstdio>

#include "CallLog.h"
#include "KvAudioInterfaces.h"
#include "TestObject.h"

namespace {

std::atomic<HRESULT> g_creationResult{S_OK};
std::atomic<HRESULT> g_dataResult{S_OK};
std::atomic<int> g_created{0};
std::atomic<int> g_alive{0};
std::atomic<int> g_references{0};

class Configuration final : public TestObject<IKvAACCodecConfigDataAccess> {
public:
    Configuration()
        : TestObject(IID_IKvAACCodecConfigDataAccess), m_name("config" + std::to_string(++g_created)) {
        ++g_alive;
        ++g_references;
    }
    ~Configuration() override {
        CallLog::instance().record(m_name + " ended");
        --g_alive;
    }

    ULONG AddRef() override {
        ++g_references;
        return TestObject::AddRef();
    }
    ULONG Release() override {
        --g_references;
        return TestObject::Release();
    }
    HRESULT SetCodecConfigData(const SKvCodecConfigData* data) override {
        std::string text = std::to_string(data->m_size) + ", " + std::to_string(data->m_configLength) + ",";
        if (data->m_configData == nullptr) {
            text += " null";
        } else {
            for (std::uint32_t i = 0; i < data->m_configLength; ++i) {
                char byte[4];
                std::snprintf(byte, sizeof(byte), " %02X", data->m_configData[i]);
                text += byte;
            }
        }
        CallLog::instance().record(m_name + ".SetCodecConfigData(" + text + ")");
        return g_dataResult;
    }

    [[nodiscard]] const std::string& name() const { return m_name; }

private:
    const std::string m_name;
};

class ConfigurationClass final : public StaticTestObject<IClassFactory> {
public:
    HRESULT QueryInterface(REFIID, void** object) override {
        *object = static_cast<IClassFactory*>(this);
        AddRef();
        return S_OK;
    }
    HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        *object = nullptr;
        if (outer != nullptr) {
            return CLASS_E_NOAGGREGATION;
        }
        if (g_creationResult < 0) {
            CallLog::instance().record("CreateInstance failed");
            return g_creationResult;
        }
        auto* const configuration = new Configuration;
        CallLog::instance().record("CreateInstance(" + configuration->name() + ")");
        const HRESULT result = configuration->QueryInterface(iid, object);
        configuration->Release();
        return result;
    }
    HRESULT LockServer(BOOL) override { return S_OK; }
};

ConfigurationClass g_class;

} // namespace

RecordingCodecConfiguration::RecordingCodecConfiguration() {
    g_creationResult = S_OK;
    g_dataResult = S_OK;
    restartNames();
    CoRegisterClassObject(CLSID_KvAACCodecConfigDataAccess, &g_class, CLSCTX_INPROC_SERVER,
                          REGCLS_MULTIPLEUSE, &m_cookie);
}

RecordingCodecConfiguration::~RecordingCodecConfiguration() { CoRevokeClassObject(m_cookie); }

void RecordingCodecConfiguration::setCreationResult(HRESULT result) { g_creationResult = result; }

void RecordingCodecConfiguration::setDataResult(HRESULT result) { g_dataResult = result; }

void RecordingCodecConfiguration::restartNames() { g_created = 0; }

int RecordingCodecConfiguration::alive() { return g_alive; }

int RecordingCodecConfiguration::references() { return g_references; }

std::string RecordingCodecConfiguration::nameOf(const IUnknown* object) {
    const auto* const configuration = dynamic_cast<const Configuration*>(object);
    return configuration == nullptr ? "unknown object" : configuration->name();
}
