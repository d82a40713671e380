#include "LibavSource.h"
#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

// This build has no libavformat.
std::shared_ptr<Source> makeLibavSource(const std::string& url) {
    const std::string scheme = url.substr(0, url.substr(0, 16).find(':'));
    KV_NET_LOG(error,
               "\"" + scheme.substr(0, 16) +
                   "\" is not supported: this build receives udp:// and rtp:// only, because it was made "
                   "without libavformat.");
    return nullptr;
}

} // namespace KorvelVideo::NetworkSource
