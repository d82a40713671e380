#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "PlatformCom.h"

// The contract of every class with interfaces, as a test suite (in ComContract.cpp) that a class joins with
// one line in any source of a test program that links kv_com_contract:
//
//     INSTANTIATE_TEST_SUITE_P(Receivers, ComContract, testing::Values(ComSubject{...}), nameOfSubject);
struct ComSubject {
    std::string name;
    std::function<IUnknown*()> create; // with one reference for the caller, by any interface
    std::vector<IID> answered;         // beside IID_IUnknown
    std::vector<IID> refused;          // some of them

    friend void PrintTo(const ComSubject& subject, std::ostream* stream) { *stream << subject.name; }
};
inline constexpr auto nameOfSubject = [](const auto& test) { return test.param.name; };

class ComContract : public testing::TestWithParam<ComSubject> {
protected:
    ComContract();
    ~ComContract() override;

    std::vector<IID> m_answered = GetParam().answered;
    IUnknown* const m_object = GetParam().create();
};
