#pragma once

#include <chrono>

namespace KvTest {

// Stops the performance counter for the whole process while it lives; the test moves it. The counter begins
// at the real clock's time. One at a time; a program that links this library has the real clock otherwise.
class TestClock {
public:
    TestClock();
    ~TestClock();
    TestClock(const TestClock&) = delete;
    TestClock& operator=(const TestClock&) = delete;

    void advance(std::chrono::nanoseconds time);
};

} // namespace KvTest
