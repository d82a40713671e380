#include "LatmStreamNotifier.h"

#include <algorithm>
#include <cstring>

#include "BitReader.h"
#include "CodecConfiguration.h"
#include "LoasFrame.h"
#include "Logging.h"
#include "Raise.h"

namespace KorvelVideo::Network {

namespace {

using Piece = AccessUnit::value_type;

// Every frame starts from nothing.
const LatmConfigState& getDefaultState() noexcept {
    static const LatmConfigState state;
    return state;
}

// A piece beyond 31 bits of length is none to the reader, hence no LOAS frame, whose length has 13 bits.
BitReader readerOf(const Piece& piece) noexcept {
    return {piece.first, static_cast<std::int32_t>(piece.second)};
}

std::uint32_t measurePiece(const Piece& piece) {
    const BitReader reader = readerOf(piece);
    return static_cast<std::uint32_t>(isLoasFrame(reader)
                                          ? measureLoasFrame(reader, getDefaultState())
                                          : getTarventBufferSizeFromHeader(piece.first, piece.second));
}

// Copies the payload of the piece, never more than `room` bytes, and returns how many bytes those are.
std::uint32_t extractPiece(const Piece& piece, std::uint8_t* destination, std::uint32_t room) {
    const BitReader reader = readerOf(piece);
    if (isLoasFrame(reader)) {
        return parseLoasFrame(reader, destination, room, getDefaultState()).audioMuxElement.payloadByteCount;
    }
    const auto payloadSize =
        static_cast<std::uint32_t>(getTarventBufferSizeFromHeader(piece.first, piece.second));
    const std::uint32_t copied = std::min(payloadSize, room);
    if (copied != 0) {
        std::memcpy(destination, piece.first + (piece.second - payloadSize), copied);
    }
    return copied;
}

std::uint32_t getPayloadSize(const AccessUnit& accessUnit) {
    std::uint64_t byteCount = 0;
    for (const Piece& piece : accessUnit) {
        byteCount += measurePiece(piece);
    }
    return toBufferSize(byteCount);
}

void copyPayload(const AccessUnit& accessUnit, std::uint8_t* destination, std::uint32_t capacity) {
    std::uint32_t written = 0;
    for (const Piece& piece : accessUnit) {
        written += extractPiece(piece, destination + written, capacity - written);
    }
}

} // namespace

std::int32_t getTarventBufferSizeFromHeader(const std::uint8_t* data, std::uint32_t length) {
    std::uint32_t prefix = 0;
    while (prefix < length && data[prefix] == 255) {
        ++prefix;
    }
    if (prefix < length) {
        const std::uint64_t payloadSize = std::uint64_t{255} * prefix + data[prefix];
        if (prefix + 1 + payloadSize == length) {
            return static_cast<std::int32_t>(payloadSize);
        }
    }
    logText(kCategoryStream, kLevelError, KV_SITE, "Header size calculation for Tarvent is wrong.");
    return static_cast<std::int32_t>(length);
}

LatmStreamNotifier::LatmStreamNotifier(IKvAudioCallback* audioReceiver, const std::uint8_t* configData,
                                       std::uint32_t configLength)
    : m_audioReceiver(audioReceiver) {
    if (m_audioReceiver == nullptr) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    createCodecConfigDataAccess(configData, configLength, m_codecConfigDataAccess);
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "LatmStreamNotifier constructor.");
}

LatmStreamNotifier::~LatmStreamNotifier() {
    logText(kCategoryStream, kLevelLifetime, KV_SITE, "LatmStreamNotifier destructor.");
}

TKvSmartPtr<IKvAudioSamples> LatmStreamNotifier::getSamples(const AccessUnit& accessUnit) {
    const std::uint32_t bufferSizeToAskFor = getPayloadSize(accessUnit);
    TKvSmartPtr<IKvAudioSamples> audioSamples;
    KV_THROW_IF_FAILED(m_audioReceiver->ProvideAudioSamples(bufferSizeToAskFor, &audioSamples));
    if (!audioSamples) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    std::uint8_t* audioSamplesBuffer = nullptr;
    std::uint32_t audioSamplesBufferSize = 0;
    KV_THROW_IF_FAILED(audioSamples->GetBufferAndLength(&audioSamplesBuffer, &audioSamplesBufferSize));
    if (audioSamplesBufferSize < bufferSizeToAskFor) {
        KV_THROW(KV_E_BUFFER_SIZE_TOO_SMALL);
    }
    // A host that reports room but no address would have the copy write to address 0.
    if (audioSamplesBuffer == nullptr && bufferSizeToAskFor != 0) {
        KV_THROW(KV_E_INVALID_POINTER);
    }
    copyPayload(accessUnit, audioSamplesBuffer, audioSamplesBufferSize);
    return audioSamples;
}

void LatmStreamNotifier::notifyReception(const AccessUnit& accessUnit, std::uint64_t timeStamp) {
    try {
        const TKvSmartPtr<IKvAudioSamples> audioSamples = getSamples(accessUnit);
        static_cast<void>(audioSamples->SetTimeStampInfo(&timeStamp));
        static_cast<void>(
            audioSamples->AttachCustomObject(IID_IKvAACCodecConfigDataAccess, m_codecConfigDataAccess));
        static_cast<void>(audioSamples->SignalWriteCompletion());
        static_cast<void>(m_audioReceiver->DeliverAudioSamples(audioSamples));
    } catch (const CKvVaneException& exception) {
        logCaughtException(exception);
    }
}

HRESULT LatmStreamNotifier::notifyStatus(HRESULT status) { return m_audioReceiver->NotifyStatus(status); }

} // namespace KorvelVideo::Network
