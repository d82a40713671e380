#pragma once

// Marks what a fake does for itself, so that a test which counts or fails the module's allocations or copies
// leaves it out.
class FakeScope {
public:
    FakeScope() noexcept { ++t_depth; }
    ~FakeScope() { --t_depth; }
    FakeScope(const FakeScope&) = delete;
    FakeScope& operator=(const FakeScope&) = delete;

    [[nodiscard]] static bool isActive() noexcept { return t_depth != 0; }

private:
    static inline constinit thread_local int t_depth = 0;
};
