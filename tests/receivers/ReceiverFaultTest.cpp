#include <set>

#include "AllocationCounter.h"
#include "PooledSinks.h"
#include "ReceiverFixture.h"
#include "StatusTables.h"

// Each kind of receiver through its whole life with one thing failing at a time: every operation of the SDK
// with every status that has a code, every call of the host, every allocation, every platform call. After
// each life nothing may be left.

namespace {

// The results of a life's operations that returned a failure.
using Failures = std::set<HRESULT>;

class ReceiverFault : public ReceiverFixture, public testing::WithParamInterface<std::size_t> {
protected:
    static const ReceiverKind& kind() { return kReceiverKinds.at(GetParam()); }

    // Activity and data on the stream, then its end, unless the worker that follows would be in the way. A
    // failure in the consumer is the client's thread's to bear.
    void feed() const {
        static const ScriptedSdk::Sample samples[] = {{{1, 2, 3}, 0}, {{1, 2, 3}, 40}, {{1, 2, 3}, 80}};
        const auto onClientSide = [](const auto& action) {
            try {
                for (IMediaConsumer* const stream : ScriptedSdk::consumers()) {
                    action(*stream);
                }
            } catch (const std::bad_alloc&) {   // NOLINT(bugprone-empty-catch)
            } catch (const CKvBaseException&) { // NOLINT(bugprone-empty-catch)
            }
        };
        onClientSide([](IMediaConsumer& stream) { ScriptedSdk::notify(stream, 10); });
        for (const ScriptedSdk::Sample& sample : samples) {
            onClientSide([&sample](IMediaConsumer& stream) { ScriptedSdk::play(stream, sample); });
        }
        if (endsStreams) {
            onClientSide([](IMediaConsumer& stream) { ScriptedSdk::notify(stream, 6); });
        }
    }

    // Create, start, feed, redirect, feed, stop, redirect, release. A receiver that lost its client says so
    // at each further operation.
    Failures live(IKvNetworkStreamDetectorCallback& callback) {
        Failures failures;
        const auto note = [&failures](HRESULT result) {
            const FakeScope fake;
            if (result < 0) {
                failures.insert(result);
            }
        };
        const SettingsValues values{kind().url, "eth0", 5000, 3};
        note(kind().create(&values, &callback, &receiver));
        if (receiver != nullptr) {
            note(receiver->Start());
            feed();
            note(redirect(kind().otherUrl));
            note(receiver->Start());
            feed();
            note(receiver->Stop());
            note(redirect(kind().url));
            release();
        }
        return failures;
    }

    bool endsStreams = true;
    PooledSink m_pooled;
    RecordingDetector m_quiet{&m_pooled, nullptr};

private:
    KvTest::ShortWaits m_shortWaits;
};

// The code that an operation's failure must come back as, from whichever operation of the receiver.
HRESULT expectedCode(bool isRtmp, const std::string& call, std::uint32_t status, bool atCreation) {
    if (call == "CreateNetworkClient") {
        return status == 0 ? S_OK : KV_E_CONNECTION_FAILED;
    }
    const HRESULT code = call == "StartSocketService"
                             ? mapSocketServiceStatus(static_cast<std::int32_t>(status))
                             : mapNetworkStatus(status);
    const bool replaced = code == KV_E_UNKNOWN_ERROR || (isRtmp && code == kvResult(0x89998296));
    return atCreation && replaced ? KV_E_CONNECTION_FAILED : code;
}

TEST_P(ReceiverFault, EveryStatusOfEverySdkOperation) {
    const Unrecorded unrecorded;
    struct Operation {
        const char* call;
        int times;      // in a life without failures, for the kind that calls it most often
        int atCreation; // of those
        bool isLogged;  // and nothing else
    };
    const int parameters = &kind() == &kRtp ? 1 : 2;
    for (const Operation& operation : {Operation{"StartSocketService", 1, 1, false},
                                       {"Init", 3, 1, false},
                                       {"SetParameter", 6, parameters, false},
                                       {"EnableConsumer", 4, 0, true},
                                       {"Play", 4, 0, false},
                                       {"Stop", 3, 0, false},
                                       {"Shutdown", 3, 0, true},
                                       {"Release", 3, 0, true},
                                       {"CreateNetworkClient", 3, 1, false},
                                       {"StopSocketService", 1, 0, true}}) {
        const std::string call = operation.call;
        for (int skip = 0; skip < operation.times; ++skip) {
            for (std::uint32_t status = 0; status <= 27; ++status) {
                SCOPED_TRACE(call + " status " + std::to_string(status) + " after " + std::to_string(skip));
                restart();
                ScriptedSdk::failCall(call, status, skip);
                Failures failures = live(m_quiet);
                if (ScriptedSdk::isFailurePending(call)) {
                    break; // this kind does not call it that often
                }
                if (failures.size() > 1) {
                    failures.erase(KV_E_DISCONNECTED);
                }
                const bool atCreation = skip < operation.atCreation;
                const HRESULT code =
                    operation.isLogged ? S_OK : expectedCode(&kind() == &kRtmp, call, status, atCreation);
                // The result of the redirect's own stop, and of the destructor's, is nobody's.
                if (call != "Stop" || skip == 1) {
                    ASSERT_EQ(failures, code == S_OK ? Failures{} : Failures{code});
                }
                expectNothingLeft();
            }
        }
    }
}

TEST_P(ReceiverFault, EveryAllocation) {
    const Unrecorded unrecorded;
    static_cast<void>(live(m_quiet)); // what is allocated once and kept
    std::int64_t allocations = 0;
    {
        const AllocationFault counting;
        EXPECT_EQ(live(m_quiet), Failures{});
        allocations = AllocationFault::count();
    }
    EXPECT_GT(allocations, 10);
    for (std::int64_t number = 0; number < allocations; ++number) {
        Failures failures;
        {
            const AllocationFault fault(number);
            failures = live(m_quiet);
        }
        failures.erase(KV_E_DISCONNECTED);
        EXPECT_TRUE(failures.empty() || failures == Failures{KV_E_OUT_OF_MEMORY}) << "allocation " << number;
        expectNothingLeft();
    }
}

TEST_P(ReceiverFault, EveryPlatformCall) {
    endsStreams = false; // a thread that cannot be waited for cannot be ended safely either
    const Unrecorded unrecorded;
    for (const auto& [call, result] : std::initializer_list<std::pair<PlatformCall, std::int64_t>>{
             {PlatformCall::CreateEventA, 0},
             {PlatformCall::SetEvent, 0},
             {PlatformCall::ResetEvent, 0},
             {PlatformCall::WaitForSingleObject, WAIT_FAILED},
             {PlatformCall::WaitForSingleObject, WAIT_ABANDONED},
             {PlatformCall::beginthreadex, 0}}) {
        for (unsigned after = 0; after < 3; ++after) {
            const PlatformFault fault(call, {.result = result, .after = after});
            EXPECT_EQ(live(m_quiet), Failures{}) << "call " << static_cast<int>(call);
            expectNothingLeft();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReceiverFault, testing::Range(std::size_t{0}, kReceiverKinds.size()),
                         [](const auto& test) { return std::string(kReceiverKinds.at(test.param).name); });

} // namespace
