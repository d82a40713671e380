#pragma once

// A source of elementary streams over libavformat: RTSP, RTMP, and RTP by session description.
//
// Opening describes, starting receives:
// - rtsp:// DESCRIBE (and SETUP, given up at once) when opening, and a session of its own for each start, so
//   that local port and fallback set in between count and nothing is held at the server while the host takes
//   its time. Only when the server's description lacks a stream's configuration is the stream played for a
//   moment to find it.
// - rtmp:// connects and plays when opening, because nothing else tells the streams. What was read for that
// is
//   kept for the first start; from then on nothing is read, so that the connection holds the sender's data.
// - A session description tells its streams; where it lacks a configuration, packets are awaited for it.
//
// Video time stamps are decoding times where the protocol has them, else the sender's times, which
// StampSequence keeps from going back.

#include <memory>
#include <string>

#include "Source.h"

namespace KorvelVideo::NetworkSource {

// Makes the source for an rtsp:// or rtmp:// URL or the text of a session description. Null when the address
// is none of them, or when libavformat is left out of this build; one log line then says which.
[[nodiscard]] std::shared_ptr<Source> makeLibavSource(const std::string& url);

} // namespace KorvelVideo::NetworkSource
