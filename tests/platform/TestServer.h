#pragma once

#include <atomic>

#include "PlatformModule.h"

// What the test's in-process server and the tests share. The server exports `testServerState`.

// {0A6A4D0B-3F7B-4C7E-9F55-6F5C3E0B7A01}
inline constexpr CLSID CLSID_TestServer{
    0x0A6A4D0B, 0x3F7B, 0x4C7E, {0x9F, 0x55, 0x6F, 0x5C, 0x3E, 0x0B, 0x7A, 0x01}};

struct TestServerState {
    HMODULE module = nullptr;
    std::atomic<int> objects{0};
};

inline constexpr DWORD longWait = 10'000; // milliseconds

using TestServerStateFunction = TestServerState* (*)();
