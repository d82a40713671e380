#pragma once

#include <cstdint>
#include <initializer_list>
#include <new>

#include "CKvUnknown.h"
#include "KvNetworkReceiver.h"
#include "Logging.h"
#include "Raise.h"

namespace KorvelVideo::Network {

// The factory operation in which `createReceiver` was written, for its log lines.
struct FactorySite {
    const char* sourceFile;
    const char* function;
    std::uint32_t line;
};

// Logs the failure as the host will see it: a code of `replaced` becomes KV_E_CONNECTION_FAILED.
[[nodiscard]] static inline HRESULT reportFailure(CKvVaneException exception,
                                                  std::initializer_list<HRESULT> replaced) {
    for (const HRESULT code : replaced) {
        if (exception.m_result == code) {
            exception.m_result = KV_E_CONNECTION_FAILED;
            break;
        }
    }
    logCaughtException(exception);
    return exception.m_result;
}

// What CreateReceiver of every factory does. No exception leaves it: the host understands result codes only.
template <class Receiver, class Settings>
[[nodiscard]] HRESULT createReceiver(Settings* settings, IKvNetworkStreamDetectorCallback* callback,
                                     IKvNetworkReceiverController** receiver,
                                     std::initializer_list<HRESULT> replaced,
                                     const FactorySite& site) noexcept {
    const auto failure = [&site](const char* expression, HRESULT code) {
        return CKvVaneException(site.sourceFile, site.function, site.line, expression, code);
    };
    if (receiver == nullptr) {
        return reportFailure(failure("KV_E_INVALID_POINTER", KV_E_INVALID_POINTER), replaced);
    }
    try {
        IKvNetworkReceiverController* const made = new Receiver(settings, callback);
        *receiver = made;
        made->AddRef();
        return S_OK;
    } catch (const CKvVaneException& exception) {
        return reportFailure(exception, replaced);
    } catch (const std::bad_alloc&) {
        return reportFailure(failure("KV_E_OUT_OF_MEMORY", KV_E_OUT_OF_MEMORY), replaced);
    } catch (...) {
        return reportFailure(failure("KV_E_UNKNOWN_ERROR", KV_E_UNKNOWN_ERROR), replaced);
    }
}

// What CreateInstance of every factory class does: `outer` is not used, a factory is never aggregated.
template <class Factory>
[[nodiscard]] CKvUnknown* createFactory(HRESULT* result) noexcept {
    auto* const factory = new (std::nothrow) Factory;
    if (factory == nullptr) {
        *result = KV_E_OUT_OF_MEMORY;
    }
    return factory;
}

} // namespace KorvelVideo::Network
