#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

#include "CallLog.h"
#include "KvStreamInformation.h"
#include "RecordingCodecConfiguration.h"
#include "TKvSmartPtr.h"
#include "TestObject.h"

// One delivered access unit as the host got it.
struct DeliveredUnit {
    std::vector<std::uint8_t> bytes;
    std::uint64_t timeStamp = 0;

    bool operator==(const DeliveredUnit&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const DeliveredUnit& unit) {
        stream << unit.timeStamp << ":";
        for (const std::uint8_t value : unit.bytes) {
            stream << ' ' << unsigned{value};
        }
        return stream;
    }
};

// A video and an audio sink: each call goes into the CallLog, a copy of what was delivered is kept. Buffers
// are named surface1 or samples1, ... in the order in which they were lent; each keeps a reference on what
// was attached to it, and its end is recorded as "surface1 ended".
class RecordingSink final : public StaticTestObject<IKvVideoCallback, IKvAudioCallback> {
public:
    HRESULT ProvideVideoSurface(std::uint32_t size, IKvSurface** surface) override {
        return provide("ProvideVideoSurface", "surface", size, surface);
    }
    HRESULT DeliverVideoSurface(IKvSurface* surface) override {
        return deliver("DeliverVideoSurface", *static_cast<Lent*>(surface));
    }
    HRESULT ProvideAudioSamples(std::uint32_t size, IKvAudioSamples** samples) override {
        return provide("ProvideAudioSamples", "samples", size, samples);
    }
    HRESULT DeliverAudioSamples(IKvAudioSamples* samples) override {
        return deliver("DeliverAudioSamples", *static_cast<Lent*>(samples));
    }
    HRESULT NotifyStatus(HRESULT status) override {
        CallLog::instance().recordCall("NotifyStatus", hexadecimal(status));
        const HRESULT result = resultOf("NotifyStatus");
        const std::lock_guard lock(m_lock);
        m_statuses.push_back(status);
        m_changed.notify_all();
        return result;
    }

    // Runs `action` inside each call of that name.
    void during(const std::string& call, const std::function<void()>& action) {
        onCall = [call, action](const std::string& made) {
            if (made == call) {
                action();
            }
        };
    }
    // Forgets its script and the numbers of its buffers.
    void restart() {
        script.clear();
        onCall = nullptr;
        m_bufferNumber = 0;
    }
    std::vector<DeliveredUnit> takeDelivered() {
        const std::lock_guard lock(m_lock);
        return std::exchange(m_delivered, {});
    }
    std::vector<HRESULT> takeStatuses() {
        const std::lock_guard lock(m_lock);
        return std::exchange(m_statuses, {});
    }
    // Waits up to 30 s for a status; false when it did not come.
    [[nodiscard]] bool waitForStatus(HRESULT status) {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, std::chrono::seconds(30), [this, status] {
            return std::find(m_statuses.begin(), m_statuses.end(), status) != m_statuses.end();
        });
    }
    // Buffers lent and not yet released by everyone.
    [[nodiscard]] int liveBuffers() const { return m_liveBuffers; }

    // What it does otherwise than succeed: `fail` with a call's name as in the interfaces, such as "Lock",
    // and its result. "capacity" fails with the bytes that a buffer has more than it was asked for, "buffer"
    // by lending none, "address" by lending one without.
    CallScript script;
    // Runs inside the named call, after it was recorded; set before the module runs.
    std::function<void(const std::string& call)> onCall;

private:
    class Lent final : public TestObject<IKvSurface, IKvAudioSamples> {
    public:
        Lent(RecordingSink& sink, const char* kind, std::uint32_t size, std::int64_t capacity)
            : name(kind + std::to_string(++sink.m_bufferNumber)), m_sink(sink), m_size(size),
              m_bytes(static_cast<std::size_t>(capacity)) {
            ++m_sink.m_liveBuffers;
        }
        ~Lent() override {
            CallLog::instance().record(name + " ended");
            --m_sink.m_liveBuffers;
        }

        HRESULT Lock(std::uint32_t first, EKvFaceType face,
                     SKvLockedSurfaceDescription* description) override {
            const bool fresh = description->m_size == 32 && description->m_bufferCapacity == 0 &&
                               description->m_buffer == nullptr;
            const HRESULT result = fresh ? enter("Lock", first, face) : enter("Lock", "a used record");
            return lend(result, description->m_buffer, description->m_bufferCapacity);
        }
        HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) override {
            const HRESULT result = *buffer == nullptr && *length == 0
                                       ? enter("GetBufferAndLength")
                                       : enter("GetBufferAndLength", "used variables");
            return lend(result, *buffer, *length);
        }
        HRESULT SetTimeStampInfo(const std::uint64_t* timeStamp) override {
            m_timeStamp = *timeStamp;
            return enter("SetTimeStampInfo", *timeStamp);
        }
        HRESULT AttachCustomObject(REFIID iid, IUnknown* object) override {
            m_attached = object;
            const bool expected = iid == IID_IKvAACCodecConfigDataAccess;
            return enter("AttachCustomObject", expected ? "IKvAACCodecConfigDataAccess" : "another interface",
                         RecordingCodecConfiguration::nameOf(object));
        }
        HRESULT SignalWriteCompletion() override { return enter("SignalWriteCompletion"); }

        [[nodiscard]] DeliveredUnit unit() const {
            return {std::vector<std::uint8_t>(m_bytes.begin(), m_bytes.begin() + m_size), m_timeStamp};
        }

        const std::string name;

    private:
        template <class... Values>
        HRESULT enter(const char* call, const Values&... values) {
            CallLog::instance().recordCall(name + "." + call, values...);
            return m_sink.resultOf(call);
        }
        HRESULT lend(HRESULT result, std::uint8_t*& buffer, std::uint32_t& capacity) {
            if (result >= 0) {
                buffer = m_sink.script.failureOf("address") ? nullptr : m_bytes.data();
                capacity = static_cast<std::uint32_t>(m_bytes.size());
            }
            return result;
        }

        RecordingSink& m_sink;
        std::uint32_t m_size;
        std::vector<std::uint8_t> m_bytes;
        std::uint64_t m_timeStamp = 0;
        TKvSmartPtr<IUnknown> m_attached;
    };

    // Runs onCall, and returns the scripted result of `call`.
    HRESULT resultOf(const std::string& call) {
        if (onCall) {
            onCall(call);
        }
        return static_cast<HRESULT>(script.failureOf(call).value_or(S_OK));
    }
    template <class Interface>
    HRESULT provide(const std::string& call, const char* kind, std::uint32_t size, Interface** lent) {
        CallLog::instance().recordCall(call, size);
        const HRESULT result = resultOf(call);
        if (result >= 0 && !script.failureOf("buffer")) {
            *lent = new Lent(*this, kind, size, size + script.failureOf("capacity").value_or(0));
        }
        return result;
    }
    HRESULT deliver(const std::string& call, const Lent& lent) {
        CallLog::instance().recordCall(call, lent.name);
        {
            const std::lock_guard lock(m_lock);
            m_delivered.push_back(lent.unit());
        }
        return resultOf(call);
    }

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

    IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation* information) override {
        enter("OnVideoStreamDetected", information);
        return videoSink;
    }
    IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation* information) override {
        enter("OnAudioStreamDetected", information);
        return audioSink;
    }

    IKvVideoCallback* videoSink;
    IKvAudioCallback* audioSink;
    // Runs inside each call, after it was recorded.
    std::function<void(IKvNetworkReceiverStreamInformation*)> onInformation;

private:
    void enter(const char* call, IKvNetworkReceiverStreamInformation* information) {
        CallLog::instance().recordCall(call, describe(information));
        if (onInformation) {
            onInformation(information);
        }
    }
    static std::string describe(IKvNetworkReceiverStreamInformation* information) {
        const FakeScope fake;
        std::ostringstream text;
        TKvSmartPtr<IKvNetworkReceiverH264Information> h264;
        TKvSmartPtr<IKvNetworkReceiverAacInformation> aac;
        const std::uint32_t type = information->GetStreamType();
        information->QueryInterface(IID_IKvNetworkReceiverH264Information, reinterpret_cast<void**>(&h264));
        information->QueryInterface(IID_IKvNetworkReceiverAacInformation, reinterpret_cast<void**>(&aac));
        if (type == keKvStreamTypeH264) {
            const SKvVideoFormatDescription format = h264->GetVideoFormat();
            text << "H.264";
            for (const std::uint32_t value :
                 {format.m_size, format.m_width, format.m_height, format.m_bitDepth, format.m_aspectRatio,
                  format.m_frameRate, format.m_scanMode, h264->GetColourClass(), h264->GetProfile(),
                  h264->GetLevel()}) {
                text << ' ' << value;
            }
        } else if (type == keKvStreamTypeAac) {
            text << "AAC " << aac->GetFirstValue() << ' ' << aac->GetSecondValue();
        } else {
            text << (type == keKvStreamTypeTransportStream ? "transport stream" : "unknown");
        }
        return text.str();
    }
};
