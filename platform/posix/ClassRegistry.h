#pragma once

#include <string>

#include "PlatformCom.h"

namespace Platform {

// The module file that the class registry names for a class; empty when it names none.
std::string inprocServerPath(REFCLSID clsid);

} // namespace Platform
