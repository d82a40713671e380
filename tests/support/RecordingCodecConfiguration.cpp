#include "RecordingCodecConfiguration.h"

#include <cstdio>

#include "CallLog.h"
#include "KvAudioInterfaces.h"
#include "TestObject.h"

using Recording = RecordingCodecConfiguration;

namespace {

struct Configuration final : TestObject<IKvAACCodecConfigDataAccess> {
    Configuration() : TestObject(IID_IKvAACCodecConfigDataAccess) { ++Recording::alive; }
    ~Configuration() override {
        CallLog::instance().record(name + " ended");
        --Recording::alive;
    }
    HRESULT SetCodecConfigData(const SKvCodecConfigData* data) override {
        std::string bytes = data->m_configData == nullptr ? " null" : "";
        for (std::uint32_t i = 0; data->m_configData != nullptr && i < data->m_configLength; ++i) {
            char byte[4];
            std::snprintf(byte, sizeof(byte), " %02X", data->m_configData[i]);
            bytes += byte;
        }
        CallLog::instance().recordCall(name + ".SetCodecConfigData", data->m_size, data->m_configLength,
                                       bytes.substr(bytes.empty() ? 0 : 1));
        return Recording::dataResult;
    }

    const std::string name = "config" + std::to_string(++Recording::created);
};

TestClass g_class([]() -> IUnknown* {
    if (Recording::failsCreation) {
        return nullptr;
    }
    auto* const configuration = new Configuration;
    CallLog::instance().recordCall("CreateInstance", configuration->name);
    return configuration;
});

} // namespace

Recording::RecordingCodecConfiguration() {
    failsCreation = false;
    dataResult = S_OK;
    created = 0;
    CoRegisterClassObject(CLSID_KvAACCodecConfigDataAccess, &g_class, CLSCTX_INPROC_SERVER,
                          REGCLS_MULTIPLEUSE, &m_cookie);
}

std::string Recording::nameOf(const IUnknown* object) {
    const auto* const configuration = dynamic_cast<const Configuration*>(object);
    return configuration == nullptr ? "unknown object" : configuration->name;
}
