#pragma once

#include <atomic>
#include <string>

#include "CallLog.h"
#include "KvAudioInterfaces.h"
#include "TestObject.h"

// The host's codec configuration class, registered in this process while the object lives (one at a time).
// Objects are named config1, config2, ... The CallLog gets "CreateInstance(config1)",
// "config1.SetCodecConfigData(16, 2, 11 90)" (size of the record, length, bytes) and "config1 ended".
class RecordingCodecConfiguration {
public:
    RecordingCodecConfiguration() {
        failsCreation = false;
        created = 0;
        CoRegisterClassObject(CLSID_KvAACCodecConfigDataAccess, &m_class, CLSCTX_INPROC_SERVER,
                              REGCLS_MULTIPLEUSE, &m_cookie);
    }
    ~RecordingCodecConfiguration() { CoRevokeClassObject(m_cookie); }
    RecordingCodecConfiguration(const RecordingCodecConfiguration&) = delete;
    RecordingCodecConfiguration& operator=(const RecordingCodecConfiguration&) = delete;

    [[nodiscard]] static std::string nameOf(const IUnknown* object) {
        const auto* const configuration = dynamic_cast<const Configuration*>(object);
        return configuration == nullptr ? "unknown object" : configuration->name;
    }

    static inline std::atomic<bool> failsCreation{false};
    static inline std::atomic<int> created{0}; // 0 makes the next object config1 again
    static inline std::atomic<int> alive{0};   // objects that someone still holds

private:
    struct Configuration final : TestObject<IKvAACCodecConfigDataAccess> {
        Configuration() : TestObject(IID_IKvAACCodecConfigDataAccess) { ++alive; }
        ~Configuration() override {
            CallLog::instance().record(name + " ended");
            --alive;
        }
        HRESULT SetCodecConfigData(const SKvCodecConfigData* data) override {
            std::string bytes = data->m_configData == nullptr ? "null" : "";
            for (std::uint32_t i = 0; data->m_configData != nullptr && i < data->m_configLength; ++i) {
                bytes += (i == 0 ? "" : " ") + hexadecimal(data->m_configData[i]).substr(8);
            }
            CallLog::instance().recordCall(name + ".SetCodecConfigData", data->m_size, data->m_configLength,
                                           bytes);
            return E_FAIL; // of no interest to the module
        }

        const std::string name = "config" + std::to_string(++created);
    };
    static IUnknown* create() {
        if (failsCreation) {
            return nullptr;
        }
        auto* const configuration = new Configuration;
        CallLog::instance().recordCall("CreateInstance", configuration->name);
        return configuration;
    }

    TestClass m_class{create};
    DWORD m_cookie = 0;
};
