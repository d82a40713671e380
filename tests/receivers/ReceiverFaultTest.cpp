#include <set>

#include "AllocationFault.h"
#include "KvVaneException.h"
#include "PlatformFaults.h"
#include "ReceiverFixture.h"
#include "RecordingCodecConfiguration.h"
#include "StatusTables.h"

// Each kind of receiver through its whole life with one thing failing at a time: every operation of the SDK
// with every status that has a code, every call of the host, every allocation, every platform call. The
// fixture checks after each life that nothing is left.

namespace {

using KvTest::Fault;
using KvTest::PlatformCall;
using KvTest::PlatformFault;

// Surfaces and sinks that record nothing and allocate nothing.
class QuietSurface final : public StaticTestObject<IKvSurface> {
public:
    HRESULT SetTimeStampInfo(const std::uint64_t*) override { return S_OK; }
    HRESULT SignalWriteCompletion() override { return S_OK; }
    HRESULT Lock(std::uint32_t, EKvFaceType, SKvLockedSurfaceDescription* description) override {
        description->m_bufferCapacity = sizeof(m_bytes);
        description->m_buffer = m_bytes;
        return S_OK;
    }

private:
    std::uint8_t m_bytes[64];
};

class QuietSink final : public StaticTestObject<IKvVideoCallback> {
public:
    HRESULT ProvideVideoSurface(std::uint32_t, IKvSurface** surface) override {
        m_surface.AddRef();
        *surface = &m_surface;
        return S_OK;
    }
    HRESULT DeliverVideoSurface(IKvSurface*) override { return S_OK; }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }

private:
    QuietSurface m_surface;
};

class QuietDetector final : public StaticTestObject<IKvNetworkStreamDetectorCallback> {
public:
    IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation*) override { return &m_sink; }
    IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation*) override { return nullptr; }

private:
    QuietSink m_sink;
};

// The results of a life's operations that returned a failure.
using Failures = std::set<HRESULT>;

void note(Failures& failures, HRESULT result) {
    if (result < 0) {
        const FakeScope fake;
        failures.insert(result);
    }
}

template <class Action>
void noteRaised(Failures& failures, Action action) {
    try {
        note(failures, action());
    } catch (const CKvVaneException& exception) {
        note(failures, exception.m_result);
    } // nothing else may come out
}

// What a client's thread does; a failure in the consumer is that thread's to bear.
template <class Action>
void onClientSide(Action action) {
    try {
        action();
    } catch (const std::bad_alloc&) {   // NOLINT(bugprone-empty-catch)
    } catch (const CKvBaseException&) { // NOLINT(bugprone-empty-catch)
    }
}

class ReceiverFault : public ReceiverFixture, public testing::WithParamInterface<ReceiverKind> {
protected:
    // Activity and data on every stream, then its end, unless the worker that follows would be in the way.
    void feed() {
        std::vector<MainConcept::NetworkStreaming::IMediaConsumer*> consumers;
        {
            const FakeScope fake;
            consumers = ScriptedSdk::consumers();
        }
        for (auto* const consumer : consumers) {
            onClientSide([consumer] { ScriptedSdk::notify(*consumer, 10); });
            for (std::uint64_t timeStamp = 0; timeStamp < 3; ++timeStamp) {
                onClientSide([consumer, timeStamp] { ScriptedSdk::play(*consumer, sampleAt(timeStamp)); });
            }
            if (endsStreams) {
                onClientSide([consumer] { ScriptedSdk::notify(*consumer, 6); });
            }
        }
        const FakeScope fake;
        consumers = {};
    }
    static const ScriptedSdk::Sample& sampleAt(std::uint64_t timeStamp) {
        static std::array<ScriptedSdk::Sample, 3> samples{
            {{{1, 2, 3, 4}, 0}, {{1, 2, 3, 4}, 40}, {{1, 2, 3, 4}, 80}}};
        return samples.at(timeStamp);
    }

    // Create, start, feed, redirect, feed, stop, redirect, release.
    Failures live(const ReceiverKind& kind, IKvNetworkStreamDetectorCallback* callback) {
        Failures failures;
        const SettingsValues values{kind.url, "eth0", 5000, 3};
        IKvNetworkReceiverController* made = nullptr;
        note(failures, kind.create(&values, callback, &made));
        if (made == nullptr) {
            return failures;
        }
        note(failures, made->Start());
        feed();
        noteRaised(failures, [&] { return made->Redirect(kind.otherUrl); });
        note(failures, made->Start());
        feed();
        note(failures, made->Stop());
        noteRaised(failures, [&] { return made->Redirect(kind.url); });
        made->Release();
        return failures;
    }

    // A receiver that lost its client says so at each further operation.
    static Failures withoutConsequences(Failures failures) {
        if (failures.size() > 1) {
            failures.erase(KV_E_DISCONNECTED);
        }
        return failures;
    }

    void expectNothingLeft() {
        EXPECT_TRUE(waitForObjects(0));
        EXPECT_EQ(ScriptedSdk::liveClients(), 0);
        EXPECT_EQ(ScriptedSdk::liveAllocators(), 0);
        EXPECT_EQ(ScriptedSdk::lentBuffers(), 0);
        EXPECT_EQ(ScriptedSdk::runningServices(), 0);
    }

    bool endsStreams = true;
    QuietDetector m_quiet;

private:
    KvTest::ShortWaits m_shortWaits;
};

// The code that an operation's failure must come back as, from whichever operation of the receiver.
HRESULT expectedCode(const ReceiverKind& kind, const std::string& call, std::uint32_t status,
                     bool atCreation) {
    HRESULT code = call == "StartSocketService" ? mapSocketServiceStatus(static_cast<std::int32_t>(status))
                                                : mapNetworkStatus(status);
    const bool replaced = code == KV_E_UNKNOWN_ERROR || (&kind == &kRtmp && code == kvResult(0x89998296));
    return atCreation && replaced ? KV_E_CONNECTION_FAILED : code;
}

TEST_P(ReceiverFault, EveryStatusOfEverySdkOperation) {
    ScriptedSdk::setRecording(false);
    CallLog::instance().setEnabled(false);
    const ReceiverKind& kind = *std::find_if(kReceiverKinds.begin(), kReceiverKinds.end(),
                                             [](const auto& row) { return row.url == GetParam().url; });
    struct Operation {
        const char* call;
        int times; // in a life without failures, for the kind that calls it most often
    };
    for (const Operation& operation :
         {Operation{"StartSocketService", 1}, Operation{"Init", 3}, Operation{"SetParameter", 6},
          Operation{"EnableConsumer", 4}, Operation{"Play", 4}, Operation{"Stop", 3},
          Operation{"Shutdown", 3}, Operation{"Release", 3}, Operation{"CreateNetworkClient", 3},
          Operation{"StopSocketService", 1}}) {
        for (int skip = 0; skip < operation.times; ++skip) {
            for (std::uint32_t status = 0; status <= 27; ++status) {
                SCOPED_TRACE(std::string(operation.call) + " status " + std::to_string(status) + " after " +
                             std::to_string(skip));
                ScriptedSdk::resetClients();
                ScriptedSdk::setAnnouncements({ScriptedSdk::Announcement{}});
                ScriptedSdk::failCall(operation.call, status, skip);
                const Failures failures = withoutConsequences(live(kind, &m_quiet));
                const std::string call = operation.call;
                const bool happened = !ScriptedSdk::isFailurePending(call);
                if (!happened) {
                    break; // this kind does not call it that often
                }
                const bool isLogged = call == "EnableConsumer" || call == "Shutdown" || call == "Release" ||
                                      call == "StopSocketService";
                if (call == "CreateNetworkClient") {
                    EXPECT_EQ(failures, status == 0 ? Failures{} : Failures{KV_E_CONNECTION_FAILED});
                } else if (!isLogged) {
                    const int callsAtCreation = call == "SetParameter" && &kind != &kRtp ? 2 : 1;
                    const bool atCreation =
                        skip < callsAtCreation &&
                        (call == "StartSocketService" || call == "Init" || call == "SetParameter");
                    const HRESULT code = expectedCode(kind, call, status, atCreation);
                    // The result of the redirect's own stop, and of the destructor's, is nobody's.
                    if (call != "Stop" || skip == 1) {
                        EXPECT_TRUE(code == S_OK ? failures.empty() : failures.count(code) == 1)
                            << "expected " << std::hex << code;
                    }
                } else {
                    EXPECT_TRUE(failures.empty());
                }
                expectNothingLeft();
                if (HasFailure()) {
                    return;
                }
            }
        }
    }
    CallLog::instance().setEnabled(true);
}

TEST_P(ReceiverFault, EveryCallOfTheHost) {
    struct HostCase {
        const char* call;
        HRESULT result;
    };
    for (const HostCase& row :
         {HostCase{"ProvideVideoSurface", E_OUTOFMEMORY}, HostCase{"Lock", E_FAIL},
          HostCase{"SetTimeStampInfo", E_FAIL}, HostCase{"SignalWriteCompletion", E_FAIL},
          HostCase{"DeliverVideoSurface", E_FAIL}, HostCase{"NotifyStatus", E_FAIL}}) {
        for (int skip = 0; skip < 4; ++skip) {
            ScriptedSdk::resetClients();
            ScriptedSdk::setAnnouncements({ScriptedSdk::Announcement{}});
            videoSink.script.fail(row.call, row.result, 1, skip);
            EXPECT_TRUE(live(GetParam(), &detector).empty()) << row.call << " after " << skip;
            expectNothingLeft();
        }
    }
    // The host refuses every stream: there is nothing to receive, and no failure.
    detector.videoSink = nullptr;
    EXPECT_TRUE(live(GetParam(), &detector).empty());
}

TEST_P(ReceiverFault, EveryAllocation) {
    ScriptedSdk::setRecording(false);
    ScriptedSdk::setClientRecording(false);
    CallLog::instance().setEnabled(false);
    RecordingLogger::setEnabled(false);
    static_cast<void>(live(GetParam(), &m_quiet)); // what is allocated once and kept
    std::int64_t allocations = 0;
    {
        const AllocationFault counting;
        EXPECT_TRUE(live(GetParam(), &m_quiet).empty());
        allocations = AllocationFault::count();
    }
    EXPECT_GT(allocations, 10);
    for (std::int64_t number = 0; number < allocations; ++number) {
        Failures failures;
        {
            const AllocationFault fault(number);
            failures = live(GetParam(), &m_quiet);
        }
        failures.erase(KV_E_DISCONNECTED);
        EXPECT_TRUE(failures.empty() || failures == Failures{KV_E_OUT_OF_MEMORY}) << "allocation " << number;
        expectNothingLeft();
    }
    CallLog::instance().setEnabled(true);
    RecordingLogger::setEnabled(true);
}

TEST_P(ReceiverFault, EveryPlatformCall) {
    endsStreams = false; // a thread that cannot be waited for cannot be ended safely either
    ScriptedSdk::setRecording(false);
    CallLog::instance().setEnabled(false);
    struct PlatformCase {
        PlatformCall call;
        std::int64_t result;
    };
    for (const PlatformCase& row :
         {PlatformCase{PlatformCall::CreateEventA, 0}, PlatformCase{PlatformCall::SetEvent, 0},
          PlatformCase{PlatformCall::ResetEvent, 0},
          PlatformCase{PlatformCall::WaitForSingleObject, WAIT_FAILED},
          PlatformCase{PlatformCall::WaitForSingleObject, WAIT_ABANDONED},
          PlatformCase{PlatformCall::beginthreadex, 0}}) {
        for (unsigned after = 0; after < 3; ++after) {
            const PlatformFault fault(row.call, Fault{row.result, after, 1, 0});
            EXPECT_TRUE(live(GetParam(), &m_quiet).empty()) << "call " << static_cast<int>(row.call);
            expectNothingLeft();
        }
    }
    CallLog::instance().setEnabled(true);
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReceiverFault, testing::ValuesIn(kReceiverKinds),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
