#pragma once

#include <mutex>
#include <string>
#include <vector>

// Marks what a fake does for itself, so that a test which counts or fails the module's allocations leaves it
// out.
class FakeScope {
public:
    FakeScope() noexcept { ++t_depth; }
    ~FakeScope() { --t_depth; }
    FakeScope(const FakeScope&) = delete;
    FakeScope& operator=(const FakeScope&) = delete;

    [[nodiscard]] static bool isActive() noexcept { return t_depth != 0; }

private:
    static thread_local int t_depth;
};

// The calls that the module makes to the host, the SDK and the logger, in the order in which they were made
// on whatever thread. One for the process: the fakes write to it, a test reads it.
class CallLog {
public:
    static CallLog& instance();

    void record(std::string call);
    // All calls so far; the log is empty afterwards.
    std::vector<std::string> take();
    // All calls so far; the log keeps them.
    [[nodiscard]] std::vector<std::string> peek();
    void clear();

    // While off, nothing is kept (and nothing allocated).
    void setEnabled(bool enabled);

private:
    std::mutex m_lock;
    std::vector<std::string> m_calls;
    bool m_enabled = true;
};
