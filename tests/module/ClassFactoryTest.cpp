#include "CKvClassFactory.h"

#include <gtest/gtest.h>

#include "CKvUnknown.h"

namespace {

const IID kOwnInterface{0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
const CLSID kClass{};

struct IOwn : IUnknown {};

class Object final : public TKvObject<IOwn> {
public:
    explicit Object(IUnknown* outer) : TKvObject(L"object", outer) {}
    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override {
        return iid == kOwnInterface ? GetInterface(static_cast<IOwn*>(this), object)
                                    : CKvUnknown::NonDelegatingQueryInterface(iid, object);
    }
};

IUnknown* g_outerSeen = nullptr;

// What a class's creator returns, and the result that it leaves.
template <bool makesObject, HRESULT failure>
CKvUnknown* create(IUnknown* outer, HRESULT* result) {
    g_outerSeen = outer;
    *result = failure < 0 ? failure : *result;
    return makesObject ? new Object(nullptr) : nullptr;
}

TEST(ClassFactory, CreateInstance) {
    struct Row {
        const char* name;
        CKvUnknown* (*creator)(IUnknown*, HRESULT*);
        bool hasOuter;
        IID iid;
        HRESULT result;
    };
    for (const Row& row :
         {Row{"interface", create<true, S_OK>, false, kOwnInterface, S_OK},
          {"refused interface", create<true, S_OK>, false, {9, 9, 9, {}}, E_NOINTERFACE},
          {"outer and identity", create<true, S_OK>, true, IID_IUnknown, S_OK},
          {"outer and interface", create<true, S_OK>, true, kOwnInterface, E_NOINTERFACE},
          {"object and failure", create<true, E_FAIL>, false, kOwnInterface, E_FAIL},
          {"nothing", create<false, S_OK>, false, kOwnInterface, E_OUTOFMEMORY},
          {"nothing and why", create<false, E_INVALIDARG>, false, kOwnInterface, E_INVALIDARG}}) {
        SCOPED_TRACE(row.name);
        const CKvFactoryTemplate served{L"Object", &kClass, row.creator};
        CKvClassFactory factory(served);
        Object whole(nullptr);
        IUnknown* const outer = row.hasOuter ? static_cast<IOwn*>(&whole) : nullptr;
        const std::int32_t liveBefore = getLiveObjectCount();
        void* object = &whole;
        EXPECT_EQ(factory.CreateInstance(outer, row.iid, &object), row.result);
        EXPECT_EQ(object != nullptr, row.result == S_OK);
        EXPECT_EQ(getLiveObjectCount() - liveBefore, row.result == S_OK ? 1 : 0);
        if (object != nullptr) {
            EXPECT_EQ(g_outerSeen, outer);
            EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
        }
        EXPECT_EQ(factory.CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
        EXPECT_EQ(factory.QueryInterface(IID_IClassFactory, nullptr), E_POINTER);
        EXPECT_EQ(factory.QueryInterface(kOwnInterface, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
}

} // namespace
