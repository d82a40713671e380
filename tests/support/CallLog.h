#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FakeScope.h"

// As "0x89998302".
inline std::string hexadecimal(std::int32_t code) {
    char text[11];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(code));
    return text;
}

// The calls that the module makes to the host, the SDK and the logger, in the order in which they were made
// on whatever thread. One for the process: the fakes write to it, a test reads it.
class CallLog {
public:
    static CallLog& instance() {
        static CallLog log;
        return log;
    }

    void record(std::string text) {
        const FakeScope fake;
        const std::lock_guard lock(m_lock);
        if (m_enabled) {
            m_calls.push_back(std::move(text));
        }
    }
    // As "name(value, value)".
    template <class... Values>
    void recordCall(const std::string& name, const Values&... values) {
        const FakeScope fake;
        std::ostringstream text;
        [[maybe_unused]] const char* separator = "";
        text << name << '(';
        ((text << std::exchange(separator, ", ") << values), ...);
        text << ')';
        record(text.str());
    }

    std::vector<std::string> take() {
        const std::lock_guard lock(m_lock);
        return std::exchange(m_calls, {});
    }
    // A line each.
    std::string takeText() {
        std::string text;
        for (const std::string& call : take()) {
            text += call + "\n";
        }
        return text;
    }
    [[nodiscard]] std::string last() {
        const std::lock_guard lock(m_lock);
        return m_calls.empty() ? "" : m_calls.back();
    }
    void clear() { static_cast<void>(take()); }
    void setEnabled(bool enabled) {
        const std::lock_guard lock(m_lock);
        m_enabled = enabled;
    }

private:
    std::mutex m_lock;
    std::vector<std::string> m_calls;
    bool m_enabled = true;
};

// Which calls of a fake do otherwise than succeed, by name.
class CallScript {
public:
    // The next `count` calls of `call` return `value`, after `skip` more that succeed.
    void fail(const std::string& call, std::int64_t value, int count = 1, int skip = 0) {
        const std::lock_guard lock(m_lock);
        m_failures[call] = Failure{value, count, skip};
    }
    void clear() {
        const std::lock_guard lock(m_lock);
        m_failures.clear();
    }
    // To be asked once at each call: what it must return, when it must not succeed.
    [[nodiscard]] std::optional<std::int64_t> failureOf(const std::string& call) {
        const std::lock_guard lock(m_lock);
        const auto failure = m_failures.find(call);
        if (failure == m_failures.end() || failure->second.skip-- > 0) {
            return std::nullopt;
        }
        const std::int64_t value = failure->second.value;
        if (--failure->second.count == 0) {
            m_failures.erase(failure);
        }
        return value;
    }
    [[nodiscard]] bool isPending(const std::string& call) {
        const std::lock_guard lock(m_lock);
        return m_failures.contains(call);
    }

private:
    struct Failure {
        std::int64_t value;
        int count;
        int skip;
    };
    std::mutex m_lock;
    std::map<std::string, Failure> m_failures;
};
