#pragma once

#include <mutex>
#include <string>
#include <vector>

// The calls that the module makes to the host, the SDK and the logger, in the order in which they were made
// on whatever thread. One for the process: the fakes write to it, a test reads it.
class CallLog {
public:
    static CallLog& instance();

    void record(std::string call);
    // All calls so far; the log is empty afterwards.
    std::vector<std::string> take();
    void clear();

    // While off, nothing is kept (and nothing allocated).
    void setEnabled(bool enabled);

private:
    std::mutex m_lock;
    std::vector<std::string> m_calls;
    bool m_enabled = true;
};
