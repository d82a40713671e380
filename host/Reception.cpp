#include "Reception.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "KvVaneException.h"
#include "StatusNames.h"

namespace KorvelVideo::Host {

namespace {

Framing framingOf(const StreamDescription& description) noexcept {
    switch (description.type) {
    case keKvStreamTypeH264:
        return Framing::annexB;
    case keKvStreamTypeAac:
        return Framing::adts;
    case keKvStreamTypeTransportStream:
        break;
    }
    return Framing::none;
}

} // namespace

Reception::~Reception() {
    join();
    if (m_receiver) {
        stop();
    }
}

void Reception::beginOpen() { begin(&Reception::open); }

void Reception::beginRedirect(const std::string& url) {
    join();
    m_settings.url = url;
    begin(&Reception::redirect);
}

void Reception::beginStop() { begin(&Reception::stop); }

void Reception::join() {
    if (m_task.joinable()) {
        m_task.join();
    }
}

void Reception::begin(void (Reception::*task)()) {
    join();
    m_isBusy = true;
    m_task = std::thread([this, task] {
        (this->*task)();
        m_isBusy = false;
        m_services.events.push({Event::Kind::progress, Clock::now(), nullptr, S_OK, {}});
    });
}

void Reception::open() {
    const HRESULT result = m_services.factories.create(m_kind, m_settings, *this, m_receiver);
    if (FAILED(result)) {
        fail("cannot open", result);
        return;
    }
    // The client knows its receiver by the address of the object, which is its identity.
    Reference<IUnknown> identity;
    if (SUCCEEDED(m_receiver->QueryInterface(IID_IUnknown, identity.receiveVoid()))) {
        m_identity = identity.get();
    }
    if (const HRESULT started = m_receiver->Start(); FAILED(started)) {
        fail("cannot start", started);
        return;
    }
    m_state = ReceptionState::receiving;
}

void Reception::redirect() {
    for (ReceivedStream* stream : streams()) {
        stream->retire();
    }
    m_state = ReceptionState::opening;
    HRESULT result = S_OK;
    try {
        result = m_receiver->Redirect(m_settings.url.c_str());
    } catch (const CKvVaneException& exception) {
        result = exception.m_result;
    } catch (const std::exception& exception) {
        report(exception.what());
        result = E_FAIL;
    }
    if (FAILED(result)) {
        fail("cannot redirect to", result);
        return;
    }
    m_state = ReceptionState::receiving;
}

void Reception::stop() {
    if (m_receiver) {
        if (const HRESULT result = m_receiver->Stop(); FAILED(result)) {
            report("the receiver did not stop cleanly: " + statusName(result));
        }
        m_identity = nullptr;
        m_receiver.reset();
    }
    if (m_state != ReceptionState::openFailed) {
        m_state = ReceptionState::stopped;
    }
}

void Reception::fail(const std::string& what, HRESULT result) {
    std::string text = what + " " + withoutPassword(m_settings.url) + ": ";
    if (const std::string_view words = statusWords(result); !words.empty()) {
        text += std::string(words) + " (" + statusName(result) + ")";
    } else {
        text += statusName(result);
    }
    report(text);
    m_state = ReceptionState::openFailed;
}

void Reception::report(const std::string& text) {
    m_services.events.push({Event::Kind::message, Clock::now(), nullptr, S_OK, text});
}

std::vector<ReceivedStream*> Reception::streams() const {
    const std::lock_guard lock(m_lock);
    std::vector<ReceivedStream*> streams;
    streams.reserve(m_streams.size());
    for (const auto& stream : m_streams) {
        streams.push_back(stream.get());
    }
    return streams;
}

bool Reception::isLost() const {
    const std::vector<ReceivedStream*> all = streams();
    return std::any_of(all.begin(), all.end(),
                       [](const auto* stream) { return stream->isLost() && !stream->isRetired(); });
}

bool Reception::hasEnded() const {
    const std::vector<ReceivedStream*> all = streams();
    const auto isCurrent = [](const auto* stream) { return !stream->isRetired(); };
    return std::any_of(all.begin(), all.end(), isCurrent) &&
           std::all_of(all.begin(), all.end(),
                       [](const auto* stream) { return stream->isRetired() || stream->hasEnded(); });
}

bool Reception::hasReceived() const {
    const std::vector<ReceivedStream*> all = streams();
    return std::any_of(all.begin(), all.end(), [](const auto* stream) { return stream->counts().units > 0; });
}

IKvVideoCallback* Reception::OnVideoStreamDetected(IKvNetworkReceiverStreamInformation* information) {
    return addStream<VideoStream>(information);
}

IKvAudioCallback* Reception::OnAudioStreamDetected(IKvNetworkReceiverStreamInformation* information) {
    return addStream<AudioStream>(information);
}

// Without memory the stream is refused.
template <class Stream>
Stream* Reception::addStream(IKvNetworkReceiverStreamInformation* information) noexcept {
    if (information == nullptr) {
        return nullptr;
    }
    try {
        auto stream = std::make_unique<Stream>(++m_services.streamNumbers, m_number, describe(*information),
                                               m_services.events, m_services.pools, m_services.writer);
        Stream* sink = stream.get();
        createFile(*stream);
        {
            const std::lock_guard lock(m_lock);
            m_streams.push_back(std::move(stream));
        }
        m_services.events.push({Event::Kind::announced, Clock::now(), sink, S_OK, {}});
        return sink;
    } catch (const std::exception& exception) {
        report(exception.what());
        return nullptr;
    }
}

// A stream whose file cannot be created is received all the same.
void Reception::createFile(ReceivedStream& stream) {
    if (m_services.writer == nullptr) {
        return;
    }
    try {
        stream.setFile(&m_services.writer->create("stream" + std::to_string(stream.number()),
                                                  fileExtension(stream.description()),
                                                  framingOf(stream.description())));
    } catch (const std::system_error& error) {
        m_services.writer->setFailed();
        report(error.what());
    }
}

} // namespace KorvelVideo::Host
