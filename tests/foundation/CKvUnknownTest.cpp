#include "CKvUnknown.h"

#include <gtest/gtest.h>

#include "TestObject.h"

namespace {

const IID kOwnInterface{0x11111111, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};

struct Own final : TKvObject<IUnknown> {
    Own(IUnknown* outer, int* destroyed) : TKvObject(L"own", outer), m_destroyed(destroyed) {}
    ~Own() override {
        // A reference taken and dropped here must not start a second destruction.
        NonDelegatingAddRef();
        NonDelegatingRelease();
        ++*m_destroyed;
    }
    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override {
        return iid == kOwnInterface ? GetInterface(static_cast<IUnknown*>(this), object)
                                    : CKvUnknown::NonDelegatingQueryInterface(iid, object);
    }

    int* m_destroyed;
};

TEST(CKvUnknown, PublicOperationsGoToTheOwner) {
    const std::int32_t before = getLiveObjectCount();
    int destroyed = 0;
    StaticTestObject<IUnknown> outer;
    auto* const aggregated = new Own(&outer, &destroyed);
    EXPECT_EQ(aggregated->NonDelegatingAddRef(), 1U);
    aggregated->AddRef();
    EXPECT_EQ(outer.references(), 1U);
    void* object = aggregated;
    EXPECT_EQ(aggregated->QueryInterface(kOwnInterface, &object), E_NOINTERFACE) << "the outer object's";
    // An own interface handed out inside counts on the outer object.
    EXPECT_EQ(aggregated->NonDelegatingQueryInterface(kOwnInterface, &object), S_OK);
    EXPECT_EQ(outer.references(), 2U);
    EXPECT_EQ(object, static_cast<IUnknown*>(aggregated));
    EXPECT_EQ(aggregated->Release(), 1U);
    EXPECT_EQ(aggregated->Release(), 0U);
    EXPECT_EQ(aggregated->NonDelegatingQueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(object, static_cast<INonDelegatingUnknown*>(aggregated));
    EXPECT_EQ(aggregated->NonDelegatingRelease(), 1U);
    EXPECT_EQ(aggregated->NonDelegatingQueryInterface(IID_IClassFactory, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(aggregated->NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(aggregated->NonDelegatingQueryInterface(kOwnInterface, nullptr), E_POINTER);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(getLiveObjectCount(), before + 1);
    EXPECT_EQ(aggregated->NonDelegatingRelease(), 0U);
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(getLiveObjectCount(), before);
}

} // namespace
