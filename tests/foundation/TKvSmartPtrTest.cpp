#include "TKvSmartPtr.h"

#include <vector>

#include <gtest/gtest.h>

#include "TestObject.h"

namespace {

using Object = StaticTestObject<IUnknown>;
using Pointer = TKvSmartPtr<IUnknown>;

TEST(TKvSmartPtr, RefusesMisuse) {
    Object object;
    Pointer empty;
    Pointer full(&object);
    EXPECT_THROW(static_cast<void>(*empty), CKvSmartPointerException);
    EXPECT_THROW(static_cast<void>(empty->AddRef()), CKvSmartPointerException);
    EXPECT_THROW(static_cast<void>(&full), CKvSmartPointerException);
    EXPECT_EQ(object.references(), 1U) << "the refused out-parameter leaves the held reference alone";
}

TEST(TKvSmartPtr, HoldsOneReferenceThroughEveryOperation) {
    Object first;
    Object second;
    {
        Pointer pointer;
        EXPECT_TRUE(!pointer && pointer == nullptr);
        first.AddRef();
        *&pointer = &first; // takes over the reference
        EXPECT_EQ(first.references(), 1U);
        EXPECT_TRUE(pointer == &first && !!pointer);
        EXPECT_EQ((pointer = &first), &first);
        EXPECT_EQ(first.references(), 1U) << "assigned to itself";
        const std::vector<Pointer> copies(3, pointer);
        EXPECT_EQ(first.references(), 4U);
        pointer = &second;
        EXPECT_EQ(first.references(), 3U);
        EXPECT_EQ(second.references(), 1U);
        pointer = copies[0];
        EXPECT_EQ(first.references(), 4U);
        EXPECT_EQ(second.references(), 0U);
        pointer = nullptr;
        EXPECT_EQ(first.references(), 3U);
    }
    EXPECT_EQ(first.references(), 0U);
}

} // namespace
