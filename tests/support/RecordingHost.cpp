#include "RecordingHost.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
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

HRESULT RecordingSink::resultOf(const std::string& call) {
    if (onCall) {
        onCall(call);
    }
    return static_cast<HRESULT>(script.failureOf(call).value_or(S_OK));
}

HRESULT RecordingSink::NotifyStatus(HRESULT status) {
    char code[11];
    std::snprintf(code, sizeof(code), "0x%08X", static_cast<unsigned>(status));
    CallLog::instance().recordCall("NotifyStatus", code);
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

class RecordingSink::Lent final : public TestObject<IKvSurface, IKvAudioSamples> {
public:
    Lent(RecordingSink& sink, const char* kind, std::uint32_t size)
        : m_sink(sink), m_name(kind + std::to_string(++sink.m_bufferNumber)), m_size(size),
          m_bytes(
              static_cast<std::size_t>(std::max(0, static_cast<int>(size) + sink.script.capacityChange))) {
        ++m_sink.m_liveBuffers;
    }
    ~Lent() override {
        CallLog::instance().record(m_name + " ended");
        --m_sink.m_liveBuffers;
    }

    HRESULT Lock(std::uint32_t first, EKvFaceType face, SKvLockedSurfaceDescription* description) override {
        const bool used = description->m_size != 32 || description->m_bufferCapacity != 0 ||
                          description->m_buffer != nullptr;
        const HRESULT result = used ? enter("Lock", "a used record") : enter("Lock", first, face);
        return lend(result, description->m_buffer, description->m_bufferCapacity);
    }
    HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) override {
        const bool used = *buffer != nullptr || *length != 0;
        const HRESULT result =
            used ? enter("GetBufferAndLength", "used variables") : enter("GetBufferAndLength");
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

    [[nodiscard]] const std::string& name() const { return m_name; }
    [[nodiscard]] DeliveredUnit unit() const {
        return {std::vector<std::uint8_t>(m_bytes.begin(), m_bytes.begin() + m_size), m_timeStamp};
    }

private:
    template <class... Values>
    HRESULT enter(const char* call, const Values&... values) {
        CallLog::instance().recordCall(m_name + "." + call, values...);
        return m_sink.resultOf(call);
    }
    HRESULT lend(HRESULT result, std::uint8_t*& buffer, std::uint32_t& capacity) {
        if (result >= 0) {
            buffer = m_sink.script.lendsNoAddress ? nullptr : m_bytes.data();
            capacity = static_cast<std::uint32_t>(m_bytes.size());
        }
        return result;
    }

    RecordingSink& m_sink;
    std::string m_name;
    std::uint32_t m_size;
    std::vector<std::uint8_t> m_bytes;
    std::uint64_t m_timeStamp = 0;
    TKvSmartPtr<IUnknown> m_attached;
};

template <class Interface>
HRESULT RecordingSink::provide(const std::string& call, const char* kind, std::uint32_t size,
                               Interface** lent) {
    CallLog::instance().recordCall(call, size);
    const HRESULT result = resultOf(call);
    if (result >= 0 && !script.lendsNothing) {
        *lent = new Lent(*this, kind, size);
    }
    return result;
}

HRESULT RecordingSink::deliver(const std::string& call, const Lent& lent) {
    {
        const std::lock_guard lock(m_lock);
        m_delivered.push_back(lent.unit());
    }
    CallLog::instance().recordCall(call, lent.name());
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

namespace {

template <class Interface>
TKvSmartPtr<Interface> queried(IUnknown* object, const IID& iid) {
    TKvSmartPtr<Interface> queried;
    object->QueryInterface(iid, reinterpret_cast<void**>(&queried));
    return queried;
}

std::string describe(IKvNetworkReceiverStreamInformation* information) {
    std::ostringstream text;
    switch (information->GetStreamType()) {
    case keKvStreamTypeH264: {
        const auto h264 =
            queried<IKvNetworkReceiverH264Information>(information, IID_IKvNetworkReceiverH264Information);
        const SKvVideoFormatDescription format = h264->GetVideoFormat();
        text << "H.264";
        for (const std::uint32_t value : {format.m_size, format.m_width, format.m_height, format.m_bitDepth,
                                          format.m_aspectRatio, format.m_frameRate, format.m_scanMode,
                                          h264->GetColourClass(), h264->GetProfile(), h264->GetLevel()}) {
            text << ' ' << value;
        }
        break;
    }
    case keKvStreamTypeAac: {
        const auto aac =
            queried<IKvNetworkReceiverAacInformation>(information, IID_IKvNetworkReceiverAacInformation);
        text << "AAC " << aac->GetFirstValue() << ' ' << aac->GetSecondValue();
        break;
    }
    default:
        text << (information->GetStreamType() == keKvStreamTypeTransportStream ? "transport stream"
                                                                               : "unknown");
    }
    return text.str();
}

} // namespace

void RecordingDetector::enter(const char* call, IKvNetworkReceiverStreamInformation* information) {
    {
        const FakeScope fake;
        CallLog::instance().recordCall(call, describe(information));
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
