#include "TKvSmartPtr.h"

#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "TestObject.h"

namespace {

using Object = StaticTestObject<IUnknown>;
using Pointer = TKvSmartPtr<IUnknown>;

TEST(TKvSmartPtr, RefusesMisuseWithItsMessage) {
    Object object;
    Pointer empty;
    Pointer full(&object);
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { static_cast<void>(*empty); }, "TKvSmartPtr::operator* -> Internal pointer is NULL!"},
        {[&] { static_cast<void>(empty->AddRef()); }, "TKvSmartPtr::operator-> -> Internal pointer is NULL!"},
        {[&] { static_cast<void>(&full); }, "TKvSmartPtr::operator& -> Internal pointer will be overriden!"},
    };
    for (const auto& [operation, message] : rows) {
        try {
            operation();
            ADD_FAILURE() << "nothing thrown for " << message;
        } catch (const CKvSmartPointerException& exception) {
            EXPECT_STREQ(exception.getMessage(), message);
        }
    }
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
    {
        Pointer pointer;
        EXPECT_TRUE(!pointer && pointer == nullptr);
        IUnknown** const out = &pointer;
        object.AddRef();
        *out = &object;
        EXPECT_EQ(object.references(), 1U);
        EXPECT_TRUE(pointer == &object);
        EXPECT_FALSE(!pointer || pointer == nullptr);
    }
    EXPECT_EQ(object.references(), 0U);
}

} // namespace
