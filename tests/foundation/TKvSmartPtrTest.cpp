#include "TKvSmartPtr.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestObject.h"

namespace {

using Object = StaticTestObject<IUnknown>;
using Pointer = TKvSmartPtr<IUnknown>;

template <class Operation>
std::string misuse(Operation operation) {
    try {
        operation();
    } catch (const CKvSmartPointerException& exception) {
        return exception.getMessage();
    }
    return "nothing thrown";
}

TEST(TKvSmartPtr, RefusesMisuseWithItsMessage) {
    Object object;
    Pointer empty;
    Pointer full(&object);
    EXPECT_EQ(misuse([&] { static_cast<void>(*empty); }),
              "TKvSmartPtr::operator* -> Internal pointer is NULL!");
    EXPECT_EQ(misuse([&] { static_cast<void>(empty->AddRef()); }),
              "TKvSmartPtr::operator-> -> Internal pointer is NULL!");
    EXPECT_EQ(misuse([&] { static_cast<void>(&full); }),
              "TKvSmartPtr::operator& -> Internal pointer will be overriden!");
    EXPECT_EQ(object.references(), 1U) << "the refused out-parameter leaves the held reference alone";
    EXPECT_EQ(static_cast<IUnknown*>(empty), nullptr);
}

TEST(TKvSmartPtr, HoldsOneReferenceThroughEveryOperation) {
    Object first;
    Object second;
    {
        Pointer pointer(&first);
        EXPECT_EQ(first.references(), 1U);
        EXPECT_EQ((pointer = &first), &first);
        EXPECT_EQ(first.references(), 1U) << "assigned to itself";
        const Pointer copy(pointer);
        EXPECT_EQ(first.references(), 2U);
        EXPECT_EQ((pointer = &second), &second);
        EXPECT_EQ(first.references(), 1U);
        EXPECT_EQ(second.references(), 1U);
        pointer = copy;
        EXPECT_EQ(first.references(), 2U);
        EXPECT_EQ(second.references(), 0U);
        pointer = nullptr;
        EXPECT_EQ(first.references(), 1U);

        std::vector<Pointer> list(3, copy);
        list.resize(100, copy);
        list.erase(list.begin() + 1, list.end());
        EXPECT_EQ(first.references(), 2U) << "copies of a growing list balance";
    }
    EXPECT_EQ(first.references(), 0U);
    EXPECT_EQ(second.references(), 0U);
}

TEST(TKvSmartPtr, TakesOverAReferenceFromAnOutParameter) {
    Object object;
    const auto create = [&object](IUnknown** out) {
        object.AddRef();
        *out = &object;
    };
    {
        Pointer pointer;
        create(&pointer);
        EXPECT_EQ(object.references(), 1U);
        EXPECT_TRUE(pointer == &object);
        EXPECT_FALSE(!pointer);
        EXPECT_EQ(!pointer, pointer == nullptr);
    }
    EXPECT_EQ(object.references(), 0U);
    const Pointer empty;
    EXPECT_TRUE(!empty);
    EXPECT_TRUE(empty == nullptr);
}

} // namespace
