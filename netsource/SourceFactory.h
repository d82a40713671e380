#pragma once

#include <memory>
#include <string>

#include "Source.h"

namespace KorvelVideo::NetworkSource {

// Makes the source for a URL or the text of a session description. Null when there is none for it; one log
// line then says why.
[[nodiscard]] std::shared_ptr<Source> makeSource(const std::string& url);

} // namespace KorvelVideo::NetworkSource
