#include "ComContract.h"

#include "CKvUnknown.h"
#include "RunTogether.h"
#include "TKvSmartPtr.h"

namespace {

using Pointer = TKvSmartPtr<IUnknown>;

const IID kNoInterface{0xA11A11AA, 0x0BAD, 0x0BAD, {9, 9, 9, 9, 9, 9, 9, 9}};

Pointer query(IUnknown* from, REFIID iid) {
    Pointer to;
    EXPECT_EQ(from->QueryInterface(iid, reinterpret_cast<void**>(&to)), S_OK);
    return to;
}

} // namespace

ComContract::ComContract() { m_answered.push_back(IID_IUnknown); }

ComContract::~ComContract() {
    const std::int32_t live = getLiveObjectCount();
    EXPECT_EQ(m_object->Release(), 0U);
    EXPECT_LT(getLiveObjectCount(), live);
}

// From every interface every other one is reached, itself included, and always the same.
TEST_P(ComContract, QueriesAreReflexiveSymmetricAndTransitiveAndRefusalsTakeNothing) {
    std::vector<IID> refused = GetParam().refused;
    refused.push_back(kNoInterface);
    for (const IID& first : m_answered) {
        const Pointer from = query(m_object, first);
        for (const IID& second : m_answered) {
            const Pointer to = query(from, second);
            EXPECT_EQ(static_cast<IUnknown*>(to), static_cast<IUnknown*>(query(m_object, second)));
            EXPECT_EQ(static_cast<IUnknown*>(from), static_cast<IUnknown*>(query(to, first)));
        }
        for (const IID& iid : refused) {
            void* out = &refused;
            EXPECT_EQ(from->QueryInterface(iid, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(from->QueryInterface(first, nullptr), E_POINTER);
        EXPECT_EQ(from->QueryInterface(kNoInterface, nullptr), E_POINTER);
        EXPECT_EQ(from->AddRef(), 3U) << "one count for all interfaces";
        EXPECT_EQ(from->Release(), 2U);
    }
}

TEST_P(ComContract, ReferencesBalanceAcrossThreads) {
    const auto actor = [this](std::uint32_t) {
        for (const IID& iid : m_answered) {
            static_cast<void>(query(m_object, iid));
        }
    };
    runTogether(200, {actor, actor, actor, actor});
}
