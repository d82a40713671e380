// The streaming SDK's entry points where it is a pair of libraries that export by ordinal. They are looked up
// when the first of them is needed, so that the module loads, registers and says what is missing without
// them.

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "Logging.h"
#include "PlatformModule.h"
#include "StreamingSdk.h"

using namespace MainConcept::NetworkStreaming;

namespace {

// Status of the socket layer's functions that means no service.
constexpr std::int32_t kSocketServiceMissing = 3;

struct EntryPoints {
    decltype(&::StartSocketService) startSocketService = nullptr;
    decltype(&::StopSocketService) stopSocketService = nullptr;
    decltype(&::CreateNetworkClient) createNetworkClient = nullptr;
    decltype(&::CreateBufferAllocator) createBufferAllocator = nullptr;
    decltype(&::AttachBuffer) attachBuffer = nullptr;
};

// Written under the lock until it is complete, then read without it.
EntryPoints g_entryPoints;
std::atomic<bool> g_isComplete{false};
std::mutex g_resolveLock;

// The folder of this module's file with its separator; empty when it cannot be told.
std::string moduleFolder() {
    HMODULE module = nullptr;
    std::array<char, MAX_PATH> path{};
    if (GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                               GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<const char*>(&g_entryPoints), &module) == 0) {
        return {};
    }
    const DWORD length = GetModuleFileNameA(module, path.data(), static_cast<DWORD>(path.size()));
    const std::string file(path.data(), length < path.size() ? length : 0);
    return file.substr(0, file.find_last_of("\\/") + 1);
}

// One of the SDK's libraries: the one beside the module, else the one that the system finds. It stays loaded,
// since its threads may outlast the last call.
class SdkLibrary {
public:
    SdkLibrary(const char* name, std::string& missing) : m_name(name), m_missing(missing) {
        m_module = LoadLibraryExA((moduleFolder() + name).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (m_module == nullptr) {
            m_module = LoadLibraryA(name);
        }
        if (m_module == nullptr) {
            complain(std::string(name) + " cannot be loaded (error " + std::to_string(GetLastError()) + ")");
        }
    }

    template <class Function>
    void resolve(std::uint16_t ordinal, Function& function) const {
        if (m_module == nullptr) {
            return;
        }
        // An ordinal travels in the place of the name.
        const auto* const name = reinterpret_cast<const char*>(std::uintptr_t{ordinal});
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
        if (function == nullptr) {
            complain(std::string(m_name) + " has no ordinal " + std::to_string(ordinal));
        }
    }

private:
    void complain(const std::string& text) const { m_missing += (m_missing.empty() ? "" : ", ") + text; }

    const char* m_name;
    std::string& m_missing;
    HMODULE m_module = nullptr;
};

// Resolves all five, so that a receiver is refused before it is half made. What is missing is logged in one
// line and looked for again at the next call.
bool resolveEntryPoints() {
    if (g_isComplete.load(std::memory_order_acquire)) {
        return true;
    }
    const std::lock_guard lock(g_resolveLock);
    if (g_isComplete.load(std::memory_order_relaxed)) {
        return true;
    }
    std::string missing;
    const SdkLibrary tools("mc_net_tools.dll", missing);
    tools.resolve(11, g_entryPoints.startSocketService);
    tools.resolve(12, g_entryPoints.stopSocketService);
    const SdkLibrary source("mc_net_source.dll", missing);
    source.resolve(9, g_entryPoints.createNetworkClient);
    source.resolve(10, g_entryPoints.createBufferAllocator);
    source.resolve(3, g_entryPoints.attachBuffer);
    if (!missing.empty()) {
        logPrintf(kCategoryFailure, kLevelError, KV_SITE, "The streaming SDK is not complete: %s.",
                  missing.c_str());
        return false;
    }
    g_isComplete.store(true, std::memory_order_release);
    return true;
}

} // namespace

extern "C" {

std::int32_t StartSocketService() {
    return resolveEntryPoints() ? g_entryPoints.startSocketService() : kSocketServiceMissing;
}

std::int32_t StopSocketService() {
    return resolveEntryPoints() ? g_entryPoints.stopSocketService() : kSocketServiceMissing;
}

SdkNetworkClient* CreateNetworkClient(INetStreamCreator* creator, const SdkClientSettings* settings) {
    return resolveEntryPoints() ? g_entryPoints.createNetworkClient(creator, settings) : nullptr;
}

SdkBufferAllocator* CreateBufferAllocator(std::uint32_t kind, std::uint32_t count, std::uint32_t limit,
                                          std::uint32_t bufferSize, std::uint32_t alignment, void* reserved) {
    return resolveEntryPoints()
               ? g_entryPoints.createBufferAllocator(kind, count, limit, bufferSize, alignment, reserved)
               : nullptr;
}

void AttachBuffer(_tagConsumerInfo* info, std::uint32_t offset, std::uint32_t capacity) {
    if (resolveEntryPoints()) {
        g_entryPoints.attachBuffer(info, offset, capacity);
    }
}
}
