#include "FakeComponent.h"

#include <algorithm>
#include <mutex>
#include <thread>

#include "ComObject.h"
#include "KvVaneException.h"

namespace KorvelVideo::Host {

namespace {

FakeScript g_script;
std::mutex g_callsLock;
std::vector<std::string> g_calls;

void record(const std::string& call) {
    const std::lock_guard lock(g_callsLock);
    g_calls.push_back(call);
}

class FakeVideoInformation final : public UncountedObject<IKvNetworkReceiverH264Information> {
public:
    FakeVideoInformation() : UncountedObject(IID_IKvNetworkReceiverH264Information) {}
    std::uint32_t GetStreamType() override { return keKvStreamTypeH264; }
    SKvVideoFormatDescription GetVideoFormat() override {
        return {28, 640, 360, 8, keKvAspectRatio16x9, keKvFrameRate25, keKvScanModeProgressive};
    }
    std::uint32_t GetColourClass() override { return keKvColourClassBt709; }
    std::uint32_t GetProfile() override { return 100; }
    std::uint32_t GetLevel() override { return 30; }
};

class FakeAudioInformation final : public UncountedObject<IKvNetworkReceiverAacInformation> {
public:
    FakeAudioInformation() : UncountedObject(IID_IKvNetworkReceiverAacInformation) {}
    std::uint32_t GetStreamType() override { return keKvStreamTypeAac; }
    std::uint32_t GetFirstValue() override { return 48000; }
    std::uint32_t GetSecondValue() override { return 2; }
};

class FakeTransportInformation final : public UncountedObject<IKvNetworkReceiverStreamInformation> {
public:
    std::uint32_t GetStreamType() override { return keKvStreamTypeTransportStream; }
};

void deliver(IKvVideoCallback& sink, const std::string& bytes, std::uint64_t timeStamp) {
    Reference<IKvSurface> surface;
    if (FAILED(sink.ProvideVideoSurface(static_cast<std::uint32_t>(bytes.size()), surface.receive()))) {
        record("no surface");
        return;
    }
    SKvLockedSurfaceDescription locked{};
    locked.m_size = sizeof locked;
    surface->Lock(0, keKvFaceTypeFront, &locked);
    std::copy(bytes.begin(), bytes.end(), locked.m_buffer);
    surface->SetTimeStampInfo(&timeStamp);
    surface->SignalWriteCompletion();
    sink.DeliverVideoSurface(surface.get());
}

// The configuration comes from the class that the host registered, as it does for the module.
void deliver(IKvAudioCallback& sink, const std::string& bytes, std::uint64_t timeStamp) {
    Reference<IKvAACCodecConfigDataAccess> configuration;
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(CoCreateInstance(CLSID_KvAACCodecConfigDataAccess, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IKvAACCodecConfigDataAccess, configuration.receiveVoid()))) {
        record("no configuration object");
        return;
    }
    CoUninitialize();
    const std::uint8_t config[] = {0x11, 0x90};
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), sizeof config, config};
    configuration->SetCodecConfigData(&data);
    Reference<IKvAudioSamples> samples;
    sink.ProvideAudioSamples(static_cast<std::uint32_t>(bytes.size()), samples.receive());
    std::uint8_t* buffer = nullptr;
    std::uint32_t length = 0;
    samples->GetBufferAndLength(&buffer, &length);
    std::copy(bytes.begin(), bytes.end(), buffer);
    samples->SetTimeStampInfo(&timeStamp);
    samples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, configuration.get());
    samples->SignalWriteCompletion();
    sink.DeliverAudioSamples(samples.get());
}

template <class Sink>
void play(Sink* sink, const FakeStream& stream) {
    if (sink == nullptr) {
        return;
    }
    std::uint64_t timeStamp = 0;
    for (const std::string& unit : stream.units) {
        deliver(*sink, unit, timeStamp += 400'000);
    }
    for (const HRESULT status : stream.statuses) {
        sink->NotifyStatus(status);
    }
}

class FakeReceiver final : public CountedObject<IKvNetworkReceiverController> {
public:
    explicit FakeReceiver(IKvNetworkStreamDetectorCallback& callback)
        : CountedObject(IID_IUnknown), m_callback(callback) {}

    void announce(const std::vector<FakeStream>& streams) {
        std::thread([&] {
            m_sinks.clear();
            for (const FakeStream& stream : streams) {
                m_sinks.push_back(detect(stream));
            }
        }).join();
    }

    HRESULT Start() override {
        record("start");
        if (FAILED(g_script.startResult)) {
            return g_script.startResult;
        }
        playing = std::thread([this] {
            for (const auto& sink : m_sinks) {
                sink();
            }
        });
        return S_OK;
    }
    HRESULT Stop() override {
        record("stop");
        finish();
        return S_OK;
    }
    HRESULT Redirect(const char* url) override {
        record(std::string("redirect ") + url);
        finish();
        if (FAILED(g_script.redirectResult)) {
            throw CKvVaneException("src/BaseReceiver", "redirect", 1, "m_client->Init()",
                                   g_script.redirectResult);
        }
        announce(g_script.redirectStreams);
        return Start();
    }

private:
    ~FakeReceiver() override {
        finish();
        record("end");
    }

    void finish() {
        if (playing.joinable()) {
            playing.join();
        }
    }

    std::function<void()> detect(const FakeStream& stream) {
        FakeVideoInformation video;
        FakeAudioInformation audio;
        FakeTransportInformation transport;
        switch (stream.type) {
        case keKvStreamTypeH264: {
            IKvVideoCallback* sink = m_callback.OnVideoStreamDetected(&video);
            return [=] { play(sink, stream); };
        }
        case keKvStreamTypeAac: {
            IKvAudioCallback* sink = m_callback.OnAudioStreamDetected(&audio);
            return [=] { play(sink, stream); };
        }
        case keKvStreamTypeTransportStream:
            break;
        }
        IKvVideoCallback* sink = m_callback.OnVideoStreamDetected(&transport);
        return [=] { play(sink, stream); };
    }

    IKvNetworkStreamDetectorCallback& m_callback;
    std::vector<std::function<void()>> m_sinks;
    std::thread playing;
};

template <class Settings>
std::string particulars(Settings& settings) {
    if constexpr (requires { settings.GetPort(); }) {
        return " " + std::to_string(settings.GetPort());
    } else if constexpr (requires { settings.GetClientOptionValue(); }) {
        return " " + std::to_string(settings.GetClientOptionValue());
    } else {
        return {};
    }
}

template <class Interface, class Settings>
class FakeFactory final : public UncountedObject<Interface> {
public:
    FakeFactory(REFIID iid, const char* name) : UncountedObject<Interface>(iid), m_name(name) {}

    HRESULT CreateReceiver(Settings* settings, IKvNetworkStreamDetectorCallback* callback,
                           IKvNetworkReceiverController** receiver) override {
        const char* networkInterface = settings->GetNetworkInterfaceCard();
        record(std::string(m_name) + " create " + settings->GetUrl() + " " +
               (networkInterface != nullptr ? networkInterface : "(none)") + particulars(*settings));
        if (g_script.whileOpening) {
            g_script.whileOpening();
        }
        if (FAILED(g_script.openResult)) {
            return g_script.openResult;
        }
        auto* made = new FakeReceiver(*callback);
        made->announce(g_script.streams);
        *receiver = made;
        return S_OK;
    }

private:
    const char* m_name;
};

FakeFactory<IKvRtspReceiverFactory, IKvRtspReceiverSettings> g_rtsp(IID_IKvRtspReceiverFactory, "rtsp");
FakeFactory<IKvRtmpReceiverFactory, IKvRtmpReceiverSettings> g_rtmp(IID_IKvRtmpReceiverFactory, "rtmp");
FakeFactory<IKvRtpReceiverFactory, IKvRtpReceiverSettings> g_rtp(IID_IKvRtpReceiverFactory, "rtp");
FakeFactory<IKvTsOverUdpReceiverFactory, IKvTsOverUdpReceiverSettings> g_ts(IID_IKvTsOverUdpReceiverFactory,
                                                                            "ts");

template <auto& factory>
HRESULT giveFactory(REFIID iid, void** object) {
    return factory.QueryInterface(iid, object);
}

ClassObject g_rtspClass(giveFactory<g_rtsp>);
ClassObject g_rtmpClass(giveFactory<g_rtmp>);
ClassObject g_rtpClass(giveFactory<g_rtp>);
ClassObject g_tsClass(giveFactory<g_ts>);

} // namespace

FakeComponent::FakeComponent(FakeScript script) {
    g_script = std::move(script);
    g_calls.clear();
    const std::pair<CLSID, ClassObject*> classes[] = {{CLSID_RtspReceiverFactory, &g_rtspClass},
                                                      {CLSID_RtmpReceiverFactory, &g_rtmpClass},
                                                      {CLSID_RtpReceiverFactory, &g_rtpClass},
                                                      {CLSID_TsOverUdpReceiverFactory, &g_tsClass}};
    for (const auto& [clsid, classObject] : classes) {
        m_cookies.emplace_back();
        CoRegisterClassObject(clsid, classObject, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                              &m_cookies.back());
    }
}

FakeComponent::~FakeComponent() {
    for (const DWORD cookie : m_cookies) {
        CoRevokeClassObject(cookie);
    }
}

std::vector<std::string> FakeComponent::calls() const {
    const std::lock_guard lock(g_callsLock);
    return g_calls;
}

} // namespace KorvelVideo::Host
