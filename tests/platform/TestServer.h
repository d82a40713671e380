#pragma once

#include "PlatformModule.h"

// What the test's in-process server and the tests share. The server exports `testServerModule`, which gives
// what DllMain was given.

// {0A6A4D0B-3F7B-4C7E-9F55-6F5C3E0B7A01}
inline constexpr CLSID CLSID_TestServer{
    0x0A6A4D0B, 0x3F7B, 0x4C7E, {0x9F, 0x55, 0x6F, 0x5C, 0x3E, 0x0B, 0x7A, 0x01}};

using TestServerModuleFunction = HMODULE (*)();
