#include "StreamTranslator.h"

#include <array>

#include "AacFraming.h"
#include "AvcFragments.h"

namespace KorvelVideo::NetworkSource {

namespace {

using namespace MainConcept::NetworkStreaming;

constexpr std::int64_t kUnitsPerSecond = 10'000'000;

std::int64_t frameDuration(const AacFormat& format) noexcept {
    return format.coreRate == 0 ? 0 : format.frameSamples * kUnitsPerSecond / format.coreRate;
}

bool deliverOne(Bytes unit, std::uint64_t timeStamp, std::size_t stream, SourceSink& sink) {
    const std::array<Bytes, 1> pieces{unit};
    return sink.deliverCopy(stream, pieces, timeStamp);
}

class AvcTranslator final : public StreamTranslator {
public:
    void configure(Bytes configuration) override {
        const AvcConfiguration record = readAvcConfiguration(configuration);
        m_lengthSize = record.lengthSize;
        for (const Bytes nal : record.parameterSets) {
            m_sets.keep(nal);
        }
    }

    void adopt(const ElementaryStream& announced) override {
        for (const Bytes nal : readAvcConfiguration(announced.codecConfig).parameterSets) {
            m_sets.keep(nal);
        }
    }

    void learn(Bytes packet) override { static_cast<void>(m_formatter.format(packet, m_lengthSize, m_sets)); }

    [[nodiscard]] bool complete() const override { return m_sets.complete(); }

    [[nodiscard]] ElementaryStream announcement() const override {
        ElementaryStream stream;
        stream.streamType = keStreamTypeH264;
        stream.mediaKind = keMediaVideo;
        stream.codecConfig = m_sets.annexB();
        return stream;
    }

    std::size_t deliver(const MediaPacket& packet, std::size_t stream, SourceSink& sink) override {
        if (packet.isFragment) {
            return m_fragments.write(packet.data, packet.time, m_sets, stream, sink);
        }
        const std::span<const Bytes> pieces = m_formatter.format(packet.data, m_lengthSize, m_sets);
        if (pieces.empty()) {
            return packet.data.size();
        }
        const std::uint64_t timeStamp = m_stamps.next(packet.time, packet.duration);
        return sink.deliverCopy(stream, pieces, timeStamp) ? 0 : packet.data.size();
    }

    void flush(std::size_t stream, SourceSink& sink) override { m_fragments.flush(stream, sink); }

private:
    ParameterSets m_sets;
    AccessUnitFormatter m_formatter;
    AvcFragmentWriter m_fragments;
    StampSequence m_stamps;
    unsigned m_lengthSize = 0;
};

class AacTranslator final : public StreamTranslator {
public:
    AacTranslator(std::uint32_t samplingRate, std::uint32_t channels) {
        m_format.samplingRate = samplingRate;
        m_format.channels = channels;
    }

    void configure(Bytes configuration) override {
        const std::optional<AacFormat> format = readAudioSpecificConfig(configuration);
        if (format) {
            const std::uint32_t givenChannels = m_format.channels;
            m_format = *format;
            m_format.channels = format->channels != 0 ? format->channels : givenChannels;
            m_config.assign(configuration.begin(), configuration.end());
        }
    }

    void adopt(const ElementaryStream& /*announced*/) override {} // what is delivered does not depend on it

    void learn(Bytes packet) override {
        if (m_config.empty()) {
            if (const std::optional<AdtsFrame> frame = readAdtsFrame(packet)) {
                m_inAdts = true;
                configure(frame->config);
            }
        }
    }

    [[nodiscard]] bool complete() const override { return !m_config.empty(); }

    [[nodiscard]] ElementaryStream announcement() const override {
        ElementaryStream stream;
        stream.streamType = keStreamTypeAac;
        stream.mediaKind = keMediaAudio;
        stream.audioSamplingRate = m_format.samplingRate;
        stream.audioChannels = m_format.channels;
        stream.codecConfig = m_config;
        return stream;
    }

    std::size_t deliver(const MediaPacket& packet, std::size_t stream, SourceSink& sink) override {
        learn(packet.data);
        const std::int64_t duration = packet.duration > 0 ? packet.duration : frameDuration(m_format);
        if (!m_inAdts) {
            return deliverOne(packet.data, m_stamps.next(packet.time, duration), stream, sink)
                       ? 0
                       : packet.data.size();
        }
        std::optional<std::int64_t> time = packet.time;
        std::size_t leftOut = 0;
        Bytes rest = packet.data;
        while (const std::optional<AdtsFrame> frame = readAdtsFrame(rest)) {
            if (frame->payload.empty() ||
                !deliverOne(frame->payload, m_stamps.next(time, frameDuration(m_format)), stream, sink)) {
                leftOut += frame->frameLength;
            }
            time.reset();
            rest = rest.subspan(frame->frameLength);
        }
        return leftOut + rest.size();
    }

private:
    AacFormat m_format;
    std::vector<std::uint8_t> m_config;
    StampSequence m_stamps;
    bool m_inAdts = false;
};

class LoasTranslator final : public StreamTranslator {
public:
    void configure(Bytes /*configuration*/) override {} // every frame carries it
    void adopt(const ElementaryStream& /*announced*/) override {}

    void learn(Bytes packet) override {
        Bytes rest = packet;
        while (const std::size_t length = loasFrameLength(rest)) {
            static_cast<void>(m_configurator.withConfiguration(rest.first(length)));
            rest = rest.subspan(length);
        }
    }

    [[nodiscard]] bool complete() const override { return !m_configurator.audioSpecificConfig().empty(); }

    [[nodiscard]] ElementaryStream announcement() const override {
        const AacFormat format =
            readAudioSpecificConfig(m_configurator.audioSpecificConfig()).value_or(AacFormat{});
        ElementaryStream stream;
        stream.streamType = keStreamTypeLatm;
        stream.mediaKind = keMediaAudio;
        stream.audioSamplingRate = format.samplingRate;
        stream.audioChannels = format.channels;
        stream.codecConfig = m_configurator.audioSpecificConfig();
        return stream;
    }

    std::size_t deliver(const MediaPacket& packet, std::size_t stream, SourceSink& sink) override {
        std::optional<std::int64_t> time = packet.time;
        std::size_t leftOut = 0;
        Bytes rest = packet.data;
        while (const std::size_t length = loasFrameLength(rest)) {
            const Bytes frame = m_configurator.withConfiguration(rest.first(length));
            const AacFormat format =
                readAudioSpecificConfig(m_configurator.audioSpecificConfig()).value_or(AacFormat{});
            if (frame.empty() ||
                !deliverOne(frame, m_stamps.next(time, frameDuration(format)), stream, sink)) {
                leftOut += length;
            }
            time.reset();
            rest = rest.subspan(length);
        }
        return leftOut + rest.size();
    }

private:
    LoasConfigurator m_configurator;
    StampSequence m_stamps;
};

} // namespace

std::unique_ptr<StreamTranslator> makeAvcTranslator() { return std::make_unique<AvcTranslator>(); }

std::unique_ptr<StreamTranslator> makeAacTranslator(std::uint32_t samplingRate, std::uint32_t channels) {
    return std::make_unique<AacTranslator>(samplingRate, channels);
}

std::unique_ptr<StreamTranslator> makeLoasTranslator() { return std::make_unique<LoasTranslator>(); }

} // namespace KorvelVideo::NetworkSource
