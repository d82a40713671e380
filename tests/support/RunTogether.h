#pragma once

#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "PlatformCom.h"

// Runs every actor on a thread of its own, in an apartment, with the rounds 1, 2, ... and waits for all.
inline void runTogether(std::uint32_t rounds, const std::vector<std::function<void(std::uint32_t)>>& actors) {
    std::vector<std::thread> threads;
    threads.reserve(actors.size());
    for (const auto& actor : actors) {
        threads.emplace_back([&actor, rounds] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (std::uint32_t round = 1; round <= rounds; ++round) {
                actor(round);
            }
            CoUninitialize();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
