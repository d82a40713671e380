#include "CKvClassFactory.h"

#include "ComContract.h"

namespace {

const IID kOwnInterface{0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};

struct IOwn : IUnknown {};

class Object final : public TKvObject<IOwn> {
public:
    explicit Object(IUnknown* outer) : TKvObject(L"object", outer) { ++alive; }
    ~Object() override { --alive; }
    HRESULT NonDelegatingQueryInterface(REFIID iid, void** object) override {
        return iid == kOwnInterface ? GetInterface(static_cast<IOwn*>(this), object)
                                    : CKvUnknown::NonDelegatingQueryInterface(iid, object);
    }
    static inline int alive = 0;
};

IUnknown* g_outerSeen = nullptr;

CKvUnknown* createObject(IUnknown* outer, HRESULT* /*result*/) {
    g_outerSeen = outer;
    return new Object(nullptr);
}
CKvUnknown* createObjectAndFail(IUnknown* /*outer*/, HRESULT* result) {
    *result = E_FAIL;
    return new Object(nullptr);
}
CKvUnknown* createNothing(IUnknown* /*outer*/, HRESULT* /*result*/) { return nullptr; }
CKvUnknown* createNothingAndSayWhy(IUnknown* /*outer*/, HRESULT* result) {
    *result = E_INVALIDARG;
    return nullptr;
}

const CLSID kClass{};

struct CreateCase {
    const char* name;
    CKvUnknown* (*creator)(IUnknown*, HRESULT*);
    bool hasOuter;
    IID iid;
    HRESULT result;
};

TEST(ClassFactory, CreateInstance) {
    const IID other{9, 9, 9, {}};
    for (const CreateCase& row : {
             CreateCase{"identity", createObject, false, IID_IUnknown, S_OK},
             CreateCase{"interface", createObject, false, kOwnInterface, S_OK},
             CreateCase{"refused interface", createObject, false, other, E_NOINTERFACE},
             CreateCase{"outer and identity", createObject, true, IID_IUnknown, S_OK},
             CreateCase{"outer and interface", createObject, true, kOwnInterface, E_NOINTERFACE},
             CreateCase{"object and failure", createObjectAndFail, false, kOwnInterface, E_FAIL},
             CreateCase{"nothing", createNothing, false, kOwnInterface, E_OUTOFMEMORY},
             CreateCase{"nothing and why", createNothingAndSayWhy, false, kOwnInterface, E_INVALIDARG},
         }) {
        SCOPED_TRACE(row.name);
        const std::int32_t liveBefore = getLiveObjectCount();
        const CKvFactoryTemplate served{L"Object", &kClass, row.creator};
        auto* const factory = new CKvClassFactory(served);
        factory->AddRef();
        EXPECT_EQ(getLiveObjectCount(), liveBefore + 1);
        Object outer(nullptr);
        g_outerSeen = nullptr;
        void* object = &object;
        EXPECT_EQ(
            factory->CreateInstance(row.hasOuter ? static_cast<IOwn*>(&outer) : nullptr, row.iid, &object),
            row.result);
        EXPECT_EQ(object != nullptr, row.result == S_OK);
        EXPECT_EQ(Object::alive, row.result == S_OK ? 2 : 1);
        if (object != nullptr) {
            EXPECT_EQ(g_outerSeen, row.hasOuter ? static_cast<IOwn*>(&outer) : nullptr);
            EXPECT_EQ(static_cast<IUnknown*>(object)->Release(), 0U);
        }
        EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
        EXPECT_EQ(factory->Release(), 0U);
    }
    EXPECT_EQ(Object::alive, 0);
}

TEST(ClassFactory, LocksAreCounted) {
    const CKvFactoryTemplate served{L"Object", &kClass, createObject};
    CKvClassFactory factory(served);
    for (const auto& [lock, count] : std::vector<std::pair<BOOL, int>>{{1, 1}, {7, 2}, {0, 1}, {0, 0}}) {
        EXPECT_EQ(factory.LockServer(lock), S_OK);
        EXPECT_EQ(getServerLockCount(), count);
    }
}

INSTANTIATE_TEST_SUITE_P(ClassFactory, ComContract,
                         testing::Values(ComSubject{
                             "CKvClassFactory",
                             []() -> IUnknown* {
                                 static const CKvFactoryTemplate served{L"Object", &kClass, createObject};
                                 auto* const factory = new CKvClassFactory(served);
                                 factory->AddRef();
                                 return factory;
                             },
                             {IID_IClassFactory},
                             {kOwnInterface}}),
                         nameOfSubject);

} // namespace
