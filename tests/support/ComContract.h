#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CKvUnknown.h"
#include "PlatformCom.h"

// The contract of every class with interfaces, as a test suite (in ComContract.cpp) that a class joins with
// one line in any source of a test program that links kv_com_contract:
//
//     INSTANTIATE_TEST_SUITE_P(Receivers, ComContract, testing::Values(ComSubject{...}), nameOfSubject);
struct ComSubject {
    std::string name;
    // A new object with one reference for the caller, by any of its interfaces.
    std::function<IUnknown*()> create;
    // The identifiers answered beside that of IUnknown, and some of those that must be refused.
    std::vector<IID> answered;
    std::vector<IID> refused;
};

class ComContract : public testing::TestWithParam<ComSubject> {};

void PrintTo(const ComSubject& subject, std::ostream* stream);
[[nodiscard]] std::string nameOfSubject(const testing::TestParamInfo<ComSubject>& info);
