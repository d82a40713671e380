#pragma once

#include <memory>
#include <vector>

#include "CallGate.h"
#include "ConsumerTable.h"
#include "NotificationRule.h"
#include "Source.h"

namespace KorvelVideo::NetworkSource {

// Delivers what a source brings to the consumers, and tells them of activity, silence and the end. One for
// each round of play.
class ConsumerSink final : public SourceSink {
public:
    using Clock = Source::TimePoint (*)();

    ConsumerSink(std::shared_ptr<ConsumerTable> consumers, Clock clock);

    [[nodiscard]] std::span<std::uint8_t> borrow(std::size_t stream) override;
    void deliver(std::size_t stream, std::uint8_t* buffer, std::uint32_t length,
                 std::uint64_t timeStamp) override;
    void giveBack(std::size_t stream, std::uint8_t* buffer) override;
    bool deliverCopy(std::size_t stream, std::span<const std::span<const std::uint8_t>> pieces,
                     std::uint64_t timeStamp) override;
    void idle() override;
    void end(SourceEnd reason) override;

    // From here on every operation does nothing. Waits for a call in progress on another thread.
    void close() noexcept;

private:
    struct Stream {
        ConsumerEntry* entry;
        NotificationRule rule;
    };
    struct LentBuffer {
        std::span<std::uint8_t> memory;
        std::uint32_t length = 0;
    };

    [[nodiscard]] ConsumerEntry* takerOf(std::size_t stream) const noexcept;
    void notify(ConsumerEntry& entry, MainConcept::NetworkStreaming::_tagNetSourceNotifyType type) noexcept;
    void tellActivity(Stream& stream);
    void lookForSilence(Source::TimePoint now);
    void hand(ConsumerEntry& entry, std::uint8_t* buffer, std::uint32_t length, std::uint64_t timeStamp,
              bool discard) noexcept;

    const std::shared_ptr<ConsumerTable> m_consumers; // held for m_streams
    const Clock m_clock;
    CallGate m_gate;
    std::vector<Stream> m_streams;
    Source::TimePoint m_silenceLooked{};
    std::vector<LentBuffer> m_unit; // the buffers of one access unit; keeps its memory
};

} // namespace KorvelVideo::NetworkSource
