#include "LibavReception.h"

#include <algorithm>
#include <new>

#include "NetworkLog.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace KorvelVideo::NetworkSource {

namespace {

constexpr AVRational kStampUnit{1, 10'000'000};
constexpr int kTransportStreamClockBits = 33;
// Packets kept while describing; a sender that gives no configuration within them will not give one.
constexpr std::size_t kMostKeptBytes = std::size_t{16} << 20;
// How long a demuxer that finds its streams while reading may take for further ones, in the sender's data.
constexpr std::chrono::milliseconds kFurtherStreams{1000};

std::unique_ptr<StreamTranslator> makeTranslator(const AVCodecParameters& codec) {
    std::unique_ptr<StreamTranslator> translator;
    switch (codec.codec_id) {
    case AV_CODEC_ID_H264:
        translator = makeAvcTranslator();
        break;
    case AV_CODEC_ID_AAC:
        translator = makeAacTranslator(static_cast<std::uint32_t>(codec.sample_rate),
                                       static_cast<std::uint32_t>(codec.ch_layout.nb_channels));
        break;
    case AV_CODEC_ID_AAC_LATM:
        translator = makeLoasTranslator();
        break;
    default:
        return nullptr;
    }
    if (codec.extradata_size > 0) {
        translator->configure({codec.extradata, static_cast<std::size_t>(codec.extradata_size)});
    }
    return translator;
}

std::string describeCodec(const AVCodecParameters& codec) {
    const char* const media = av_get_media_type_string(codec.codec_type);
    return std::string(media != nullptr ? media : "unknown") + " stream (" +
           avcodec_get_name(codec.codec_id) + ")";
}

} // namespace

void LibavReception::takeNewStreams() {
    const AVFormatContext& context = m_input.context();
    while (m_streams.size() < context.nb_streams) {
        const AVStream& stream = *context.streams[m_streams.size()];
        const bool isContainer = context.pb != nullptr || stream.pts_wrap_bits == kTransportStreamClockBits;
        m_streams.push_back({nullptr, AV_CODEC_ID_NONE, std::nullopt, isContainer,
                             CounterUnwrapper(static_cast<unsigned>(stream.pts_wrap_bits))});
    }
    // RTP payloads are taken as they come: libavcodec's parser would gather each access unit once more,
    // however large a sender makes it, and hold it until the next one begins.
    if (!m_streams.empty() && std::none_of(m_streams.begin(), m_streams.end(),
                                           [](const Stream& stream) { return stream.inContainer; })) {
        m_input.context().flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    }
    for (std::size_t i = 0; i < m_streams.size(); ++i) {
        // In a transport stream the data may come before the program map says what they are.
        const AVCodecParameters& codec = *context.streams[i]->codecpar;
        if (m_streams[i].codec == AV_CODEC_ID_NONE && codec.codec_id != AV_CODEC_ID_NONE) {
            m_streams[i].codec = codec.codec_id;
            m_streams[i].translator = makeTranslator(codec);
        }
    }
}

bool LibavReception::complete() const {
    bool any = false;
    for (const Stream& stream : m_streams) {
        if (stream.translator) {
            any = true;
            if (!stream.translator->complete()) {
                return false;
            }
        }
    }
    return any;
}

// RTSP and descriptions know their streams from the start. A transport stream tells all of them in its first
// program map, but the codec of some only by their data; FLV finds streams one by one.
bool LibavReception::mayFindMore() const {
    const AVFormatContext& context = m_input.context();
    const bool findsStreams = (context.ctx_flags & AVFMTCTX_NOHEADER) != 0 && context.nb_programs == 0;
    const bool findsCodecs =
        context.nb_programs > 0 && std::any_of(m_streams.begin(), m_streams.end(), [](const Stream& stream) {
            return stream.codec == AV_CODEC_ID_NONE;
        });
    return findsStreams || findsCodecs;
}

bool LibavReception::nothingToReceive() const {
    return !mayFindMore() && std::none_of(m_streams.begin(), m_streams.end(),
                                          [](const Stream& stream) { return stream.translator != nullptr; });
}

ClientStatus LibavReception::describe(LibavInput::TimePoint deadline, const LibavInput::StopTest& stop) {
    using Clock = std::chrono::steady_clock;
    takeNewStreams();
    LibavInput::TimePoint enough = deadline;
    const auto stopOrEnough = [&] { return stop() || Clock::now() >= enough; };
    LibavInput::ReadResult result = LibavInput::ReadResult::packet;
    std::size_t keptBytes = 0;
    while (result == LibavInput::ReadResult::packet && keptBytes < kMostKeptBytes && !stopOrEnough()) {
        if ((complete() && !mayFindMore()) || nothingToReceive()) {
            break;
        }
        if (complete() && enough == deadline) {
            enough = std::min(deadline, Clock::now() + kFurtherStreams);
        }
        AvPacketPtr packet = newPacket();
        result = m_input.read(*packet, stopOrEnough);
        if (result != LibavInput::ReadResult::packet) {
            break;
        }
        m_gotPackets = true;
        takeNewStreams();
        if (const Stream& stream = m_streams[static_cast<std::size_t>(packet->stream_index)];
            stream.translator) {
            stream.translator->learn({packet->data, static_cast<std::size_t>(packet->size)});
        }
        keptBytes += static_cast<std::size_t>(packet->size) + sizeof(AVPacket);
        m_kept.push_back(std::move(packet));
    }
    return described(result, stop());
}

ClientStatus LibavReception::described(LibavInput::ReadResult result, bool stopped) {
    using namespace MainConcept::NetworkStreaming;
    if (stopped) {
        m_failure = "stopped";
        return keClientDisconnected;
    }
    if (nothingToReceive()) {
        m_failure = "the sender has no H.264 or AAC stream";
        return keClientNotSupported;
    }
    if (complete() || (m_gotPackets && !m_streams.empty())) {
        return keClientOk;
    }
    if (result == LibavInput::ReadResult::disconnected || result == LibavInput::ReadResult::endOfStream) {
        m_failure = "the sender ended before its streams were known";
        return keClientDisconnected;
    }
    m_failure = "no data came";
    return keClientTimedOut;
}

std::vector<ElementaryStream> LibavReception::announcements() {
    std::vector<ElementaryStream> announced;
    for (std::size_t i = 0; i < m_streams.size(); ++i) {
        const AVCodecParameters& codec = *m_input.context().streams[i]->codecpar;
        if (!m_streams[i].translator) {
            KV_NET_LOG(notice, "Left out, neither H.264 nor AAC: " + describeCodec(codec));
            continue;
        }
        if (!m_streams[i].translator->complete()) {
            KV_NET_LOG(questionable, "The sender gives no configuration of its " + describeCodec(codec));
        }
        announced.push_back(m_streams[i].translator->announcement());
    }
    return announced;
}

void LibavReception::attach(const std::vector<ElementaryStream>& announced) {
    m_announced = announced;
    m_taken.assign(announced.size(), false);
    takeNewStreams();
    attachNewStreams();
}

void LibavReception::attachNewStreams() {
    for (Stream& stream : m_streams) {
        if (!stream.translator || stream.announced) {
            continue;
        }
        const std::uint32_t type = stream.translator->announcement().streamType;
        for (std::size_t i = 0; i < m_announced.size(); ++i) {
            if (!m_taken[i] && m_announced[i].streamType == type) {
                m_taken[i] = true;
                stream.announced = i;
                if (!stream.translator->complete()) {
                    stream.translator->adopt(m_announced[i]);
                }
                break;
            }
        }
        if (!stream.announced) {
            stream.translator.reset(); // came after the announcements
        }
    }
}

MediaPacket LibavReception::mediaPacket(const AVPacket& packet) {
    const auto index = static_cast<std::size_t>(packet.stream_index);
    const AVRational timeBase = m_input.context().streams[index]->time_base;
    MediaPacket media;
    media.data = {packet.data, static_cast<std::size_t>(packet.size)};
    media.isFragment = !m_streams[index].inContainer;
    const std::int64_t time =
        m_streams[index].inContainer && packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    if (time != AV_NOPTS_VALUE) {
        media.time = av_rescale_q(m_streams[index].time.unwrap(time), timeBase, kStampUnit);
    }
    media.duration = packet.duration > 0 ? av_rescale_q(packet.duration, timeBase, kStampUnit) : 0;
    return media;
}

AvPacketPtr LibavReception::newPacket() const {
    AvPacketPtr packet(av_packet_alloc());
    if (!packet) {
        throw std::bad_alloc();
    }
    return packet;
}

void LibavReception::deliver(const AVPacket& packet, SourceSink& sink, SourceCounters& counters) {
    counters.packets.add(1);
    const std::uint64_t missed = m_input.observations().missed;
    counters.rtpLost.add(missed - m_missedCounted);
    m_missedCounted = missed;

    const Stream& stream = m_streams[static_cast<std::size_t>(packet.stream_index)];
    if (!stream.translator || packet.size <= 0) {
        return;
    }
    std::size_t newConfigurationSize = 0;
    const std::uint8_t* const newConfiguration =
        av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &newConfigurationSize);
    if (newConfiguration != nullptr) {
        stream.translator->configure({newConfiguration, newConfigurationSize});
    }
    if (stream.announced && stream.translator->deliver(mediaPacket(packet), *stream.announced, sink) > 0) {
        counters.damaged.add(1);
    }
}

LibavInput::ReadResult LibavReception::receive(SourceSink& sink, SourceCounters& counters,
                                               const LibavInput::StopTest& stop) {
    if (!m_kept.empty()) {
        m_packet = std::move(m_kept.front());
        m_kept.pop_front();
    } else {
        if (!m_packet) {
            m_packet = newPacket();
        }
        const LibavInput::ReadResult result = m_input.read(*m_packet, stop);
        if (result != LibavInput::ReadResult::packet) {
            return result;
        }
        m_gotPackets = true;
    }
    takeNewStreams();
    attachNewStreams();
    deliver(*m_packet, sink, counters);
    av_packet_unref(m_packet.get());
    return LibavInput::ReadResult::packet;
}

void LibavReception::flush(SourceSink& sink) {
    for (const Stream& stream : m_streams) {
        if (stream.translator && stream.announced) {
            stream.translator->flush(*stream.announced, sink);
        }
    }
}

} // namespace KorvelVideo::NetworkSource
