#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FakeScope.h"

// The calls that the module makes to the host, the SDK and the logger, in the order in which they were made
// on whatever thread. One for the process: the fakes write to it, a test reads it.
class CallLog {
public:
    static CallLog& instance();

    void record(std::string text);
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

    std::vector<std::string> take();
    [[nodiscard]] std::vector<std::string> peek();
    void clear() { static_cast<void>(take()); }
    void setEnabled(bool enabled);

private:
    std::mutex m_lock;
    std::vector<std::string> m_calls;
    bool m_enabled = true;
};

// Which calls of a fake do otherwise than succeed, by name.
class CallScript {
public:
    // The next `count` calls of `call` return `value`, after `skip` more that succeed.
    void fail(const std::string& call, std::int64_t value, int count = 1, int skip = 0);
    void clear();

    // To be asked once at each call: what it must return, when it must not succeed.
    [[nodiscard]] std::optional<std::int64_t> failureOf(const std::string& call);
    [[nodiscard]] bool isPending(const std::string& call);

private:
    struct Failure {
        std::int64_t value;
        int count;
        int skip;
    };
    std::mutex m_lock;
    std::map<std::string, Failure> m_failures;
};
