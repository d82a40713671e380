#include "ReceiverFactories.h"

#include <filesystem>
#include <system_error>

#include "PlatformModule.h"
#include "StatusNames.h"

namespace KorvelVideo::Host {

namespace {

constexpr const char* moduleFileName = KV_MODULE_FILE;

// Settings of every protocol have the address and the interface; `Interface` says what else is asked.
template <class Interface>
class Settings : public UncountedObject<Interface> {
public:
    explicit Settings(const ReceiverSettings& settings) noexcept : m_settings(settings) {}
    const char* GetUrl() override { return m_settings.url.c_str(); }
    const char* GetNetworkInterfaceCard() override {
        return m_settings.networkInterface.empty() ? nullptr : m_settings.networkInterface.c_str();
    }

protected:
    ~Settings() = default;
    const ReceiverSettings& m_settings;
};

template <class Interface>
class SettingsWithPort final : public Settings<Interface> {
public:
    using Settings<Interface>::Settings;
    std::int32_t GetPort() override { return this->m_settings.port; }
};

class RtpSettings final : public Settings<IKvRtpReceiverSettings> {
public:
    using Settings::Settings;
    std::uint32_t GetClientOptionValue() override { return m_settings.clientOption; }
};

class TsOverUdpSettings final : public Settings<IKvTsOverUdpReceiverSettings> {
public:
    using Settings::Settings;
};

template <class SettingsObject, class Factory>
HRESULT createWith(const Reference<Factory>& factory, const ReceiverSettings& settings,
                   IKvNetworkStreamDetectorCallback& callback,
                   Reference<IKvNetworkReceiverController>& receiver) {
    if (!factory) {
        return REGDB_E_CLASSNOTREG;
    }
    SettingsObject object(settings);
    const HRESULT result = factory->CreateReceiver(&object, &callback, receiver.receive());
    return SUCCEEDED(result) && !receiver ? E_POINTER : result;
}

// The module beside the program, or in the lib folder beside the program's; empty when there is none.
std::string findModule(std::string& searched) {
    char program[4096];
    const DWORD length = GetModuleFileNameA(nullptr, program, sizeof program);
    const std::filesystem::path folder = std::filesystem::path(std::string(program, length)).parent_path();
    for (const std::filesystem::path& place : {folder, folder.parent_path() / "lib"}) {
        const std::filesystem::path path = place / moduleFileName;
        std::error_code ignored;
        if (std::filesystem::exists(path, ignored)) {
            return path.string();
        }
        searched += (searched.empty() ? "" : " nor ") + path.string();
    }
    return {};
}

// The factory of a module that is loaded by path and stays loaded: code of it may run until the process ends.
HRESULT createFromFile(const std::string& path, REFCLSID clsid, REFIID iid, void** object) {
    using GetClassObject = HRESULT (*)(REFCLSID, REFIID, void**);
    HMODULE module = LoadLibraryA(path.c_str());
    if (module == nullptr) {
        return CO_E_DLLNOTFOUND;
    }
    const auto getClassObject = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    if (getClassObject == nullptr) {
        FreeLibrary(module);
        return CO_E_ERRORINDLL;
    }
    Reference<IClassFactory> classObject;
    const HRESULT result = getClassObject(clsid, IID_IClassFactory, classObject.receiveVoid());
    return SUCCEEDED(result) ? classObject->CreateInstance(nullptr, iid, object) : result;
}

template <class Factory>
HRESULT loadFactory(REFCLSID clsid, REFIID iid, Reference<Factory>& factory, std::string& problem) {
    if (factory) {
        return S_OK;
    }
    HRESULT result = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, factory.receiveVoid());
    if (SUCCEEDED(result)) {
        return result;
    }
    if (result != REGDB_E_CLASSNOTREG) {
        problem = "the registered component cannot be used: " + std::string(statusWords(result)) + " (" +
                  statusName(result) + "); register it again or unregister it with kvregister";
        return result;
    }
    std::string searched;
    const std::string path = findModule(searched);
    if (path.empty()) {
        problem = "no component is registered, and there is neither " + searched;
        return result;
    }
    result = createFromFile(path, clsid, iid, factory.receiveVoid());
    if (FAILED(result)) {
        problem = path + " cannot be used: " + statusName(result);
    }
    return result;
}

} // namespace

HRESULT ReceiverFactories::load(ReceiverKind kind, std::string& problem) {
    switch (kind) {
    case ReceiverKind::rtsp:
        return loadFactory(CLSID_RtspReceiverFactory, IID_IKvRtspReceiverFactory, m_rtsp, problem);
    case ReceiverKind::rtmp:
        return loadFactory(CLSID_RtmpReceiverFactory, IID_IKvRtmpReceiverFactory, m_rtmp, problem);
    case ReceiverKind::rtp:
        return loadFactory(CLSID_RtpReceiverFactory, IID_IKvRtpReceiverFactory, m_rtp, problem);
    case ReceiverKind::tsOverUdp:
        break;
    }
    return loadFactory(CLSID_TsOverUdpReceiverFactory, IID_IKvTsOverUdpReceiverFactory, m_tsOverUdp, problem);
}

HRESULT ReceiverFactories::create(ReceiverKind kind, const ReceiverSettings& settings,
                                  IKvNetworkStreamDetectorCallback& callback,
                                  Reference<IKvNetworkReceiverController>& receiver) const noexcept {
    switch (kind) {
    case ReceiverKind::rtsp:
        return createWith<SettingsWithPort<IKvRtspReceiverSettings>>(m_rtsp, settings, callback, receiver);
    case ReceiverKind::rtmp:
        return createWith<SettingsWithPort<IKvRtmpReceiverSettings>>(m_rtmp, settings, callback, receiver);
    case ReceiverKind::rtp:
        return createWith<RtpSettings>(m_rtp, settings, callback, receiver);
    case ReceiverKind::tsOverUdp:
        break;
    }
    return createWith<TsOverUdpSettings>(m_tsOverUdp, settings, callback, receiver);
}

} // namespace KorvelVideo::Host
