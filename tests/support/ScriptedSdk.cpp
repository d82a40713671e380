#include "ScriptedSdk.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "CallLog.h"
#include "PlatformCom.h"

using namespace MainConcept::NetworkStreaming;

namespace {

constexpr std::uint32_t kBufferSize = 0x10000;
constexpr std::chrono::seconds kLongestWait{30};

class Client;

struct State {
    std::mutex lock;
    std::condition_variable changed;
    CallScript script;
    std::vector<ScriptedSdk::Announcement> announcements;
    std::vector<Client*> clients;
    std::map<const void*, std::string> consumerNames;
    std::map<const void*, std::string> lent;
    std::vector<std::unique_ptr<std::uint8_t[]>> spare;
    int clientNumber = 0;
    int consumerNumber = 0;
    int bufferNumber = 0;
    int runningThreads = 0;
    ScriptedSdk::Remains remains;
};

// Never destroyed: a client's thread may outlive main.
State& state() {
    static auto* const instance = new State;
    return *instance;
}

// The calling thread is inside the fake, alone.
struct Locked {
    FakeScope fake;
    std::unique_lock<std::mutex> lock{state().lock};
};

// The client of which the calling thread is a thread.
thread_local const void* t_ownClient = nullptr;

// All with the lock held.

std::uint32_t statusOf(const char* call, std::uint32_t success = 0) {
    return static_cast<std::uint32_t>(state().script.failureOf(call).value_or(success));
}

template <class... Values>
void record(const std::string& call, const Values&... values) {
    CallLog::instance().recordCall(call, values...);
}

std::string nameOf(const std::map<const void*, std::string>& names, const void* pointer) {
    const auto found = names.find(pointer);
    return found == names.end() ? "unknown" : found->second;
}

std::string quoted(const char* text) { return text == nullptr ? "null" : "\"" + std::string(text) + "\""; }

class Allocator final : public SdkBufferAllocator {
public:
    ~Allocator() override {
        const Locked locked;
        --state().remains.allocators;
        CallLog::instance().record("allocator ended");
    }
    void ReservedSlot1() override {}
    void ReservedSlot2() override {}
    std::int32_t Reset(std::uint32_t value) override {
        const Locked locked;
        record("Reset", value);
        return 77;
    }
    void ReservedSlot4() override {}
    void ReservedSlot5() override {}
    void ReservedSlot6() override {}
    void ReservedSlot7() override {}

    std::uint8_t* AllocateBuffer(std::uint32_t* capacity, void* reserved) override {
        const Locked locked;
        record("AllocateBuffer", *capacity, reserved == nullptr ? "null" : "not null");
        if (const auto failure = state().script.failureOf("AllocateBuffer")) {
            *capacity = static_cast<std::uint32_t>(*failure);
            return nullptr;
        }
        if (state().spare.empty()) {
            state().spare.push_back(std::make_unique<std::uint8_t[]>(kBufferSize));
        }
        std::uint8_t* const buffer = state().spare.back().release();
        state().spare.pop_back();
        state().lent[buffer] = "buffer" + std::to_string(++state().bufferNumber);
        *capacity = kBufferSize;
        return buffer;
    }
    std::int32_t ConfirmBufferSize(std::uint8_t* buffer, std::uint32_t dataLength) override {
        const Locked locked;
        record("ConfirmBufferSize", nameOf(state().lent, buffer), dataLength);
        return static_cast<std::int32_t>(statusOf("ConfirmBufferSize"));
    }
    void ReleaseBuffer(std::uint8_t* buffer) override {
        const Locked locked;
        record("ReleaseBuffer", nameOf(state().lent, buffer));
        if (state().lent.erase(buffer) == 0) {
            ++state().remains.misuses;
            return;
        }
        // What is read after it was given back is not what was received.
        std::fill_n(buffer, 64, std::uint8_t{0xDD});
        state().spare.emplace_back(buffer);
    }
};

class Client final : public SdkNetworkClient {
public:
    explicit Client(INetStreamCreator* creator) : m_creator(*creator) { state().clients.push_back(this); }

    void ReservedSlot0() override {}
    void ReservedSlot1() override {}
    std::uint32_t Release() override {
        const Locked locked;
        const std::uint32_t status = enter("Release");
        state().remains.misuses += m_shutDown && m_threads == 0 ? 0 : 1;
        std::erase(state().clients, this);
        delete this;
        return status;
    }
    void ReservedSlot3() override {}
    std::uint32_t Init(const char* url, const char* networkInterfaceCard) override {
        Locked locked;
        const std::uint32_t status = enter("Init", quoted(url), quoted(networkInterfaceCard));
        const auto announcements = state().announcements;
        locked.lock.unlock();
        if (status == 0 && !announcements.empty()) {
            std::thread([this, &announcements] { run([&] { announceAll(announcements); }); }).join();
        }
        return status;
    }
    std::uint32_t Play(double start, double end, double speed) override {
        const Locked locked;
        return enter("Play", start, end, speed);
    }
    void ReservedSlot6() override {}
    std::uint32_t Stop() override { return endDelivery("Stop"); }
    std::uint32_t SetParameter(_tagMCNetClientParamType parameterType, const void* value,
                               std::int32_t valueSize) override {
        const Locked locked;
        std::uint32_t number = 0;
        std::memcpy(&number, value, std::min<std::size_t>(sizeof(number), static_cast<unsigned>(valueSize)));
        return enter("SetParameter", parameterType, number, valueSize);
    }
    void ReservedSlot9() override {}
    std::uint32_t EnableConsumer(IMediaConsumer* consumer, std::int32_t first, const std::uint8_t* enabled,
                                 std::int32_t last) override {
        const Locked locked;
        return enter("EnableConsumer", nameOf(state().consumerNames, consumer), first, unsigned{*enabled},
                     last);
    }
    void ReservedSlot11() override {}
    void ReservedSlot12() override {}
    std::uint32_t Shutdown() override {
        m_shutDown = true;
        return endDelivery("Shutdown");
    }

    // With the lock held.
    [[nodiscard]] INetStreamCreator& creator() const { return m_creator; }
    [[nodiscard]] const std::vector<IMediaConsumer*>& consumers() const { return m_consumers; }
    void addThreads(int threads) {
        m_threads += threads;
        state().runningThreads += threads;
        state().changed.notify_all();
    }

    // What a thread of this client does, in an apartment as those of a real client are.
    void run(const std::function<void()>& callback) const {
        const bool entered = CoInitializeEx(nullptr, COINIT_MULTITHREADED) >= 0;
        t_ownClient = this;
        callback();
        if (entered) {
            CoUninitialize();
        }
    }

private:
    // With the lock held: the scripted status of the call.
    template <class... Values>
    std::uint32_t enter(const char* call, const Values&... values) {
        record(m_name + "." + call, values...);
        state().remains.misuses += t_ownClient == this ? 1 : 0;
        return statusOf(call);
    }
    std::uint32_t endDelivery(const char* call) {
        Locked locked;
        const std::uint32_t status = enter(call);
        if (!state().changed.wait_for(locked.lock, kLongestWait, [this] { return m_threads == 0; })) {
            ++state().remains.misuses;
        }
        return status;
    }
    void announceAll(const std::vector<ScriptedSdk::Announcement>& announcements) {
        for (const auto& announcement : announcements) {
            IMediaConsumer* consumer = nullptr;
            try {
                consumer = ScriptedSdk::announce(m_creator, announcement);
            } catch (...) { // NOLINT(bugprone-empty-catch): a stream that was not taken
            }
            const Locked locked;
            if (consumer != nullptr) {
                m_consumers.push_back(consumer);
                state().consumerNames[consumer] = "consumer" + std::to_string(++state().consumerNumber);
            }
        }
    }

    INetStreamCreator& m_creator;
    const std::string m_name = "client" + std::to_string(++state().clientNumber);
    std::vector<IMediaConsumer*> m_consumers;
    int m_threads = 0;
    bool m_shutDown = false;
};

} // namespace

extern "C" {

SdkBufferAllocator* CreateBufferAllocator(std::uint32_t kind, std::uint32_t count, std::uint32_t limit,
                                          std::uint32_t bufferSize, std::uint32_t alignment, void* reserved) {
    const Locked locked;
    record("CreateBufferAllocator", kind, count, limit, bufferSize, alignment,
           reserved == nullptr ? "null" : "not null");
    if (statusOf("CreateBufferAllocator") != 0) {
        return nullptr;
    }
    ++state().remains.allocators;
    return new Allocator;
}

void AttachBuffer(_tagConsumerInfo* info, std::uint32_t offset, std::uint32_t capacity) {
    const Locked locked;
    record("AttachBuffer", nameOf(state().lent, info->buffer), offset, capacity);
}

std::int32_t StartSocketService() {
    const Locked locked;
    record("StartSocketService");
    const auto status = static_cast<std::int32_t>(statusOf("StartSocketService", kSocketServiceOk));
    state().remains.services += status == kSocketServiceOk ? 1 : 0;
    return status;
}

std::int32_t StopSocketService() {
    const Locked locked;
    record("StopSocketService");
    --state().remains.services;
    return static_cast<std::int32_t>(statusOf("StopSocketService", kSocketServiceOk));
}

SdkNetworkClient* CreateNetworkClient(INetStreamCreator* creator, const SdkClientSettings* settings) {
    const Locked locked;
    const bool zeros = std::all_of(std::begin(settings->reserved8), std::end(settings->reserved8),
                                   [](std::uint8_t value) { return value == 0; });
    record("CreateNetworkClient", creator != nullptr ? "creator" : "null",
           zeros && settings->receiver != nullptr ? "receiver" : "wrong settings");
    return statusOf("CreateNetworkClient") == 0 ? new Client(creator) : nullptr;
}
}

namespace ScriptedSdk {

void reset(std::vector<Announcement> announcements) {
    const Locked locked;
    state().script.clear();
    state().announcements = std::move(announcements);
    state().consumerNames.clear();
    state().clientNumber = state().consumerNumber = state().bufferNumber = 0;
}

void failCall(const std::string& call, std::uint32_t status, int skip) {
    state().script.fail(call, status, 1, skip);
}
bool isFailurePending(const std::string& call) { return state().script.isPending(call); }

Remains remains() {
    const Locked locked;
    Remains remains = state().remains;
    remains.clients = static_cast<int>(state().clients.size());
    remains.buffers = static_cast<int>(state().lent.size());
    return remains;
}

INetStreamCreator& lastCreator() {
    const Locked locked;
    return state().clients.at(state().clients.size() - 1)->creator();
}
std::vector<IMediaConsumer*> consumers() {
    const Locked locked;
    return state().clients.empty() ? std::vector<IMediaConsumer*>{} : state().clients.back()->consumers();
}

void runOnClientThread(std::function<void()> callback) {
    const Locked locked;
    Client* const client = state().clients.back();
    client->addThreads(1);
    std::thread([client, callback = std::move(callback)] {
        client->run(callback);
        const Locked ended;
        client->addThreads(-1);
    }).detach();
}
bool waitForClientThreads() {
    Locked locked;
    return state().changed.wait_for(locked.lock, kLongestWait, [] { return state().runningThreads == 0; });
}

bool play(IMediaConsumer& consumer, const Sample& sample) {
    _tagConsumerInfo info{};
    consumer.GetBuffer(&info);
    if (info.buffer == nullptr) {
        return false;
    }
    {
        const FakeScope fake;
        std::copy(sample.bytes.begin(), sample.bytes.end(), info.buffer);
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
    std::vector<std::uint8_t> config;
    std::unique_ptr<_tagMCNetStreamMediaInfo> info;
    {
        const FakeScope fake;
        config = announcement.codecConfig;
        info = std::make_unique<_tagMCNetStreamMediaInfo>();
    }
    std::memset(info.get(), 0xEE, sizeof(*info)); // what is reserved is not 0
    info->streamType = announcement.streamType;
    info->mediaKind = announcement.mediaKind;
    info->audioChannels = announcement.audioChannels;
    info->audioSamplingRate = announcement.audioSamplingRate;
    info->codecConfig = config.empty() ? nullptr : config.data();
    info->codecConfigLength = static_cast<std::uint32_t>(config.size());
    return creator.OnCreateConsumerForNetStream(info.get(), nullptr, 0xEEEEEEEE);
}

} // namespace ScriptedSdk
