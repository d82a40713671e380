#include "CodecConfiguration.h"

namespace KorvelVideo::Network {

void createCodecConfigDataAccess(const std::uint8_t* configData, std::uint32_t configLength,
                                 TKvSmartPtr<IKvAACCodecConfigDataAccess>& codecConfigDataAccess) {
    // The smart pointer itself says whether there is an object.
    static_cast<void>(CoCreateInstance(CLSID_KvAACCodecConfigDataAccess, nullptr, CLSCTX_INPROC_SERVER,
                                       IID_IKvAACCodecConfigDataAccess,
                                       reinterpret_cast<void**>(&codecConfigDataAccess)));
    const SKvCodecConfigData data{sizeof(SKvCodecConfigData), configLength, configData};
    static_cast<void>(codecConfigDataAccess->SetCodecConfigData(&data));
}

} // namespace KorvelVideo::Network
