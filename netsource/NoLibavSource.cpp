#include <algorithm>

#include "LibavSource.h"
#include "NetworkLog.h"

namespace KorvelVideo::NetworkSource {

// This build has no libavformat.
std::shared_ptr<Source> makeLibavSource(const std::string& url) {
    const std::string scheme = url.substr(0, std::min<std::size_t>(url.find(':'), 16));
    KV_NET_LOG(error, std::string("This build has no libavformat and receives udp:// and rtp:// only, not \"")
                          .append(scheme)
                          .append("\"."));
    return nullptr;
}

} // namespace KorvelVideo::NetworkSource
