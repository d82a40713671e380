#include "CallLog.h"

#include <utility>

thread_local int FakeScope::t_depth = 0;

CallLog& CallLog::instance() {
    static CallLog log;
    return log;
}

void CallLog::record(std::string call) {
    const FakeScope fake;
    const std::lock_guard lock(m_lock);
    if (m_enabled) {
        m_calls.push_back(std::move(call));
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

void CallLog::clear() {
    const std::lock_guard lock(m_lock);
    m_calls.clear();
}

void CallLog::setEnabled(bool enabled) {
    const std::lock_guard lock(m_lock);
    m_enabled = enabled;
}
