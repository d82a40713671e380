#pragma once

#include <string>

namespace KorvelVideo::Network {

// What an RTP receiver opens: the text of the session description file (RFC 8866) that `url` names when it
// contains ".sdp", with every CR LF turned to LF; else `url` itself, empty when it is null. A file that
// cannot be read, is no regular file or is larger than 1 MiB is logged by name and raises
// KV_E_INVALID_PARAMETER.
[[nodiscard]] std::string loadSessionDescription(const char* url);

} // namespace KorvelVideo::Network
