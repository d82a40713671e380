#include "SourceFactory.h"

#include "DatagramAddress.h"
#include "DatagramSource.h"
#include "LibavSource.h"

namespace KorvelVideo::NetworkSource {

std::shared_ptr<Source> makeSource(const std::string& url) {
    if (isDatagramUrl(url)) {
        return std::make_shared<DatagramSource>(url);
    }
    return makeLibavSource(url);
}

} // namespace KorvelVideo::NetworkSource
