#pragma once

#include <cstdint>

// Time since some fixed point, in nanoseconds; never goes back. From the platform's performance counter.
[[nodiscard]] std::int64_t getMonotonicNanoseconds() noexcept;
