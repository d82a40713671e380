#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "KvStreamInformation.h"
#include "TestObject.h"

// What a recording host does otherwise than succeed. Calls are named as in the interfaces, for example
// "Lock".
class HostScript {
public:
    // The next `count` calls of `call` return `result`, after `skip` more calls that succeed.
    void fail(const std::string& call, HRESULT result, int count = 1, int skip = 0);
    // Added to the capacity of every buffer lent from now on.
    void setCapacityChange(std::int64_t bytes) { m_capacityChange = bytes; }
    // Succeed without a buffer, or lend a buffer without an address.
    void setLendNothing(bool nothing) { m_lendNothing = nothing; }
    void setLendNoAddress(bool noAddress) { m_lendNoAddress = noAddress; }

    [[nodiscard]] HRESULT resultOf(const std::string& call);
    [[nodiscard]] std::int64_t capacityChange() const { return m_capacityChange; }
    [[nodiscard]] bool lendsNothing() const { return m_lendNothing; }
    [[nodiscard]] bool lendsNoAddress() const { return m_lendNoAddress; }

private:
    struct Failure {
        HRESULT result;
        int count;
        int skip;
    };
    std::mutex m_lock;
    std::map<std::string, Failure> m_failures;
    std::atomic<std::int64_t> m_capacityChange{0};
    std::atomic<bool> m_lendNothing{false};
    std::atomic<bool> m_lendNoAddress{false};
};

// One delivered access unit as the host got it.
struct DeliveredUnit {
    std::vector<std::uint8_t> bytes;
    std::uint64_t timeStamp = 0;

    bool operator==(const DeliveredUnit&) const = default;
};

// What the recording sinks have in common: each call goes into the CallLog, a copy of what was delivered is
// kept.
class RecordingSink {
public:
    HostScript script;
    // Runs inside the named call, after it was recorded; set before the module runs.
    std::function<void(const std::string& call)> onCall;

    std::vector<DeliveredUnit> takeDelivered();
    std::vector<HRESULT> takeStatuses();
    // Buffers lent and not yet released by everyone.
    [[nodiscard]] int liveBuffers() const { return m_liveBuffers; }

    // Waits up to `milliseconds` for a status; false when it did not come.
    [[nodiscard]] bool waitForStatus(HRESULT status, std::uint32_t milliseconds);

protected:
    // Records `text`, runs onCall, and returns the scripted result of `call`.
    HRESULT enter(const std::string& call, const std::string& text);
    HRESULT enterStatus(HRESULT status);
    void keep(DeliveredUnit unit);

    template <class Interface>
    class Lent;

    std::atomic<int> m_bufferNumber{0};
    std::atomic<int> m_liveBuffers{0};

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<DeliveredUnit> m_delivered;
    std::vector<HRESULT> m_statuses;
};

// A video sink. Surfaces are named surface1, surface2, ... in the order in which they were lent; the end of
// one is recorded as "surface1 ended".
class RecordingVideoSink : public StaticTestObject<IKvVideoCallback>, public RecordingSink {
public:
    HRESULT ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) override;
    HRESULT DeliverVideoSurface(IKvSurface* surface) override;
    HRESULT NotifyStatus(HRESULT status) override { return enterStatus(status); }

private:
    class Surface;
};

// An audio sink. Buffers are named samples1, samples2, ... in the order in which they were lent; each keeps a
// reference on what was attached to it. The end of one is recorded as "samples1 ended".
class RecordingAudioSink : public StaticTestObject<IKvAudioCallback>, public RecordingSink {
public:
    HRESULT ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) override;
    HRESULT DeliverAudioSamples(IKvAudioSamples* samples) override;
    HRESULT NotifyStatus(HRESULT status) override { return enterStatus(status); }

private:
    class Samples;
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
