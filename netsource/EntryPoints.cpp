#include <exception>
#include <new>

#include "BufferAllocator.h"
#include "ClientRegistry.h"
#include "NetworkClient.h"
#include "NetworkClientCounters.h"
#include "NetworkLog.h"
#include "StreamingSdk.h"

using namespace MainConcept::NetworkStreaming;
namespace NetworkSource = KorvelVideo::NetworkSource;

namespace {

// What CreateBufferAllocator accepts; far beyond what any consumer needs.
constexpr std::uint32_t kMaxCount = 1U << 12;
constexpr std::uint32_t kMaxBufferSize = 1U << 24;

} // namespace

extern "C" {

SdkNetworkClient* CreateNetworkClient(INetStreamCreator* creator, const SdkClientSettings* settings) {
    if (creator == nullptr) {
        return nullptr;
    }
    try {
        return new NetworkSource::NetworkClient(*creator, settings == nullptr ? nullptr : settings->receiver,
                                                NetworkSource::NetworkClient::systemSurroundings());
    } catch (const std::exception&) { // no memory
        return nullptr;
    }
}

SdkBufferAllocator* CreateBufferAllocator(std::uint32_t /*kind*/, std::uint32_t count, std::uint32_t limit,
                                          std::uint32_t bufferSize, std::uint32_t alignment,
                                          void* /*reserved*/) {
    if (count == 0 || count > kMaxCount || bufferSize == 0 || bufferSize > kMaxBufferSize || alignment > 1) {
        return nullptr;
    }
    try {
        return new NetworkSource::BufferAllocator(count, limit, bufferSize);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void AttachBuffer(_tagConsumerInfo* info, std::uint32_t offset, std::uint32_t capacity) {
    if (info != nullptr) {
        info->dataOffset = offset;
        info->capacity = capacity;
    }
}

std::uint32_t GetNetworkClientCounters(NetworkSource::ClientCounters* clients, std::uint32_t capacity) {
    return NetworkSource::ClientRegistry::instance().query(clients, capacity);
}
}
