#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "CallLog.h"
#include "KvStreamInformation.h"
#include "TestObject.h"

// One delivered access unit as the host got it.
struct DeliveredUnit {
    std::vector<std::uint8_t> bytes;
    std::uint64_t timeStamp = 0;

    bool operator==(const DeliveredUnit&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const DeliveredUnit& unit);
};

// A video and an audio sink: each call goes into the CallLog, a copy of what was delivered is kept. Buffers
// are named surface1 or samples1, ... in the order in which they were lent; each keeps a reference on what
// was attached to it, and its end is recorded as "surface1 ended".
class RecordingSink final : public StaticTestObject<IKvVideoCallback, IKvAudioCallback> {
public:
    HRESULT ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) override;
    HRESULT DeliverVideoSurface(IKvSurface* surface) override;
    HRESULT ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) override;
    HRESULT DeliverAudioSamples(IKvAudioSamples* samples) override;
    HRESULT NotifyStatus(HRESULT status) override;

    // Forgets its script and the numbers of its buffers.
    void restart() {
        script.clear();
        onCall = nullptr;
        m_bufferNumber = 0;
    }
    std::vector<DeliveredUnit> takeDelivered();
    std::vector<HRESULT> takeStatuses();
    // Buffers lent and not yet released by everyone.
    [[nodiscard]] int liveBuffers() const { return m_liveBuffers; }
    // Waits up to 30 s for a status; false when it did not come.
    [[nodiscard]] bool waitForStatus(HRESULT status);

    // What it does otherwise than succeed: `fail` with a call's name as in the interfaces, such as "Lock",
    // and its result. "capacity" fails with the bytes that a buffer has more than it was asked for, "buffer"
    // by lending none, "address" by lending one without.
    CallScript script;
    // Runs inside the named call, after it was recorded; set before the module runs.
    std::function<void(const std::string& call)> onCall;

private:
    class Lent;

    // Runs onCall, and returns the scripted result of `call`.
    HRESULT resultOf(const std::string& call);
    template <class Interface>
    HRESULT provide(const std::string& call, const char* kind, std::uint32_t size, Interface** lent);
    HRESULT deliver(const std::string& call, const Lent& lent);

    std::atomic<int> m_bufferNumber{0};
    std::atomic<int> m_liveBuffers{0};
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<DeliveredUnit> m_delivered;
    std::vector<HRESULT> m_statuses;
};

// The detector: records each stream as the host learns of it, for example
// "OnAudioStreamDetected(AAC 48000 2)", and answers with its sinks.
class RecordingDetector : public StaticTestObject<IKvNetworkStreamDetectorCallback> {
public:
    RecordingDetector(IKvVideoCallback* video, IKvAudioCallback* audio)
        : videoSink(video), audioSink(audio) {}

    IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation* information) override;
    IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation* information) override;

    IKvVideoCallback* videoSink;
    IKvAudioCallback* audioSink;
    // Runs inside each call, after it was recorded.
    std::function<void(IKvNetworkReceiverStreamInformation*)> onInformation;

private:
    void enter(const char* call, IKvNetworkReceiverStreamInformation* information);
};
