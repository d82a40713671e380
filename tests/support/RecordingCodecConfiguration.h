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
    RecordingCodecConfiguration(const RecordingCodecConfiguration&) = delete;
    RecordingCodecConfiguration& operator=(const RecordingCodecConfiguration&) = delete;
    ~RecordingCodecConfiguration();

    // From now on creation, or SetCodecConfigData, returns `result`.
    static void setCreationResult(HRESULT result);
    static void setDataResult(HRESULT result);

    // The next object is config1 again.
    static void restartNames();

    // Objects that someone still holds.
    [[nodiscard]] static int alive();
    // References on objects, all together.
    [[nodiscard]] static int references();

    [[nodiscard]] static std::string nameOf(const IUnknown* object);

private:
    DWORD m_cookie = 0;
};
