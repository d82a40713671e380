#pragma once

#include <cstdint>

#include "CallLog.h"
#include "KvNetworkReceiver.h"
#include "TestObject.h"

// The settings objects of the host: each answers with the values given and records the calls.

struct SettingsValues {
    const char* url = nullptr;
    const char* networkInterfaceCard = nullptr;
    std::int32_t port = 0;
    std::uint32_t clientOption = 0;
};

template <class Interface>
class HostSettings : public StaticTestObject<Interface> {
public:
    explicit HostSettings(const SettingsValues& given) : values(given) {}

    const char* GetUrl() override { return recorded("GetUrl", values.url); }
    const char* GetNetworkInterfaceCard() override {
        return recorded("GetNetworkInterfaceCard", values.networkInterfaceCard);
    }

protected:
    template <class Value>
    Value recorded(const char* call, Value value) {
        CallLog::instance().recordCall(call);
        return value;
    }

    const SettingsValues values;
};

template <class Interface>
class HostPortSettings final : public HostSettings<Interface> {
public:
    using HostSettings<Interface>::HostSettings;
    std::int32_t GetPort() override { return this->recorded("GetPort", this->values.port); }
};

using RtspSettings = HostPortSettings<IKvRtspReceiverSettings>;
using RtmpSettings = HostPortSettings<IKvRtmpReceiverSettings>;
using TsOverUdpSettings = HostSettings<IKvTsOverUdpReceiverSettings>;

class RtpSettings final : public HostSettings<IKvRtpReceiverSettings> {
public:
    using HostSettings::HostSettings;
    std::uint32_t GetClientOptionValue() override {
        return recorded("GetClientOptionValue", values.clientOption);
    }
};
