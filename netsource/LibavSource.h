#pragma once

#include <memory>
#include <string>

#include "Source.h"

namespace KorvelVideo::NetworkSource {

// Makes the source for rtsp:// and rtmp:// URLs and session description texts. Null when the URL is none of
// them or the library is left out of this build; one log line then says which.
[[nodiscard]] std::shared_ptr<Source> makeLibavSource(const std::string& url);

} // namespace KorvelVideo::NetworkSource
