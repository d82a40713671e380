#include "ScriptedSdk.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "CallLog.h"

using namespace MainConcept::NetworkStreaming;

namespace {

constexpr std::uint32_t kBufferSize = 0x10000;

struct State {
    std::mutex lock;
    bool failCreation = false;
    std::optional<std::uint32_t> failAllocation;
    bool failConfirmation = false;
    bool recording = true;
    int liveAllocators = 0;
    int wrongReleases = 0;
    int bufferNumber = 0;
    int attachCalls = 0;
    std::map<std::uint8_t*, std::string> lent;
    std::vector<std::unique_ptr<std::uint8_t[]>> storage;
    std::vector<std::uint8_t*> spare;
};

State& state() {
    static State instance;
    return instance;
}

// The calling thread is inside the fake, alone.
class Locked {
    FakeScope m_fake;
    std::lock_guard<std::mutex> m_lock{state().lock};
};

// With the lock held. The text is made only when it is kept.
template <class MakeText>
void record(MakeText makeText) {
    if (state().recording) {
        CallLog::instance().record(makeText());
    }
}

std::string nameOf(std::uint8_t* buffer) {
    const auto found = state().lent.find(buffer);
    return found == state().lent.end() ? "unknown buffer" : found->second;
}

class Allocator final : public SdkBufferAllocator {
public:
    Allocator() {
        const Locked locked;
        ++state().liveAllocators;
    }
    ~Allocator() override {
        const Locked locked;
        --state().liveAllocators;
        record([] { return std::string("allocator ended"); });
    }
    void ReservedSlot1() override {}
    void ReservedSlot2() override {}
    std::int32_t Reset(std::uint32_t value) override {
        const Locked locked;
        record([&] { return "Reset(" + std::to_string(value) + ")"; });
        return 77;
    }
    void ReservedSlot4() override {}
    void ReservedSlot5() override {}
    void ReservedSlot6() override {}
    void ReservedSlot7() override {}

    std::uint8_t* AllocateBuffer(std::uint32_t* capacity, void* reserved) override {
        const Locked locked;
        record([&] {
            return "AllocateBuffer(" + std::to_string(*capacity) +
                   (reserved == nullptr ? ", null)" : ", not null)");
        });
        if (state().failAllocation) {
            *capacity = *state().failAllocation;
            state().failAllocation.reset();
            return nullptr;
        }
        if (state().spare.empty()) {
            state().storage.push_back(std::make_unique<std::uint8_t[]>(kBufferSize));
            state().spare.push_back(state().storage.back().get());
        }
        std::uint8_t* const buffer = state().spare.back();
        state().spare.pop_back();
        state().lent[buffer] = "buffer" + std::to_string(++state().bufferNumber);
        *capacity = kBufferSize;
        return buffer;
    }
    std::int32_t ConfirmBufferSize(std::uint8_t* buffer, std::uint32_t dataLength) override {
        const Locked locked;
        record(
            [&] { return "ConfirmBufferSize(" + nameOf(buffer) + ", " + std::to_string(dataLength) + ")"; });
        return std::exchange(state().failConfirmation, false) ? 1 : 0;
    }
    void ReleaseBuffer(std::uint8_t* buffer) override {
        const Locked locked;
        record([&] { return "ReleaseBuffer(" + nameOf(buffer) + ")"; });
        if (state().lent.erase(buffer) == 0) {
            ++state().wrongReleases;
            return;
        }
        // What is read after it was given back is not what was received.
        std::fill_n(buffer, 64, std::uint8_t{0xDD});
        state().spare.push_back(buffer);
    }
};

} // namespace

extern "C" SdkBufferAllocator* CreateBufferAllocator(std::uint32_t kind, std::uint32_t count,
                                                     std::uint32_t limit, std::uint32_t bufferSize,
                                                     std::uint32_t alignment, void* reserved) {
    {
        const Locked locked;
        record([&] {
            return "CreateBufferAllocator(" + std::to_string(kind) + ", " + std::to_string(count) + ", " +
                   std::to_string(limit) + ", " + std::to_string(bufferSize) + ", " +
                   std::to_string(alignment) + (reserved == nullptr ? ", null)" : ", not null)");
        });
        if (std::exchange(state().failCreation, false)) {
            return nullptr;
        }
    }
    const FakeScope fake;
    return new Allocator;
}

extern "C" void AttachBuffer(_tagConsumerInfo* info, std::uint32_t offset, std::uint32_t capacity) {
    const Locked locked;
    record([&] {
        return "AttachBuffer(" + nameOf(info->buffer) + ", " + std::to_string(offset) + ", " +
               std::to_string(capacity) + ")";
    });
}

namespace ScriptedSdk {

void reset() {
    const Locked locked;
    state().failCreation = false;
    state().failAllocation.reset();
    state().failConfirmation = false;
    state().recording = true;
    state().wrongReleases = 0;
    state().bufferNumber = 0;
}

void failNextAllocatorCreation() {
    const Locked locked;
    state().failCreation = true;
}

void failNextAllocation(std::uint32_t capacity) {
    const Locked locked;
    state().failAllocation = capacity;
}

void failNextConfirmation() {
    const Locked locked;
    state().failConfirmation = true;
}

void setRecording(bool recording) {
    const Locked locked;
    state().recording = recording;
}

int liveAllocators() {
    const Locked locked;
    return state().liveAllocators;
}

int lentBuffers() {
    const Locked locked;
    return static_cast<int>(state().lent.size());
}

int wrongReleases() {
    const Locked locked;
    return state().wrongReleases;
}

bool play(IMediaConsumer& consumer, const Sample& sample) {
    _tagConsumerInfo info{};
    consumer.GetBuffer(&info);
    if (info.buffer == nullptr) {
        return false;
    }
    if (!sample.bytes.empty()) {
        std::memcpy(info.buffer, sample.bytes.data(), sample.bytes.size());
    }
    info.sampleValid = sample.sampleValid;
    info.dataLength = static_cast<std::uint32_t>(sample.bytes.size());
    info.timeStamp = sample.timeStamp;
    info.streamType = sample.streamType;
    info.discard = sample.discard;
    consumer.OnData(&info);
    return true;
}

void notify(IMediaConsumer& consumer, int type) {
    consumer.OnNotify(static_cast<_tagNetSourceNotifyType>(type), nullptr);
}

IMediaConsumer* announce(INetStreamCreator& creator, const Announcement& announcement) {
    std::unique_ptr<std::vector<std::uint8_t>> config;
    std::unique_ptr<_tagMCNetStreamMediaInfo> info;
    {
        const FakeScope fake;
        config = std::make_unique<std::vector<std::uint8_t>>(announcement.codecConfig);
        info = std::make_unique<_tagMCNetStreamMediaInfo>();
    }
    std::memset(info.get(), 0xEE, sizeof(*info)); // what is reserved is not 0
    info->streamType = announcement.streamType;
    info->mediaKind = announcement.mediaKind;
    info->audioChannels = announcement.audioChannels;
    info->audioSamplingRate = announcement.audioSamplingRate;
    info->codecConfig = config->empty() ? nullptr : config->data();
    info->codecConfigLength = static_cast<std::uint32_t>(config->size());
    return creator.OnCreateConsumerForNetStream(info.get(), nullptr, 0xEEEEEEEE);
}

} // namespace ScriptedSdk
