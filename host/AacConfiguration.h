#pragma once

// The host's class CLSID_KvAACCodecConfigDataAccess: the module makes one object for each AAC stream, gives
// it the stream's AudioSpecificConfig and attaches it to every buffer of the stream.

#include <cstdint>
#include <span>
#include <vector>

#include "ComObject.h"
#include "KvAudioInterfaces.h"

namespace KorvelVideo::Host {

class AacConfiguration final : public CountedObject<IKvAACCodecConfigDataAccess> {
public:
    // Makes an object and stores its interface `iid` with one reference.
    static HRESULT create(REFIID iid, void** object) noexcept;

    // The object behind an interface that the module attached; null when it is none of this class.
    static Reference<AacConfiguration> from(IUnknown* object) noexcept;

    HRESULT QueryInterface(REFIID iid, void** object) override;

    // Copies the bytes. The module calls it once, before the object is attached to anything.
    HRESULT SetCodecConfigData(const SKvCodecConfigData* data) override;

    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept { return m_bytes; }

private:
    AacConfiguration() noexcept : CountedObject(IID_IKvAACCodecConfigDataAccess) {}

    std::vector<std::uint8_t> m_bytes;
};

} // namespace KorvelVideo::Host
