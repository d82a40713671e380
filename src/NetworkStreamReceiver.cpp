#include "NetworkStreamReceiver.h"

#include <exception>

#include "CallbackScope.h"
#include "Logging.h"
#include "MonotonicClock.h"
#include "Raise.h"

namespace KorvelVideo::Network {

using MainConcept::NetworkStreaming::_tagConsumerInfo;
using MainConcept::NetworkStreaming::_tagNetSourceNotifyType;
using MainConcept::NetworkStreaming::SdkBufferAllocator;

// One buffer on its way from the client: given back unless it is kept.
class NetworkStreamReceiver::IncomingBuffer {
public:
    IncomingBuffer(SdkBufferAllocator& allocator, std::uint8_t* buffer) noexcept
        : m_allocator(allocator), m_buffer(buffer) {}
    IncomingBuffer(const IncomingBuffer&) = delete;
    IncomingBuffer& operator=(const IncomingBuffer&) = delete;
    ~IncomingBuffer() {
        if (m_buffer != nullptr) {
            m_allocator.ReleaseBuffer(m_buffer);
        }
    }
    void keep() noexcept { m_buffer = nullptr; }

private:
    SdkBufferAllocator& m_allocator;
    std::uint8_t* m_buffer;
};

namespace {

constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;
constexpr std::uint32_t kEndOfStreamQuietMilliseconds = 500;
constexpr std::uint32_t kEndOfStreamStackSize = 0x80000;
constexpr std::int64_t kSilenceNanoseconds = 3'000'000'000;

// Runs one step of the worker. An exception has nowhere to go on that thread and must not end the process: it
// is logged and costs its step only, so that the end of the stream is still reported.
template <class Step>
void runWorkerStep(Step step) {
    try {
        step();
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
    } catch (const CKvBaseException& exception) {
        logText(kCategoryFailure, kLevelError, KV_SITE, exception.getMessage());
    } catch (const std::exception& exception) {
        logText(kCategoryFailure, kLevelError, KV_SITE, exception.what());
    } catch (...) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "Unknown exception on the end of stream thread.");
    }
}

} // namespace

NetworkStreamReceiver::TakenSamples::~TakenSamples() {
    if (m_samples.capacity() == 0) {
        return;
    }
    for (const auto& piece : m_samples) {
        m_receiver.m_bufferAllocator->ReleaseBuffer(piece.first);
    }
    m_samples.clear();
    const std::lock_guard lock(m_receiver.m_samplesLock);
    if (m_receiver.m_spareSamples.capacity() < m_samples.capacity()) {
        m_receiver.m_spareSamples.swap(m_samples);
    }
}

void NetworkStreamReceiver::TakenSamples::take() {
    const std::lock_guard lock(m_receiver.m_samplesLock);
    takeLocked();
}

void NetworkStreamReceiver::TakenSamples::takeLocked() noexcept {
    m_samples.swap(m_receiver.m_samples);
    m_receiver.m_samples.swap(m_receiver.m_spareSamples);
    m_timeStamp = m_receiver.m_lastTimeStamp;
}

NetworkStreamReceiver::NetworkStreamReceiver(IAudioVideoReceptionNotifier* notifier)
    : m_notifier(notifier), m_bufferAllocator(CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr)) {
    if (m_notifier == nullptr || m_bufferAllocator == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "NetworkStreamReceiver constructor.");
}

NetworkStreamReceiver::~NetworkStreamReceiver() {
    runWorkerStep([this] { releasePendingSamples(); });
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "NetworkStreamReceiver destructor.");
    m_endOfStreamThread.reset();
    clearSamples();
}

void NetworkStreamReceiver::GetBuffer(_tagConsumerInfo* info) {
    if (info == nullptr) {
        return;
    }
    std::uint32_t capacity = 0;
    std::uint8_t* const buffer = m_bufferAllocator->AllocateBuffer(&capacity, nullptr);
    // No buffer is a failed allocation whatever its capacity: nothing could be written to it.
    if (buffer == nullptr) {
        logText(kCategoryFailure, kLevelError, KV_SITE, "Error allocating buffer from buffer allocator.");
        return;
    }
    info->buffer = buffer;
    AttachBuffer(info, 0, capacity);
}

void NetworkStreamReceiver::OnData(_tagConsumerInfo* info) {
    const CallbackScope scope;
    if (info == nullptr || info->buffer == nullptr) {
        logText(kCategoryStream, kLevelQuestionable, KV_SITE, "OnData called back with invalid pointer.");
        return;
    }
    IncomingBuffer incoming(*m_bufferAllocator, info->buffer);
    if (m_bufferAllocator->ConfirmBufferSize(info->buffer, info->dataLength) != 0) {
        logText(kCategoryStream, kLevelQuestionable, KV_SITE,
                "Could not confirm buffer size from buffer allocator.");
    }
    if (info->sampleValid == 0) {
        logText(kCategoryStream, kLevelQuestionable, KV_SITE, "OnData called back with invalid sample.");
        return;
    }
    if (info->discard != 0) {
        return;
    }
    gather(*info, incoming);
    if (m_endOfStreamReceived) {
        m_dataArrivedEvent.Set();
    }
}

// Adds the buffer to the pending access unit, or delivers that one and begins the next with it. The buffer is
// stored before the delivery, so that no failure of the host can lose it, and storing it is the first step,
// so that a lack of memory loses nothing else.
void NetworkStreamReceiver::gather(const _tagConsumerInfo& info, IncomingBuffer& incoming) {
    TakenSamples completed(*this);
    {
        const std::lock_guard lock(m_samplesLock);
        const bool isComplete = info.timeStamp != m_lastTimeStamp ||
                                info.streamType == MainConcept::NetworkStreaming::keStreamTypeTransportStream;
        AccessUnit& accessUnit = isComplete ? m_spareSamples : m_samples;
        accessUnit.emplace_back(info.buffer, info.dataLength);
        incoming.keep();
        if (!isComplete) {
            return;
        }
        completed.takeLocked();
        m_lastTimeStamp = info.timeStamp;
    }
    completed.deliver();
}

void NetworkStreamReceiver::OnNotify(_tagNetSourceNotifyType type, void* /*data*/) {
    const CallbackScope scope;
    const std::int64_t now = getMonotonicNanoseconds();
    switch (type) {
    case MainConcept::NetworkStreaming::keNotifySilence:
        notifySilence(now);
        break;
    case MainConcept::NetworkStreaming::keNotifyActivity:
        m_lastActivityTime = now;
        notifyFirstActivity();
        break;
    case MainConcept::NetworkStreaming::keNotifyDisconnected:
        static_cast<void>(m_notifier->notifyStatus(KV_E_DISCONNECTED));
        break;
    case MainConcept::NetworkStreaming::keNotifyNotice:
        static_cast<void>(m_notifier->notifyStatus(KV_S_STREAM_NOTICE));
        break;
    case MainConcept::NetworkStreaming::keNotifyEndOfStream:
        notifyEndOfStream();
        break;
    default:
        break;
    }
}

std::int32_t NetworkStreamReceiver::ResetAllocator() { return m_bufferAllocator->Reset(0); }

void NetworkStreamReceiver::forceEndOfStream() {
    logText(kCategoryStream, kLevelEvent, KV_SITE,
            ("Forcing end of stream for " + streamIdentifier()).c_str());
    {
        const std::lock_guard lock(m_threadLock);
        if (m_endOfStreamThread == nullptr) {
            startEndOfStreamThread();
        }
    }
    m_endOfStreamReceived = true;
}

void NetworkStreamReceiver::resetForStart() noexcept {
    m_endOfStreamReceived = false;
    m_activityNotified = false;
    m_stopCalled = false;
}

void NetworkStreamReceiver::setStopCalled() noexcept { m_stopCalled = true; }

void NetworkStreamReceiver::releasePendingSamples() {
    std::shared_ptr<CKvThread> thread;
    {
        const std::lock_guard lock(m_threadLock);
        // A host may stop from inside a callback that the worker made. The worker can neither wait for itself
        // nor hold its own thread object, whose end waits for it too.
        if (m_endOfStreamThread != nullptr && m_endOfStreamThread->getThreadId() != GetCurrentThreadId()) {
            thread = m_endOfStreamThread;
        }
    }
    if (thread != nullptr) {
        static_cast<void>(thread->Wait(kNoLimit));
    }
    clearSamples();
}

void NetworkStreamReceiver::clearSamples() { TakenSamples(*this).take(); }

std::string NetworkStreamReceiver::streamIdentifier() const {
    return std::to_string(reinterpret_cast<std::intptr_t>(m_notifier));
}

void NetworkStreamReceiver::notifyFirstActivity() {
    if (m_activityNotified.exchange(true)) {
        return;
    }
    try {
        static_cast<void>(m_notifier->notifyStatus(KV_S_STREAM_ACTIVE));
    } catch (...) {
        m_activityNotified = false; // a later notification may try again
        throw;
    }
}

void NetworkStreamReceiver::notifySilence(std::int64_t now) {
    if (now - m_lastActivityTime < kSilenceNanoseconds) {
        return;
    }
    logText(kCategoryStream, kLevelEvent, KV_SITE, ("Notified last frame for " + streamIdentifier()).c_str());
    {
        TakenSamples pending(*this);
        pending.take();
        pending.deliver();
    }
    releasePendingSamples();
    static_cast<void>(m_notifier->notifyStatus(KV_S_STREAM_SILENT));
    m_activityNotified = false;
}

void NetworkStreamReceiver::notifyEndOfStream() {
    if (m_endOfStreamReceived) {
        return;
    }
    logText(kCategoryStream, kLevelEvent, KV_SITE,
            ("Received first end of stream for " + streamIdentifier()).c_str());
    std::shared_ptr<CKvThread> earlier;
    {
        const std::lock_guard lock(m_threadLock);
        if (m_endOfStreamReceived) {
            return;
        }
        earlier = m_endOfStreamThread;
    }
    // It stays in its place meanwhile, so that a stop waits for it too.
    if (earlier != nullptr) {
        static_cast<void>(earlier->Wait(kNoLimit));
    }
    const std::lock_guard lock(m_threadLock);
    if (m_endOfStreamThread == earlier) { // else another thread was quicker
        startEndOfStreamThread();
    }
    m_endOfStreamReceived = true;
}

// With m_threadLock held. A thread that could not be started is not kept: nothing could wait for it.
void NetworkStreamReceiver::startEndOfStreamThread() {
    auto thread = std::make_shared<CKvThread>();
    thread->Create(endOfStreamThreadRoutine, this, false, kEndOfStreamStackSize, false);
    m_endOfStreamThread = std::move(thread);
}

unsigned NetworkStreamReceiver::endOfStreamThreadRoutine(void* context) {
    const CallbackScope scope;
    static_cast<NetworkStreamReceiver*>(context)->notifyLastFrameAndEndOfStream();
    return 0;
}

void NetworkStreamReceiver::notifyLastFrameAndEndOfStream() {
    runWorkerStep([this] { waitForQuiet(); });
    runWorkerStep([this] { notifyLastFrame(); });
    runWorkerStep([this] { static_cast<void>(m_notifier->notifyStatus(KV_S_STREAM_ENDED)); });
}

void NetworkStreamReceiver::waitForQuiet() {
    while (m_dataArrivedEvent.Wait(kEndOfStreamQuietMilliseconds)) {
        m_dataArrivedEvent.Reset();
    }
}

void NetworkStreamReceiver::notifyLastFrame() {
    TakenSamples last(*this);
    last.take();
    if (!last.empty()) {
        logText(kCategoryStream, kLevelEvent, KV_SITE,
                ("Notified last frame for " + streamIdentifier()).c_str());
        last.deliver();
    }
}

} // namespace KorvelVideo::Network
