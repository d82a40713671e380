#include "ComContract.h"

#include <thread>

#include "TKvSmartPtr.h"

namespace {

using Pointer = TKvSmartPtr<IUnknown>;

const IID kNoInterface{0xA11A11AA, 0x0BAD, 0x0BAD, {9, 9, 9, 9, 9, 9, 9, 9}};

Pointer query(IUnknown* from, REFIID iid) {
    Pointer to;
    EXPECT_EQ(from->QueryInterface(iid, reinterpret_cast<void**>(&to)), S_OK);
    return to;
}

std::vector<IID> allAnswered(const ComSubject& subject) {
    std::vector<IID> identifiers = subject.answered;
    identifiers.push_back(IID_IUnknown);
    return identifiers;
}

// A new object whose creation reference is the only one.
Pointer createSubject(const ComSubject& subject) {
    Pointer object(subject.create());
    object->Release();
    return object;
}

} // namespace

void PrintTo(const ComSubject& subject, std::ostream* stream) { *stream << subject.name; }

std::string nameOfSubject(const testing::TestParamInfo<ComSubject>& info) { return info.param.name; }

// From every interface every other one is reached, itself included, and always the same.
TEST_P(ComContract, QueriesAreReflexiveSymmetricAndTransitive) {
    const Pointer object = createSubject(GetParam());
    for (const IID& first : allAnswered(GetParam())) {
        const Pointer from = query(object, first);
        for (const IID& second : allAnswered(GetParam())) {
            const Pointer to = query(from, second);
            EXPECT_EQ(static_cast<IUnknown*>(to), static_cast<IUnknown*>(query(object, second)));
            EXPECT_EQ(static_cast<IUnknown*>(from), static_cast<IUnknown*>(query(to, first)));
        }
    }
}

TEST_P(ComContract, RefusalsTakeNoReferenceAndNullTheOutPointer) {
    const Pointer object = createSubject(GetParam());
    std::vector<IID> refused = GetParam().refused;
    refused.push_back(kNoInterface);
    for (const IID& first : allAnswered(GetParam())) {
        const Pointer from = query(object, first);
        for (const IID& iid : refused) {
            void* out = &refused;
            EXPECT_EQ(from->QueryInterface(iid, &out), E_NOINTERFACE);
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(from->QueryInterface(first, nullptr), E_POINTER);
        EXPECT_EQ(from->QueryInterface(kNoInterface, nullptr), E_POINTER);
        EXPECT_EQ(from->AddRef(), 3U);
        from->Release();
    }
}

TEST_P(ComContract, CountsBalanceAndTheLastReleaseEndsIt) {
    const std::int32_t liveBefore = getLiveObjectCount();
    IUnknown* const object = GetParam().create();
    ULONG count = 1;
    std::vector<IUnknown*> held;
    for (const IID& iid : allAnswered(GetParam())) {
        void* out = nullptr;
        ASSERT_EQ(object->QueryInterface(iid, &out), S_OK);
        held.push_back(static_cast<IUnknown*>(out));
        ++count;
        EXPECT_EQ(held.back()->AddRef(), count + 1) << "one count for all interfaces";
        EXPECT_EQ(held.back()->Release(), count);
    }
    EXPECT_EQ(object->Release(), --count) << "the interfaces keep the object";
    EXPECT_GT(getLiveObjectCount(), liveBefore);
    for (IUnknown* const pointer : held) {
        EXPECT_EQ(pointer->Release(), --count);
    }
    EXPECT_EQ(getLiveObjectCount(), liveBefore);
}

TEST_P(ComContract, ReferencesBalanceAcrossThreads) {
    const std::int32_t liveBefore = getLiveObjectCount();
    {
        const Pointer object = createSubject(GetParam());
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] {
                for (int round = 0; round < 200; ++round) {
                    for (const IID& iid : allAnswered(GetParam())) {
                        static_cast<void>(query(object, iid));
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(object->AddRef(), 2U);
        object->Release();
    }
    EXPECT_EQ(getLiveObjectCount(), liveBefore);
}
