#include "AllocationCounter.h"
#include "PooledSinks.h"
#include "ReceiverFixture.h"

// Each kind of receiver through its whole life with one thing failing at a time: every operation of the SDK
// and every allocation. After each life nothing may be left.

namespace {

class ReceiverFault : public ReceiverFixture, public testing::WithParamInterface<std::size_t> {
protected:
    static const ReceiverKind& kind() { return kReceiverKinds.at(GetParam()); }

    // Activity, data and the end on the stream. A failure in the consumer is the client's thread's to bear.
    static void feed() {
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
        onClientSide([](IMediaConsumer& stream) { ScriptedSdk::notify(stream, 6); });
    }

    // Create, start, feed, redirect, feed, stop, redirect, release: the first failure, and whether all others
    // are those of a receiver that lost its client.
    HRESULT live() {
        HRESULT failure = S_OK;
        const auto note = [&failure](HRESULT result) {
            if (result < 0 && result != KV_E_DISCONNECTED) {
                EXPECT_TRUE(failure == S_OK || failure == result);
                failure = result;
            }
        };
        const SettingsValues values{kind().url, "eth0", 5000, 3};
        note(kind().create(&values, &m_quiet, &receiver));
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
        return failure;
    }

    PooledSink m_pooled;
    RecordingDetector m_quiet{&m_pooled, nullptr};

private:
    const Unrecorded m_unrecorded;
    KvTest::ShortWaits m_shortWaits;
};

TEST_P(ReceiverFault, EverySdkOperation) {
    const std::pair<std::string, HRESULT> operations[] = {{"StartSocketService", KV_E_CONNECTION_FAILED},
                                                          {"CreateNetworkClient", KV_E_CONNECTION_FAILED},
                                                          {"Init", kvResult(0x89998292)},
                                                          {"SetParameter", kvResult(0x89998292)},
                                                          {"Play", kvResult(0x89998292)},
                                                          {"Stop", kvResult(0x89998292)},
                                                          {"EnableConsumer", S_OK},
                                                          {"Shutdown", S_OK},
                                                          {"Release", S_OK},
                                                          {"StopSocketService", S_OK}};
    for (const auto& [call, code] : operations) {
        for (int skip = 0;; ++skip) {
            SCOPED_TRACE(call + " after " + std::to_string(skip));
            restart();
            ScriptedSdk::failCall(call, call == "StartSocketService" ? 3 : 7, skip);
            const HRESULT failure = live();
            if (ScriptedSdk::isFailurePending(call)) {
                break; // this kind does not call it that often
            }
            // The result of the redirect's own stop, and of the destructor's, is nobody's.
            EXPECT_EQ(failure, call != "Stop" || skip == 1 ? code : S_OK);
            expectNothingLeft();
        }
    }
}

TEST_P(ReceiverFault, EveryAllocation) {
    EXPECT_EQ(live(), S_OK); // what is allocated once and kept
    std::int64_t allocations = 0;
    {
        const AllocationFault counting;
        EXPECT_EQ(live(), S_OK);
        allocations = AllocationFault::count();
    }
    EXPECT_GT(allocations, 10);
    for (std::int64_t number = 0; number < allocations; ++number) {
        HRESULT failure = S_OK;
        {
            const AllocationFault fault(number);
            failure = live();
        }
        EXPECT_TRUE(failure == S_OK || failure == KV_E_OUT_OF_MEMORY) << "allocation " << number;
        expectNothingLeft();
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReceiverFault, testing::Range(std::size_t{0}, kReceiverKinds.size()),
                         [](const auto& test) { return std::string(kReceiverKinds.at(test.param).name); });

} // namespace
