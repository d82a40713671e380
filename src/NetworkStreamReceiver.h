#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "AccessUnit.h"
#include "BriefLock.h"
#include "IAudioVideoReceptionNotifier.h"
#include "StreamingSdk.h"
#include "SynchronizationObjects.h"

namespace KorvelVideo::Network {

// The consumer of one elementary stream. It lends the network client buffers from an allocator of its own,
// gathers the buffers that carry one time stamp into an access unit, hands each complete one to the stream's
// notifier, and turns the client's notifications into status codes for the host. Data is never copied here:
// buffers are lent to the notifier in place and given back to the allocator, each exactly once, right after
// delivery.
//
// Threads: the client's threads call the consumer operations, the host's threads start and stop, and a worker
// delivers the last access unit when the stream has ended. A lock guards the pending access unit and its time
// stamp, and is never held while the notifier, the allocator or the client is called: whoever delivers first
// takes the pending access unit out.
class NetworkStreamReceiver : public MainConcept::NetworkStreaming::IMediaConsumer {
public:
    // `notifier` is not owned and must outlive the receiver. Raises KV_E_INVALID_POINTER when it is null or
    // no allocator can be created.
    explicit NetworkStreamReceiver(IAudioVideoReceptionNotifier* notifier);
    NetworkStreamReceiver(const NetworkStreamReceiver&) = delete;
    NetworkStreamReceiver& operator=(const NetworkStreamReceiver&) = delete;

    // Waits for the worker, gives back every pending buffer.
    ~NetworkStreamReceiver() override;

    void GetBuffer(MainConcept::NetworkStreaming::_tagConsumerInfo* info) override;
    void OnData(MainConcept::NetworkStreaming::_tagConsumerInfo* info) override;
    void OnNotify(MainConcept::NetworkStreaming::_tagNetSourceNotifyType type, void* data) override;
    std::int32_t ResetAllocator() override;

    // Finishes the stream as if the client had reported its end: unless a worker was started before, one
    // delivers the last access unit after 500 ms without data and reports the end.
    void forceEndOfStream();

    // Makes the receiver ready to report activity and the end of the stream anew.
    void resetForStart() noexcept;

    // Says that the client is about to be stopped.
    void setStopCalled() noexcept;

    // Waits without limit for the worker when there is one (unless called on the worker itself), then drops
    // what is pending.
    void releasePendingSamples();

    // Drops what is pending without waiting: gives every pending buffer back, in list order.
    void clearSamples();

protected:
    // The pending access unit, taken out of the list so that it can be delivered without the lock. Its
    // buffers go back to the allocator, in list order, when it ends.
    class TakenSamples {
    public:
        explicit TakenSamples(NetworkStreamReceiver& receiver) noexcept : m_receiver(receiver) {}
        TakenSamples(const TakenSamples&) = delete;
        TakenSamples& operator=(const TakenSamples&) = delete;
        ~TakenSamples();

        void take();
        // With m_samplesLock held.
        void takeLocked() noexcept;
        [[nodiscard]] bool empty() const noexcept { return m_samples.empty(); }
        void deliver() const { m_receiver.m_notifier->notifyReception(m_samples, m_timeStamp); }

    private:
        NetworkStreamReceiver& m_receiver;
        AccessUnit m_samples;
        std::uint64_t m_timeStamp = 0;
    };

    // The stream in log lines: the notifier's address as a signed decimal number.
    [[nodiscard]] std::string streamIdentifier() const;
    // Reports the first activity since construction, start, silence or an RTMP end of stream.
    void notifyFirstActivity();

private:
    class IncomingBuffer;

    void gather(const MainConcept::NetworkStreaming::_tagConsumerInfo& info, IncomingBuffer& incoming);
    void notifySilence(std::int64_t now);
    void notifyEndOfStream();
    void startEndOfStreamThread();
    void notifyLastFrameAndEndOfStream();
    void waitForQuiet();
    void notifyLastFrame();
    static unsigned endOfStreamThreadRoutine(void* context);

protected:
    AccessUnit m_samples;
    IAudioVideoReceptionNotifier* m_notifier;
    std::unique_ptr<MainConcept::NetworkStreaming::SdkBufferAllocator> m_bufferAllocator;
    std::uint64_t m_lastTimeStamp = 0;
    CKvEvent m_dataArrivedEvent{true};
    std::shared_ptr<CKvThread> m_endOfStreamThread;
    std::atomic<bool> m_endOfStreamReceived{false};
    std::atomic<bool> m_activityNotified{false};
    std::atomic<bool> m_stopCalled{true};
    std::atomic<std::int64_t> m_lastActivityTime{0};

private:
    AccessUnit m_spareSamples; // empty; keeps the room of an access unit delivered before
    BriefLock m_samplesLock;   // guards m_samples, m_spareSamples and m_lastTimeStamp
    std::mutex m_threadLock;   // guards m_endOfStreamThread
};

} // namespace KorvelVideo::Network
