#pragma once

#include <cstdint>

#include "KvAudioInterfaces.h"
#include "TKvSmartPtr.h"

namespace KorvelVideo::Network {

// Has the host's class make the object that carries a stream's codec configuration, stores it in
// `codecConfigDataAccess`, which must be empty, and gives it `configLength` bytes at `configData` (null when
// there are none), which it copies during the call. COM must be usable on the calling thread. Throws
// CKvSmartPointerException when the object cannot be created.
void createCodecConfigDataAccess(const std::uint8_t* configData, std::uint32_t configLength,
                                 TKvSmartPtr<IKvAACCodecConfigDataAccess>& codecConfigDataAccess);

} // namespace KorvelVideo::Network
