#include "RecordingHost.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

#include "CallLog.h"
#include "RecordingCodecConfiguration.h"
#include "TKvSmartPtr.h"

namespace {

std::string hexadecimal(HRESULT result) {
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(result));
    return text;
}

} // namespace

void HostScript::fail(const std::string& call, HRESULT result, int count, int skip) {
    const std::lock_guard lock(m_lock);
    m_failures[call] = Failure{result, count, skip};
}

HRESULT HostScript::resultOf(const std::string& call) {
    const std::lock_guard lock(m_lock);
    const auto failure = m_failures.find(call);
    if (failure == m_failures.end()) {
        return S_OK;
    }
    if (failure->second.skip > 0) {
        --failure->second.skip;
        return S_OK;
    }
    const HRESULT result = failure->second.result;
    if (--failure->second.count == 0) {
        m_failures.erase(failure);
    }
    return result;
}

HRESULT RecordingSink::enter(const std::string& call, const std::string& text) {
    CallLog::instance().record(text);
    if (onCall) {
        onCall(call);
    }
    return script.resultOf(call);
}

HRESULT RecordingSink::enterStatus(HRESULT status) {
    const HRESULT result = enter("NotifyStatus", "NotifyStatus(" + hexadecimal(status) + ")");
    const std::lock_guard lock(m_lock);
    m_statuses.push_back(status);
    m_changed.notify_all();
    return result;
}

void RecordingSink::keep(DeliveredUnit unit) {
    const std::lock_guard lock(m_lock);
    m_delivered.push_back(std::move(unit));
    m_changed.notify_all();
}

std::vector<DeliveredUnit> RecordingSink::takeDelivered() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_delivered, {});
}

std::vector<HRESULT> RecordingSink::takeStatuses() {
    const std::lock_guard lock(m_lock);
    return std::exchange(m_statuses, {});
}

bool RecordingSink::waitForStatus(HRESULT status, std::uint32_t milliseconds) {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), [this, status] {
        return std::find(m_statuses.begin(), m_statuses.end(), status) != m_statuses.end();
    });
}

// What a surface and a sample buffer have in common.
template <class Interface>
class RecordingSink::Lent : public TestObject<Interface> {
public:
    Lent(RecordingSink& sink, const char* kind, std::uint32_t size)
        : m_sink(sink), m_name(kind + std::to_string(++sink.m_bufferNumber)), m_size(size),
          m_bytes(static_cast<std::size_t>(std::max<std::int64_t>(0, size + sink.script.capacityChange()))) {
        ++m_sink.m_liveBuffers;
    }
    ~Lent() override {
        CallLog::instance().record(m_name + " ended");
        --m_sink.m_liveBuffers;
    }

    HRESULT SetTimeStampInfo(const std::uint64_t* timeStamp) override {
        m_timeStamp = *timeStamp;
        return enter("SetTimeStampInfo", std::to_string(*timeStamp));
    }
    HRESULT SignalWriteCompletion() override { return enter("SignalWriteCompletion", ""); }

    [[nodiscard]] const std::string& name() const { return m_name; }
    [[nodiscard]] DeliveredUnit unit() const {
        return {std::vector<std::uint8_t>(m_bytes.begin(), m_bytes.begin() + m_size), m_timeStamp};
    }

protected:
    HRESULT enter(const std::string& call, const std::string& arguments, const char* remark = "") {
        return m_sink.enter(call, m_name + "." + call + "(" + arguments + ")" + remark);
    }
    [[nodiscard]] std::uint8_t* address() {
        return m_sink.script.lendsNoAddress() ? nullptr : m_bytes.data();
    }
    [[nodiscard]] std::uint32_t capacity() const { return static_cast<std::uint32_t>(m_bytes.size()); }

private:
    RecordingSink& m_sink;
    std::string m_name;
    std::uint32_t m_size;
    std::vector<std::uint8_t> m_bytes;
    std::uint64_t m_timeStamp = 0;
};

class RecordingVideoSink::Surface final : public Lent<IKvSurface> {
public:
    Surface(RecordingVideoSink& sink, std::uint32_t size) : Lent(sink, "surface", size) {}

    HRESULT Lock(std::uint32_t first, EKvFaceType face, SKvLockedSurfaceDescription* description) override {
        const bool clean = description->m_size == 32 && description->m_bufferCapacity == 0 &&
                           description->m_buffer == nullptr;
        const HRESULT result = enter("Lock", std::to_string(first) + ", " + std::to_string(face),
                                     clean ? "" : " with a used record");
        if (result >= 0) {
            description->m_bufferCapacity = capacity();
            description->m_buffer = address();
        }
        return result;
    }
};

HRESULT RecordingVideoSink::ProvideVideoSurface(std::uint32_t bufferSizeToAskFor, IKvSurface** surface) {
    const HRESULT result =
        enter("ProvideVideoSurface", "ProvideVideoSurface(" + std::to_string(bufferSizeToAskFor) + ")");
    if (result >= 0 && !script.lendsNothing()) {
        *surface = new Surface(*this, bufferSizeToAskFor);
    }
    return result;
}

HRESULT RecordingVideoSink::DeliverVideoSurface(IKvSurface* surface) {
    const auto* filled = static_cast<Surface*>(surface);
    keep(filled->unit());
    return enter("DeliverVideoSurface", "DeliverVideoSurface(" + filled->name() + ")");
}

class RecordingAudioSink::Samples final : public Lent<IKvAudioSamples> {
public:
    Samples(RecordingAudioSink& sink, std::uint32_t size) : Lent(sink, "samples", size) {}

    HRESULT AttachCustomObject(REFIID iid, IUnknown* object) override {
        m_attached = object;
        const bool expected = iid == IID_IKvAACCodecConfigDataAccess;
        return enter("AttachCustomObject",
                     std::string(expected ? "IKvAACCodecConfigDataAccess" : "another interface") + ", " +
                         RecordingCodecConfiguration::nameOf(object));
    }
    HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) override {
        const bool clean = *buffer == nullptr && *length == 0;
        const HRESULT result = enter("GetBufferAndLength", "", clean ? "" : " with used variables");
        if (result >= 0) {
            *buffer = address();
            *length = capacity();
        }
        return result;
    }

private:
    TKvSmartPtr<IUnknown> m_attached;
};

HRESULT RecordingAudioSink::ProvideAudioSamples(std::uint32_t bufferSizeToAskFor, IKvAudioSamples** samples) {
    const HRESULT result =
        enter("ProvideAudioSamples", "ProvideAudioSamples(" + std::to_string(bufferSizeToAskFor) + ")");
    if (result >= 0 && !script.lendsNothing()) {
        *samples = new Samples(*this, bufferSizeToAskFor);
    }
    return result;
}

HRESULT RecordingAudioSink::DeliverAudioSamples(IKvAudioSamples* samples) {
    const auto* filled = static_cast<Samples*>(samples);
    keep(filled->unit());
    return enter("DeliverAudioSamples", "DeliverAudioSamples(" + filled->name() + ")");
}

namespace {

std::string describe(IKvNetworkReceiverStreamInformation* information) {
    TKvSmartPtr<IKvNetworkReceiverH264Information> h264;
    TKvSmartPtr<IKvNetworkReceiverAacInformation> aac;
    const std::uint32_t type = information->GetStreamType();
    if (type == keKvStreamTypeH264 && information->QueryInterface(IID_IKvNetworkReceiverH264Information,
                                                                  reinterpret_cast<void**>(&h264)) >= 0) {
        const SKvVideoFormatDescription format = h264->GetVideoFormat();
        std::string text = "H.264";
        for (const std::uint32_t value : {format.m_size, format.m_width, format.m_height, format.m_bitDepth,
                                          format.m_aspectRatio, format.m_frameRate, format.m_scanMode,
                                          h264->GetColourClass(), h264->GetProfile(), h264->GetLevel()}) {
            text += " " + std::to_string(value);
        }
        return text;
    }
    if (type == keKvStreamTypeAac && information->QueryInterface(IID_IKvNetworkReceiverAacInformation,
                                                                 reinterpret_cast<void**>(&aac)) >= 0) {
        return "AAC " + std::to_string(aac->GetFirstValue()) + " " + std::to_string(aac->GetSecondValue());
    }
    return type == keKvStreamTypeTransportStream ? "transport stream" : "unknown";
}

} // namespace

void RecordingDetector::enter(const char* call, IKvNetworkReceiverStreamInformation* information) {
    CallLog::instance().record(std::string(call) + "(" + describe(information) + ")");
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
