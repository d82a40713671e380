#include "RecordingHost.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "RecordingCodecConfiguration.h"
#include "TKvSmartPtr.h"

std::ostream& operator<<(std::ostream& stream, const DeliveredUnit& unit) {
    stream << unit.timeStamp << ":";
    for (const std::uint8_t value : unit.bytes) {
        stream << ' ' << unsigned{value};
    }
    return stream;
}

class RecordingSink::Lent final : public TestObject<IKvSurface, IKvAudioSamples> {
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

    HRESULT Lock(std::uint32_t first, EKvFaceType face, SKvLockedSurfaceDescription* description) override {
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

HRESULT RecordingSink::resultOf(const std::string& call) {
    if (onCall) {
        onCall(call);
    }
    return static_cast<HRESULT>(script.failureOf(call).value_or(S_OK));
}

template <class Interface>
HRESULT RecordingSink::provide(const std::string& call, const char* kind, std::uint32_t size,
                               Interface** lent) {
    CallLog::instance().recordCall(call, size);
    const HRESULT result = resultOf(call);
    if (result >= 0 && !script.failureOf("buffer")) {
        *lent = new Lent(*this, kind, size, size + script.failureOf("capacity").value_or(0));
    }
    return result;
}

HRESULT RecordingSink::deliver(const std::string& call, const Lent& lent) {
    CallLog::instance().recordCall(call, lent.name);
    {
        const std::lock_guard lock(m_lock);
        m_delivered.push_back(lent.unit());
    }
    return resultOf(call);
}

HRESULT RecordingSink::ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) {
    return provide("ProvideVideoSurface", "surface", bufferSizeToAskFor, surface);
}
HRESULT RecordingSink::DeliverVideoSurface(IKvSurface* surface) {
    return deliver("DeliverVideoSurface", *static_cast<Lent*>(surface));
}
HRESULT RecordingSink::ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) {
    return provide("ProvideAudioSamples", "samples", bufferSizeToAskFor, samples);
}
HRESULT RecordingSink::DeliverAudioSamples(IKvAudioSamples* samples) {
    return deliver("DeliverAudioSamples", *static_cast<Lent*>(samples));
}

HRESULT RecordingSink::NotifyStatus(HRESULT status) {
    CallLog::instance().recordCall("NotifyStatus", hexadecimal(status));
    const HRESULT result = resultOf("NotifyStatus");
    const std::lock_guard lock(m_lock);
    m_statuses.push_back(status);
    m_changed.notify_all();
    return result;
}

std::vector<DeliveredUnit> RecordingSink::takeDelivered() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_delivered, {});
}

std::vector<HRESULT> RecordingSink::takeStatuses() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_statuses, {});
}

bool RecordingSink::waitForStatus(HRESULT status) {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, std::chrono::seconds(30), [this, status] {
        return std::find(m_statuses.begin(), m_statuses.end(), status) != m_statuses.end();
    });
}

void RecordingDetector::enter(const char* call, IKvNetworkReceiverStreamInformation* information) {
    {
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
        CallLog::instance().recordCall(call, text.str());
    }
    if (onInformation) {
        onInformation(information);
    }
}

IKvVideoCallback* RecordingDetector::OnVideoStreamDetected(IKvNetworkReceiverStreamInformation* information) {
    enter("OnVideoStreamDetected", information);
    return videoSink;
}

IKvAudioCallback* RecordingDetector::OnAudioStreamDetected(IKvNetworkReceiverStreamInformation* information) {
    enter("OnAudioStreamDetected", information);
    return audioSink;
}
