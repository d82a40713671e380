#pragma once

// The streaming SDK: the network client that the module drives, the consumers and creator that the module
// gives it, and the records that pass between them. On Windows this is a closed library beside the module;
// elsewhere, and wherever it is not at hand, netsource/ stands in its place.
//
// Slot positions are those of a compiler whose virtual destructor takes one slot. Reserved slots keep a
// position and are never called by the module.

#include <cstddef>
#include <cstdint>

namespace MainConcept::NetworkStreaming {

// Status of a client operation. Those that the client in netsource/ gives; others exist.
enum ClientStatus : std::uint32_t {
    keClientOk = 0,
    keClientInvalidParameter = 2,
    keClientOutOfMemory = 4,
    keClientConnectionRefused = 7,
    keClientConnectionFailed = 8,
    keClientTimedOut = 9,
    keClientUnknownHost = 10,
    keClientNotSupported = 12,
    keClientAccessDenied = 13,
    keClientNotFound = 15,
    keClientDisconnected = 25,
};

// Status of StartSocketService and StopSocketService that means success.
inline constexpr std::int32_t kSocketServiceOk = 11;

enum StreamTypeCode : std::uint32_t {
    keStreamTypeTransportStream = 33,
    keStreamTypeH264 = 96,
    keStreamTypeAac = 99,
    keStreamTypeLatm = 100, // AAC in LOAS, or behind a length prefix
};

enum MediaKind : std::uint32_t { keMediaAudio = 0, keMediaVideo = 1 };

// What a client tells a consumer.
enum _tagNetSourceNotifyType : std::int32_t {
    keNotifySilence = 0, // no data came for a while
    keNotifyDisconnected = 3,
    keNotifyNotice = 5,
    keNotifyEndOfStream = 6,
    keNotifyActivity = 10, // data comes; sent with the first data, then about once a second
};

// What SetParameter sets.
enum _tagMCNetClientParamType : std::int32_t {
    keParameterOption = 3,               // 4 bytes: an option of the protocol
    keParameterLocalPort = 9,            // 2 bytes: local receive port
    keParameterInterleavedFallback = 33, // 4 bytes: 1 lets RTSP fall back to TCP
};

// One received buffer. The client owns the record; the buffer belongs to the consumer's allocator.
struct _tagConsumerInfo {
    std::uint8_t sampleValid; // nonzero: the buffer holds a usable sample
    std::uint8_t reserved1[15];
    std::uint8_t* buffer;     // written by GetBuffer, read by OnData
    std::uint32_t dataOffset; // written by AttachBuffer of netsource/; the module does not use it
    std::uint32_t capacity;   // likewise
    std::uint8_t reserved32[4];
    std::uint32_t dataLength; // bytes of data in the buffer
    std::uint64_t timeStamp;  // in the client's units (100 ns from the client in netsource/)
    std::uint8_t reserved48[8];
    std::uint32_t streamType; // StreamTypeCode
    std::uint8_t reserved60[28];
    std::uint8_t discard; // nonzero: drop the buffer
    std::uint8_t reserved89[7];
};
static_assert(offsetof(_tagConsumerInfo, sampleValid) == 0);
static_assert(offsetof(_tagConsumerInfo, buffer) == 16);
static_assert(offsetof(_tagConsumerInfo, dataLength) == 36);
static_assert(offsetof(_tagConsumerInfo, timeStamp) == 40);
static_assert(offsetof(_tagConsumerInfo, streamType) == 56);
static_assert(offsetof(_tagConsumerInfo, discard) == 88);

// The announcement of one elementary stream; valid during the call, with the bytes it points to.
struct _tagMCNetStreamMediaInfo {
    std::uint32_t streamType; // StreamTypeCode
    std::uint8_t reserved4[8];
    std::uint32_t audioChannels; // audio: passed to the host as its second value
    std::uint8_t reserved16[8];
    std::uint32_t audioSamplingRate; // audio: passed to the host as its first value
    std::uint8_t reserved28[4];
    // Codec configuration, may be null. H.264: a 4-byte start code and the sequence parameter set NAL unit,
    // further NAL units may follow. AAC: AudioSpecificConfig.
    std::uint8_t* codecConfig;
    std::uint32_t codecConfigLength;
    std::uint8_t reserved44[20];
    std::uint32_t mediaKind; // MediaKind
    std::uint8_t reserved68[4];
};
static_assert(offsetof(_tagMCNetStreamMediaInfo, streamType) == 0);
static_assert(offsetof(_tagMCNetStreamMediaInfo, audioChannels) == 12);
static_assert(offsetof(_tagMCNetStreamMediaInfo, audioSamplingRate) == 24);
static_assert(offsetof(_tagMCNetStreamMediaInfo, codecConfig) == 32);
static_assert(offsetof(_tagMCNetStreamMediaInfo, codecConfigLength) == 40);
static_assert(offsetof(_tagMCNetStreamMediaInfo, mediaKind) == 64);

// Given to CreateNetworkClient: the receiver's address and zeros.
struct SdkClientSettings {
    void* receiver;
    std::uint8_t reserved8[216];
};
static_assert(offsetof(SdkClientSettings, receiver) == 0);
static_assert(sizeof(SdkClientSettings) == 224);

struct IMCPlaylistItemQualitySelector;

// The consumer of one elementary stream. The client calls it on its own threads, one call at a time for each
// of GetBuffer and OnData: it asks for a buffer, fills it and hands it back.
class IMediaConsumer {
public:
    virtual ~IMediaConsumer() = default;
    // Stores a buffer in the record and attaches its capacity, or leaves the record untouched when there is
    // none.
    virtual void GetBuffer(_tagConsumerInfo* info) = 0;
    // Takes the filled buffer.
    virtual void OnData(_tagConsumerInfo* info) = 0;
    virtual void OnNotify(_tagNetSourceNotifyType type, void* data) = 0;
    virtual std::int32_t ResetAllocator() = 0;
};

// Asked for a consumer for every elementary stream that a client finds, on the client's thread. The consumer
// stays owned by the creator; null leaves the stream out.
class INetStreamCreator {
public:
    virtual ~INetStreamCreator() = default;
    virtual IMediaConsumer* OnCreateConsumerForNetStream(_tagMCNetStreamMediaInfo* mediaInfo,
                                                         IMCPlaylistItemQualitySelector* qualitySelector,
                                                         std::uint32_t value) = 0;
    virtual void ReservedSlot2() = 0;
    virtual void ReservedSlot3() = 0;
};

// Lends the buffers of one consumer. Owned by whoever created it, ended by delete.
class SdkBufferAllocator {
public:
    virtual ~SdkBufferAllocator() = default;
    virtual void ReservedSlot1() = 0;
    virtual void ReservedSlot2() = 0;
    virtual std::int32_t Reset(std::uint32_t value) = 0; // value is 0
    virtual void ReservedSlot4() = 0;
    virtual void ReservedSlot5() = 0;
    virtual void ReservedSlot6() = 0;
    virtual void ReservedSlot7() = 0;
    // Lends a buffer and stores its capacity in bytes; null when there is none left. `reserved` is null.
    virtual std::uint8_t* AllocateBuffer(std::uint32_t* capacity, void* reserved) = 0;
    // Says how many bytes of a lent buffer hold data; 0 on success.
    virtual std::int32_t ConfirmBufferSize(std::uint8_t* buffer, std::uint32_t dataLength) = 0;
    // Gives a lent buffer back.
    virtual void ReleaseBuffer(std::uint8_t* buffer) = 0;
};

// One network source. The module calls one operation at a time.
class SdkNetworkClient {
public:
    virtual void ReservedSlot0() = 0;
    virtual void ReservedSlot1() = 0;
    // Drops one reference and returns how many remain.
    virtual std::uint32_t Release() = 0;
    virtual void ReservedSlot3() = 0;
    // Opens the source and announces its streams. `networkInterfaceCard` may be null. Returns a ClientStatus,
    // as all below do.
    virtual std::uint32_t Init(const char* url, const char* networkInterfaceCard) = 0;
    // Begins delivery to the enabled consumers. The module passes 0.0, -1.0 and 1.0.
    virtual std::uint32_t Play(double start, double end, double speed) = 0;
    virtual void ReservedSlot6() = 0;
    // Ends delivery.
    virtual std::uint32_t Stop() = 0;
    virtual std::uint32_t SetParameter(_tagMCNetClientParamType parameterType, const void* value,
                                       std::int32_t valueSize) = 0;
    virtual void ReservedSlot9() = 0;
    // Enables delivery to one consumer. The module passes 0, the address of a one-byte true, and 1.
    virtual std::uint32_t EnableConsumer(IMediaConsumer* consumer, std::int32_t first,
                                         const std::uint8_t* enabled, std::int32_t last) = 0;
    virtual void ReservedSlot11() = 0;
    virtual void ReservedSlot12() = 0;
    // Closes the source. Must come before the last Release.
    virtual std::uint32_t Shutdown() = 0;

protected:
    ~SdkNetworkClient() = default;
};

} // namespace MainConcept::NetworkStreaming

// The entry points. On Windows they are ordinals of two libraries: 11 and 12 of mc_net_tools.dll, 9, 10 and 3
// of mc_net_source.dll.
extern "C" {

// Start and stop the socket layer, counted; kSocketServiceOk is success.
std::int32_t StartSocketService();
std::int32_t StopSocketService();

// Makes a client with one reference for the caller that asks `creator` for the consumer of every stream it
// finds; null on failure. The creator must outlive the client.
MainConcept::NetworkStreaming::SdkNetworkClient*
CreateNetworkClient(MainConcept::NetworkStreaming::INetStreamCreator* creator,
                    const MainConcept::NetworkStreaming::SdkClientSettings* settings);

// Makes a buffer allocator, owned by the caller; null on failure. The module passes 2, 8, 1,048,576, 65,536,
// 1 and null: buffers of 65,536 bytes, growing from 8. In netsource/ it grows by `count` buffers at a time
// and lends up to 16 times `limit` bytes, so that an access unit may be far larger than `limit`; `kind` and
// `reserved` have no effect.
MainConcept::NetworkStreaming::SdkBufferAllocator*
CreateBufferAllocator(std::uint32_t kind, std::uint32_t count, std::uint32_t limit, std::uint32_t bufferSize,
                      std::uint32_t alignment, void* reserved);

// Attaches the buffer that GetBuffer stored in the record: data starts at `offset` of it, and it is
// `capacity` bytes in all.
void AttachBuffer(MainConcept::NetworkStreaming::_tagConsumerInfo* info, std::uint32_t offset,
                  std::uint32_t capacity);
}
