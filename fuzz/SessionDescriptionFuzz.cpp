// Session descriptions, as a file or a server gives them, up to the announcements. No socket is opened.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "LibavReception.h"
#include "Require.h"

using namespace KorvelVideo::NetworkSource;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    LibavInput::Request request;
    request.description.assign(data, data + size);
    request.format = "sdp";
    request.protocols = "";
    request.options = {{"sdp_flags", "custom_io"}, {"allowed_media_types", "video+audio"}};
    if (request.description.empty()) {
        return 0;
    }
    const auto never = [] { return false; };
    LibavReception reception;
    const auto now = std::chrono::steady_clock::now();
    if (reception.input().open(request, now + std::chrono::seconds(10), never) !=
        MainConcept::NetworkStreaming::keClientOk) {
        KV_REQUIRE(!reception.input().failure().empty());
        return 0;
    }
    const auto status = reception.describe(now, never);
    const std::size_t streams = reception.announcements().size();
    KV_REQUIRE(streams <= 32);
    KV_REQUIRE(status == MainConcept::NetworkStreaming::keClientOk || !reception.failure().empty());
    return 0;
}
