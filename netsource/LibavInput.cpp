#include "LibavInput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

namespace KorvelVideo::NetworkSource {

namespace {

using namespace MainConcept::NetworkStreaming;
using Clock = std::chrono::steady_clock;

// What a peer that does not take our good-bye may cost a stop.
constexpr std::chrono::milliseconds kClosePatience{30};
// More elementary streams than any sender has.
constexpr const char* kMostStreams = "32";

struct DictionaryDeleter {
    void operator()(AVDictionary* dictionary) const noexcept { av_dict_free(&dictionary); }
};

// The reader of a session description that lies in memory.
struct TextReader {
    std::string_view rest;

    static int read(void* opaque, std::uint8_t* buffer, int size) noexcept {
        auto& self = *static_cast<TextReader*>(opaque);
        const std::size_t taken = std::min(self.rest.size(), static_cast<std::size_t>(size));
        if (taken == 0) {
            return AVERROR_EOF;
        }
        std::memcpy(buffer, self.rest.data(), taken);
        self.rest.remove_prefix(taken);
        return static_cast<int>(taken);
    }
};

class TextIo {
public:
    explicit TextIo(std::string_view text) : m_reader{text} {
        constexpr int kBufferSize = 4096;
        auto* const buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
        m_io = avio_alloc_context(buffer, kBufferSize, 0, &m_reader, TextReader::read, nullptr, nullptr);
    }
    TextIo(const TextIo&) = delete;
    TextIo& operator=(const TextIo&) = delete;
    ~TextIo() {
        if (m_io != nullptr) {
            av_freep(&m_io->buffer);
            avio_context_free(&m_io);
        }
    }
    [[nodiscard]] AVIOContext* get() const noexcept { return m_io; }

private:
    TextReader m_reader;
    AVIOContext* m_io = nullptr;
};

ClientStatus statusOf(int error) noexcept {
    switch (error) {
    case AVERROR(EINVAL):
    case AVERROR_OPTION_NOT_FOUND:
        return keClientInvalidParameter;
    case AVERROR(ENOMEM):
        return keClientOutOfMemory;
    case AVERROR(ECONNREFUSED):
        return keClientConnectionRefused;
    case AVERROR(ETIMEDOUT):
        return keClientTimedOut;
    case AVERROR_PROTOCOL_NOT_FOUND:
    case AVERROR_DEMUXER_NOT_FOUND:
    case AVERROR(EPROTONOSUPPORT):
        return keClientNotSupported;
    case AVERROR_HTTP_UNAUTHORIZED:
    case AVERROR_HTTP_FORBIDDEN:
    case AVERROR(EACCES):
    case AVERROR(EPERM):
        return keClientAccessDenied;
    case AVERROR_HTTP_NOT_FOUND:
        return keClientNotFound;
    default:
        return keClientConnectionFailed;
    }
}

std::string errorText(int error) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(error, text.data(), text.size());
    return text.data();
}

} // namespace

void AvPacketDeleter::operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }

std::string withoutCredentials(std::string text) {
    std::size_t from = 0;
    while ((from = text.find("://", from)) != std::string::npos) {
        from += 3;
        const std::size_t end = std::min(text.find_first_of(" \t\r\n\"'", from), text.size());
        const std::size_t at = text.rfind('@', end);
        if (at != std::string::npos && at >= from && at < end) {
            text.replace(from, at - from, "***");
        }
    }
    return text;
}

void LibavInput::ContextDeleter::operator()(AVFormatContext* context) const noexcept {
    avformat_close_input(&context);
}

LibavInput::~LibavInput() {
    const LibavLogScope log(m_observations);
    m_stop = nullptr;
    m_stopped = m_timedOut = false;
    m_deadline = Clock::now() + kClosePatience;
    m_context.reset();
}

int LibavInput::interruptCallback(void* opaque) noexcept {
    return static_cast<LibavInput*>(opaque)->mustStop() ? 1 : 0;
}

bool LibavInput::mustStop() noexcept {
    m_timedOut = m_timedOut || Clock::now() >= m_deadline;
    m_stopped = m_stopped || (m_stop && m_stop());
    return m_stopped || m_timedOut || m_observations.descriptionTooLong ||
           m_observations.redirects > kMostRedirects;
}

ClientStatus LibavInput::open(const Request& request, TimePoint deadline, StopTest stop) {
    const LibavLogScope log(m_observations);
    m_deadline = deadline;
    m_stop = std::move(stop);

    const AVInputFormat* const format = av_find_input_format(request.format);
    AVFormatContext* context = format != nullptr ? avformat_alloc_context() : nullptr;
    if (context == nullptr) {
        return failed(format == nullptr ? AVERROR_DEMUXER_NOT_FOUND : AVERROR(ENOMEM));
    }
    context->interrupt_callback = {interruptCallback, this};
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", request.protocols, 0);
    av_dict_set(&options, "format_whitelist", request.format, 0);
    av_dict_set(&options, "max_streams", kMostStreams, 0);
    for (const auto& [name, value] : request.options) {
        av_dict_set(&options, name, value.c_str(), 0);
    }
    std::unique_ptr<TextIo> text;
    if (!request.description.empty()) {
        text = std::make_unique<TextIo>(request.description);
        context->pb = text->get();
    }
    // Frees the context when it fails.
    const int result = avformat_open_input(&context, request.url.c_str(), format, &options);
    const std::unique_ptr<AVDictionary, DictionaryDeleter> unusedOptions(options);
    m_context.reset(context);
    if (m_context && text) {
        m_context->pb = nullptr; // read to its end
    }
    m_deadline = TimePoint::max();
    return result < 0 ? failed(result) : keClientOk;
}

LibavInput::ReadResult LibavInput::read(AVPacket& packet, const StopTest& stop) {
    const LibavLogScope log(m_observations);
    m_stopped = false;
    m_stop = stop;
    for (;;) {
        const int result = av_read_frame(m_context.get(), &packet);
        if (result >= 0) {
            return ReadResult::packet;
        }
        if (m_stopped || mustStop()) {
            return ReadResult::stopped;
        }
        if (result == AVERROR(EAGAIN)) {
            continue; // each attempt waits by itself
        }
        static_cast<void>(failed(result));
        // A closed connection reads as an end of file too: only a good-bye, or a protocol whose end of stream
        // is a message of its own, is an end of the stream.
        const bool connectionBroke =
            m_context->pb != nullptr && m_context->pb->error < 0 && m_context->pb->error != AVERROR_EOF;
        const bool saidGoodBye = m_observations.byes > 0 || m_context->pb != nullptr;
        return result == AVERROR_EOF && !connectionBroke && saidGoodBye ? ReadResult::endOfStream
                                                                        : ReadResult::disconnected;
    }
}

ClientStatus LibavInput::failed(int error) {
    if (m_observations.descriptionTooLong) {
        m_failure = "the server's description is longer than 1 MiB";
        return keClientConnectionFailed;
    }
    if (m_observations.redirects > kMostRedirects) {
        m_failure = "the server redirects again and again";
        return keClientConnectionFailed;
    }
    if (m_stopped || m_timedOut) {
        m_failure = m_stopped ? "stopped" : "timed out";
        return m_stopped ? keClientDisconnected : keClientTimedOut;
    }
    m_failure = errorText(error);
    if (!m_observations.lastError.empty()) {
        m_failure += " (" + withoutCredentials(m_observations.lastError) + ")";
    }
    return statusOf(error);
}

} // namespace KorvelVideo::NetworkSource
