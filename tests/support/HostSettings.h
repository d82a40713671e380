#pragma once

#include <cstdint>

#include "CallLog.h"
#include "KvNetworkReceiver.h"
#include "TestObject.h"

struct SettingsValues {
    const char* url = nullptr;
    const char* networkInterfaceCard = nullptr;
    std::int32_t port = 0;
    std::uint32_t clientOption = 0;
};

// The settings object of the host, for each kind of receiver: answers with the values given and records the
// calls.
class HostSettings final : public StaticTestObject<IKvRtspReceiverSettings, IKvRtmpReceiverSettings,
                                                   IKvRtpReceiverSettings, IKvTsOverUdpReceiverSettings> {
public:
    explicit HostSettings(const SettingsValues& values) : m_values(values) {}

    const char* GetUrl() override { return recorded("GetUrl").url; }
    const char* GetNetworkInterfaceCard() override {
        return recorded("GetNetworkInterfaceCard").networkInterfaceCard;
    }
    std::int32_t GetPort() override { return recorded("GetPort").port; }
    std::uint32_t GetClientOptionValue() override { return recorded("GetClientOptionValue").clientOption; }

private:
    const SettingsValues& recorded(const char* call) {
        CallLog::instance().recordCall(call);
        return m_values;
    }

    const SettingsValues m_values;
};
