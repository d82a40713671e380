#include "CallLog.h"

CallLog& CallLog::instance() {
    static CallLog log;
    return log;
}

void CallLog::record(std::string text) {
    const FakeScope fake;
    const std::lock_guard lock(m_lock);
    if (m_enabled) {
        m_calls.push_back(std::move(text));
    }
}

std::vector<std::string> CallLog::take() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_calls, {});
}

std::vector<std::string> CallLog::peek() {
    const std::lock_guard lock(m_lock);
    return m_calls;
}

void CallLog::setEnabled(bool enabled) {
    const std::lock_guard lock(m_lock);
    m_enabled = enabled;
}

void CallScript::fail(const std::string& call, std::int64_t value, int count, int skip) {
    const std::lock_guard lock(m_lock);
    m_failures[call] = Failure{value, count, skip};
}

void CallScript::clear() {
    const std::lock_guard lock(m_lock);
    m_failures.clear();
}

std::optional<std::int64_t> CallScript::failureOf(const std::string& call) {
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

bool CallScript::isPending(const std::string& call) {
    const std::lock_guard lock(m_lock);
    return m_failures.contains(call);
}
