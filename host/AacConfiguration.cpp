#include "AacConfiguration.h"

#include <memory>
#include <new>

#include "KvResultCodes.h"

namespace KorvelVideo::Host {

namespace {

// Answered by objects of this class only, so that an attached object is known to be one.
// {8F2C1E57-3B1A-4B0E-9C55-2F6B9E1D7A10}
constexpr IID iidOwnClass{0x8F2C1E57, 0x3B1A, 0x4B0E, {0x9C, 0x55, 0x2F, 0x6B, 0x9E, 0x1D, 0x7A, 0x10}};

} // namespace

HRESULT AacConfiguration::create(REFIID iid, void** object) noexcept {
    auto* configuration = new (std::nothrow) AacConfiguration;
    if (configuration == nullptr) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = configuration->QueryInterface(iid, object);
    configuration->Release();
    return result;
}

Reference<AacConfiguration> AacConfiguration::from(IUnknown* object) noexcept {
    Reference<AacConfiguration> configuration;
    void* own = nullptr;
    if (object != nullptr && SUCCEEDED(object->QueryInterface(iidOwnClass, &own))) {
        *configuration.receive() = static_cast<AacConfiguration*>(own);
    }
    return configuration;
}

HRESULT AacConfiguration::QueryInterface(REFIID iid, void** object) {
    if (object != nullptr && iid == iidOwnClass) {
        AddRef();
        *object = this;
        return S_OK;
    }
    return CountedObject::QueryInterface(iid, object);
}

HRESULT AacConfiguration::SetCodecConfigData(const SKvCodecConfigData* data) {
    if (data == nullptr) {
        return KV_E_INVALID_POINTER;
    }
    if (data->m_size != sizeof(SKvCodecConfigData)) {
        return KV_E_INVALID_PARAMETER;
    }
    if (data->m_configData == nullptr || data->m_configLength == 0) {
        return S_OK;
    }
    try {
        m_bytes.assign(data->m_configData, data->m_configData + data->m_configLength);
    } catch (const std::bad_alloc&) {
        return KV_E_OUT_OF_MEMORY;
    }
    return S_OK;
}

} // namespace KorvelVideo::Host
