#include "SessionDescription.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>

#include "Logging.h"
#include "Raise.h"

namespace KorvelVideo::Network {

namespace {

// A description of thousands of streams is far smaller.
constexpr std::size_t kLargestDescription = std::size_t{1} << 20;

// The file's bytes, or an empty text with the reason why there are none.
std::string readFile(const std::filesystem::path& path, const char*& reason) {
    std::error_code error;
    // Also keeps a pipe from holding the host up for ever.
    if (!std::filesystem::is_regular_file(path, error)) {
        reason = error && error != std::errc::no_such_file_or_directory ? "cannot be opened"
                 : std::filesystem::exists(path, error)                 ? "is no regular file"
                                                                        : "does not exist";
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        reason = "cannot be opened";
        return {};
    }
    // One byte more than is allowed tells a file that is too large, whatever it says of its size.
    std::string text(kLargestDescription + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    if (file.bad()) {
        reason = "cannot be read";
    } else if (text.size() > kLargestDescription) {
        reason = "is larger than 1 MiB";
    }
    return text;
}

void turnLineEnds(std::string& text) {
    std::size_t end = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') {
            text[end++] = text[i];
        }
    }
    text.resize(end);
}

std::string loadFile(const char* path) {
    const char* reason = nullptr;
    std::string text;
    try {
        text = readFile(path, reason);
    } catch (const std::system_error&) { // a name that is no text on this system
        reason = "cannot be opened";
    }
    if (reason != nullptr) {
        logText(kCategoryFailure, kLevelError, KV_SITE,
                ("Session description file \"" + std::string(path) + "\" " + reason + ".").c_str());
        KV_THROW(KV_E_INVALID_PARAMETER);
    }
    turnLineEnds(text);
    text.shrink_to_fit();
    return text;
}

} // namespace

std::string loadSessionDescription(const char* url) {
    try {
        if (url == nullptr) {
            return {};
        }
        return std::string_view(url).find(".sdp") == std::string_view::npos ? std::string(url)
                                                                            : loadFile(url);
    } catch (const std::bad_alloc&) {
        KV_THROW(KV_E_OUT_OF_MEMORY);
    }
}

} // namespace KorvelVideo::Network
