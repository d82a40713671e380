#pragma once

#include <array>
#include <ostream>

#include "HostSettings.h"
#include "RtmpReceiverFactory.h"
#include "RtpReceiverFactory.h"
#include "RtspReceiverFactory.h"
#include "TsOverUdpReceiverFactory.h"

// Null values give null settings.
template <class Factory>
HRESULT createThroughFactory(const SettingsValues* values, IKvNetworkStreamDetectorCallback* callback,
                             IKvNetworkReceiverController** receiver) {
    Factory factory;
    HostSettings settings(values != nullptr ? *values : SettingsValues{});
    return factory.CreateReceiver(values != nullptr ? &settings : nullptr, callback, receiver);
}

// The four kinds of receiver as rows of a table, each made through its factory.
struct ReceiverKind {
    const char* name;
    const char* url;
    const char* otherUrl;
    decltype(&createThroughFactory<KorvelVideo::Network::RtspReceiverFactory>) create;

    friend std::ostream& operator<<(std::ostream& stream, const ReceiverKind& kind) {
        return stream << kind.name;
    }
};

inline const std::array<ReceiverKind, 4> kReceiverKinds{{
    {"Rtsp", "rtsp://host/a", "rtsp://host/b",
     createThroughFactory<KorvelVideo::Network::RtspReceiverFactory>},
    {"Rtmp", "rtmp://host/a", "rtmp://host/b",
     createThroughFactory<KorvelVideo::Network::RtmpReceiverFactory>},
    {"Rtp", "rtp://host:5004", "rtp://host:5006",
     createThroughFactory<KorvelVideo::Network::RtpReceiverFactory>},
    {"TsOverUdp", "udp://host:1234", "udp://host:1236",
     createThroughFactory<KorvelVideo::Network::TsOverUdpReceiverFactory>},
}};

inline const ReceiverKind& kRtsp = kReceiverKinds[0];
inline const ReceiverKind& kRtmp = kReceiverKinds[1];
inline const ReceiverKind& kRtp = kReceiverKinds[2];
inline const ReceiverKind& kTsOverUdp = kReceiverKinds[3];
