#include "LibavLog.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <strings.h>

extern "C" {
#include <libavutil/log.h>
}

namespace KorvelVideo::NetworkSource {

namespace {

thread_local LibavObservations* observer = nullptr;

// A line that libavformat logs and that matters here, by its format string. The tests notice when one of
// them changes; then only the limit that hangs on it is lost, and the time limit of opening holds.
bool isLine(const char* format, const char* known) noexcept { return std::strcmp(format, known) == 0; }

void observeHeaderLine(LibavObservations& observations, const char* line) noexcept {
    constexpr const char* kName = "Content-Length:";
    if (line != nullptr && strncasecmp(line, kName, std::strlen(kName)) == 0) {
        const long long length = std::strtoll(line + std::strlen(kName), nullptr, 10);
        if (length > static_cast<long long>(kLongestDescription)) {
            observations.descriptionTooLong = true;
        }
    }
}

void keepError(LibavObservations& observations, const char* format, std::va_list arguments) {
    std::array<char, 256> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text[std::strcspn(text.data(), "\r\n")] = '\0';
    if (text[0] != '\0') {
        observations.lastError = text.data();
    }
}

void observe(void* context, int level, const char* format, std::va_list arguments) noexcept {
    if (observer == nullptr) {
        av_log_default_callback(context, level, format, arguments);
        return;
    }
    if (level == AV_LOG_TRACE && isLine(format, "line='%s'\n")) {
        observeHeaderLine(*observer, va_arg(arguments, const char*));
    } else if (level == AV_LOG_DEBUG && std::strncmp(format, "Received BYE", 12) == 0) {
        ++observer->byes;
    } else if (level == AV_LOG_INFO && std::strstr(format, "Redirecting to") != nullptr) {
        ++observer->redirects;
    } else if (level == AV_LOG_WARNING && isLine(format, "RTP: missed %d packets\n")) {
        const int missed = va_arg(arguments, int);
        observer->missed += missed > 0 ? static_cast<std::uint64_t>(missed) : 0;
    } else if (level <= AV_LOG_ERROR) {
        try {
            keepError(*observer, format, arguments);
        } catch (const std::bad_alloc&) {
            observer->lastError.clear();
        }
    }
}

std::mutex redirectionMutex;
unsigned redirections = 0;

} // namespace

LibavLogScope::LibavLogScope(LibavObservations& observations) noexcept : m_outer(observer) {
    observer = &observations;
}

LibavLogScope::~LibavLogScope() { observer = m_outer; }

LibavLogRedirection::LibavLogRedirection() {
    const std::lock_guard lock(redirectionMutex);
    if (redirections++ == 0) {
        av_log_set_callback(observe);
    }
}

LibavLogRedirection::~LibavLogRedirection() {
    const std::lock_guard lock(redirectionMutex);
    if (--redirections == 0) {
        av_log_set_callback(av_log_default_callback);
    }
}

} // namespace KorvelVideo::NetworkSource
