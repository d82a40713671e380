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

    const char* GetUrl() override { return recorded("GetUrl", m_values.url); }
    const char* GetNetworkInterfaceCard() override {
        return recorded("GetNetworkInterfaceCard", m_values.networkInterfaceCard);
    }
    std::int32_t GetPort() override { return recorded("GetPort", m_values.port); }
    std::uint32_t GetClientOptionValue() override {
        return recorded("GetClientOptionValue", m_values.clientOption);
    }

private:
    template <class Value>
    static Value recorded(const char* call, Value value) {
        CallLog::instance().recordCall(call);
        return value;
    }

    const SettingsValues m_values;
};
