#pragma once

#include "PlatformCom.h"

namespace KorvelVideo::NetworkSource {

// Keeps the current thread in the multithreaded apartment, as hosts may expect of a thread that calls them.
class ComApartment {
public:
    ComApartment() noexcept : m_entered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment() {
        if (m_entered) {
            CoUninitialize();
        }
    }

private:
    const bool m_entered;
};

} // namespace KorvelVideo::NetworkSource
