#pragma once

#include <atomic>
#include <string>

#include "PlatformCom.h"

// The host's codec configuration class, registered in this process while the object lives (one at a time).
// Objects are named config1, config2, ... The CallLog gets "CreateInstance(config1)",
// "config1.SetCodecConfigData(16, 2, 11 90)" (size of the record, length, bytes) and "config1 ended".
class RecordingCodecConfiguration {
public:
    RecordingCodecConfiguration();
    ~RecordingCodecConfiguration() { CoRevokeClassObject(m_cookie); }
    RecordingCodecConfiguration(const RecordingCodecConfiguration&) = delete;
    RecordingCodecConfiguration& operator=(const RecordingCodecConfiguration&) = delete;

    [[nodiscard]] static std::string nameOf(const IUnknown* object);

    static inline std::atomic<bool> failsCreation{false};
    static inline std::atomic<HRESULT> dataResult{S_OK}; // of SetCodecConfigData
    static inline std::atomic<int> created{0};           // 0 makes the next object config1 again
    static inline std::atomic<int> alive{0};             // objects that someone still holds

private:
    DWORD m_cookie = 0;
};
