#pragma once

// The reception of one source: its receiver, the streams it announced, and how it fares.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "EventQueue.h"
#include "KvStreamInformation.h"
#include "OutputWriter.h"
#include "ReceivedStream.h"
#include "ReceiverFactories.h"

namespace KorvelVideo::Host {

enum class ReceptionState {
    opening,    // or redirecting
    receiving,  //
    openFailed, // could not be opened or redirected
    stopped,
};

// Numbers the streams of a whole run from 1.
using StreamNumbers = std::atomic<std::uint32_t>;

// Opening, redirecting and stopping may take seconds, so each runs on a thread of its own, one at a time; an
// Event of kind progress tells when it is done.
class Reception final : public UncountedObject<IKvNetworkStreamDetectorCallback> {
public:
    struct Services {
        const ReceiverFactories& factories;
        EventQueue& events;
        StreamNumbers& streamNumbers;
        MediaPools& pools;
        OutputWriter* writer; // null: nothing is written
    };

    Reception(std::uint32_t number, ReceiverKind kind, ReceiverSettings settings, const Services& services)
        : m_number(number), m_kind(kind), m_settings(std::move(settings)), m_services(services) {}
    // Stops if need be.
    ~Reception();

    // Begin and return. Main thread, when no other of the three is running.
    void beginOpen();
    void beginRedirect(const std::string& url);
    void beginStop();
    // Waits for what was begun.
    void join();

    [[nodiscard]] ReceptionState state() const noexcept { return m_state; }
    [[nodiscard]] bool isBusy() const noexcept { return m_isBusy; }
    [[nodiscard]] std::uint32_t number() const noexcept { return m_number; }
    [[nodiscard]] const std::string& url() const noexcept { return m_settings.url; }
    // What the network client names as its receiver; null when there is none.
    [[nodiscard]] const void* receiverIdentity() const noexcept { return m_identity; }

    // Every stream so far, also those of before a redirect; they live as long as the reception.
    [[nodiscard]] std::vector<ReceivedStream*> streams() const;
    // A current stream lost its connection; all current streams have ended.
    [[nodiscard]] bool isLost() const;
    [[nodiscard]] bool hasEnded() const;
    [[nodiscard]] bool hasReceived() const;

    // The module's side: called on threads of the network client.
    IKvVideoCallback* OnVideoStreamDetected(IKvNetworkReceiverStreamInformation* information) override;
    IKvAudioCallback* OnAudioStreamDetected(IKvNetworkReceiverStreamInformation* information) override;

private:
    void begin(void (Reception::*task)());
    void open();
    void redirect();
    void stop();
    void fail(const std::string& what, HRESULT result);
    void report(const std::string& text);
    template <class Stream>
    Stream* addStream(IKvNetworkReceiverStreamInformation* information) noexcept;
    void createFile(ReceivedStream& stream);

    const std::uint32_t m_number;
    const ReceiverKind m_kind;
    ReceiverSettings m_settings;
    const Services m_services;
    std::atomic<ReceptionState> m_state{ReceptionState::opening};
    std::atomic<bool> m_isBusy{false};
    std::atomic<const void*> m_identity{nullptr};
    mutable std::mutex m_lock;
    std::vector<std::unique_ptr<ReceivedStream>> m_streams;
    Reference<IKvNetworkReceiverController> m_receiver;
    std::thread m_task;
};

} // namespace KorvelVideo::Host
