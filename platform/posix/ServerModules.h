#pragma once

#include <string>

#include "PlatformCom.h"

// The in-process servers that CoCreateInstance has loaded.
namespace Platform {

// Gets the class object of `clsid` from the server at `path`, loading it when it is not yet loaded, and keeps
// the server from being unloaded until the use ends.
class ServerUse {
public:
    explicit ServerUse(const std::string& path);
    ~ServerUse();
    ServerUse(const ServerUse&) = delete;
    ServerUse& operator=(const ServerUse&) = delete;

    HRESULT getClassObject(REFCLSID clsid, IClassFactory** factory) const;

private:
    struct Module* m_module = nullptr;
    HRESULT m_result;
};

} // namespace Platform
