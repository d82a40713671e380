#pragma once

namespace KorvelVideo::Network {

// Where to receive from; the texts belong to the settings object.
struct ReceiverSource {
    const char* networkInterfaceCard = nullptr;
    const char* url = nullptr;
};

// Two nulls for null settings, which the base receiver refuses.
template <class Settings>
[[nodiscard]] ReceiverSource readSource(Settings* settings) {
    ReceiverSource source;
    if (settings != nullptr) {
        source.networkInterfaceCard = settings->GetNetworkInterfaceCard();
        source.url = settings->GetUrl();
    }
    return source;
}

} // namespace KorvelVideo::Network
