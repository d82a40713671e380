#include "CKvUnknown.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TestObject.h"

namespace {

const IID kOwnInterface{0x11111111, 0, 0, {1, 2, 3, 4, 5, 6, 7, 8}};

struct IOwn : IUnknown {
    virtual int answer() = 0;
};

struct Own final : TKvObject<IOwn> {
    Own(IUnknown* outer, int* destroyed) : TKvObject(L"own", outer), m_destroyed(destroyed) {}
    ~Own() override {
        // A reference taken and dropped here must not start a second destruction.
        NonDelegatingAddRef();
        NonDelegatingRelease();
        ++*m_destroyed;
    }
    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override {
        return iid == kOwnInterface ? GetInterface(static_cast<IOwn*>(this), object)
                                    : CKvUnknown::NonDelegatingQueryInterface(iid, object);
    }
    int answer() override { return 42; }

    int* m_destroyed;
};

TEST(CKvUnknown, BareObjectAnswersOnlyIUnknown) {
    struct Bare final : CKvUnknown {
        Bare() : CKvUnknown(L"bare", nullptr) {}
    };
    auto* const bare = new Bare;
    EXPECT_EQ(bare->NonDelegatingAddRef(), 1U);
    void* object = nullptr;
    EXPECT_EQ(bare->NonDelegatingQueryInterface(IID_IUnknown, &object), S_OK);
    EXPECT_EQ(object, static_cast<INonDelegatingUnknown*>(bare));
    EXPECT_EQ(bare->NonDelegatingRelease(), 1U);
    EXPECT_EQ(bare->NonDelegatingQueryInterface(kOwnInterface, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(bare->NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(bare->NonDelegatingRelease(), 0U);
}

TEST(CKvUnknown, PublicOperationsGoToTheOwner) {
    int destroyed = 0;
    StaticTestObject<IUnknown> outer;
    auto* const aggregated = new Own(&outer, &destroyed);
    aggregated->NonDelegatingAddRef();
    aggregated->AddRef();
    EXPECT_EQ(outer.references(), 1U);
    void* object = aggregated;
    EXPECT_EQ(aggregated->QueryInterface(kOwnInterface, &object), E_NOINTERFACE)
        << "the outer object's answer";
    // An own interface handed out inside counts on the outer object.
    EXPECT_EQ(aggregated->NonDelegatingQueryInterface(kOwnInterface, &object), S_OK);
    EXPECT_EQ(outer.references(), 2U);
    EXPECT_EQ(static_cast<IOwn*>(object)->answer(), 42);
    EXPECT_EQ(aggregated->Release(), 1U);
    EXPECT_EQ(aggregated->Release(), 0U);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(aggregated->NonDelegatingRelease(), 0U);
    EXPECT_EQ(destroyed, 1);
}

TEST(CKvUnknown, LivesUntilTheLastReferenceOfAnyThread) {
    const std::int32_t before = getLiveObjectCount();
    int destroyed = 0;
    auto* const object = new Own(nullptr, &destroyed);
    object->AddRef();
    EXPECT_EQ(getLiveObjectCount(), before + 1);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        object->AddRef();
        threads.emplace_back([object] {
            for (int round = 0; round < 1000; ++round) {
                object->AddRef();
                object->Release();
            }
            object->Release();
        });
    }
    object->Release();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(getLiveObjectCount(), before);
}

} // namespace
