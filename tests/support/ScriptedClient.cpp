#include "ScriptedClient.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <utility>

#include "CallLog.h"
#include "PlatformCom.h"

using namespace MainConcept::NetworkStreaming;

namespace {

constexpr std::chrono::seconds kLongestWait{30};

class Client;

struct Failure {
    std::uint32_t status;
    int skip;
};

struct State {
    std::mutex lock;
    std::condition_variable changed;
    std::map<std::string, Failure> failures;
    std::vector<ScriptedSdk::Announcement> announcements;
    std::vector<Client*> clients;
    bool recording = true;
    int clientNumber = 0;
    int consumerNumber = 0;
    int runningServices = 0;
    int misuses = 0;
    int announcementExceptions = 0;
    int runningThreads = 0;
    void* lastReceiver = nullptr;
};

State& state() {
    static auto* const instance = new State;
    return *instance;
}

// The client of which the calling thread is a thread.
thread_local const void* t_ownClient = nullptr;

// A thread of a client, in an apartment as those of a real client are.
class ClientThread {
public:
    explicit ClientThread(const void* client)
        : m_entered(CoInitializeEx(nullptr, COINIT_MULTITHREADED) >= 0) {
        t_ownClient = client;
    }
    ~ClientThread() {
        if (m_entered) {
            CoUninitialize();
        }
    }
    ClientThread(const ClientThread&) = delete;
    ClientThread& operator=(const ClientThread&) = delete;

private:
    bool m_entered;
};

// With the lock held.
void record(const std::string& call) {
    if (state().recording) {
        CallLog::instance().record(call);
    }
}

// With the lock held: the scripted status of a call, or `success`.
std::uint32_t statusOf(const std::string& call, std::uint32_t success = 0) {
    const auto failure = state().failures.find(call);
    if (failure == state().failures.end()) {
        return success;
    }
    if (failure->second.skip-- > 0) {
        return success;
    }
    const std::uint32_t status = failure->second.status;
    state().failures.erase(failure);
    return status;
}

std::string quoted(const char* text) { return text == nullptr ? "null" : "\"" + std::string(text) + "\""; }

class Client final : public SdkNetworkClient {
public:
    explicit Client(INetStreamCreator* creator)
        : m_creator(creator), m_name("client" + std::to_string(++state().clientNumber)) {
        state().clients.push_back(this);
    }

    void ReservedSlot0() override {}
    void ReservedSlot1() override {}
    std::uint32_t Release() override {
        const FakeScope fake;
        std::unique_lock lock(state().lock);
        enter("Release()");
        state().misuses += m_shutDown && m_threads == 0 ? 0 : 1;
        std::erase(state().clients, this);
        const std::uint32_t status = statusOf("Release");
        lock.unlock();
        delete this;
        return status;
    }
    void ReservedSlot3() override {}

    std::uint32_t Init(const char* url, const char* networkInterfaceCard) override {
        const FakeScope fake;
        std::unique_lock lock(state().lock);
        enter("Init(" + quoted(url) + ", " + quoted(networkInterfaceCard) + ")");
        const std::uint32_t status = statusOf("Init");
        const auto announcements = state().announcements;
        lock.unlock();
        if (status == 0 && !announcements.empty()) {
            std::thread([this, &announcements] { announceAll(announcements); }).join();
        }
        return status;
    }
    std::uint32_t Play(double start, double end, double speed) override {
        const FakeScope fake;
        const std::lock_guard lock(state().lock);
        std::ostringstream call;
        call << "Play(" << start << ", " << end << ", " << speed << ")";
        enter(call.str());
        return statusOf("Play");
    }
    void ReservedSlot6() override {}
    std::uint32_t Stop() override { return endDelivery("Stop"); }
    std::uint32_t SetParameter(_tagMCNetClientParamType parameterType, const void* value,
                               std::int32_t valueSize) override {
        const FakeScope fake;
        const std::lock_guard lock(state().lock);
        std::uint32_t number = 0;
        std::memcpy(&number, value, std::min<std::size_t>(sizeof(number), static_cast<unsigned>(valueSize)));
        enter("SetParameter(" + std::to_string(parameterType) + ", " + std::to_string(number) + ", " +
              std::to_string(valueSize) + ")");
        return statusOf("SetParameter");
    }
    void ReservedSlot9() override {}
    std::uint32_t EnableConsumer(IMediaConsumer* consumer, std::int32_t first, const std::uint8_t* enabled,
                                 std::int32_t last) override {
        const FakeScope fake;
        const std::lock_guard lock(state().lock);
        enter("EnableConsumer(" + nameOf(consumer) + ", " + std::to_string(first) + ", " +
              std::to_string(*enabled) + ", " + std::to_string(last) + ")");
        return statusOf("EnableConsumer");
    }
    void ReservedSlot11() override {}
    void ReservedSlot12() override {}
    std::uint32_t Shutdown() override {
        m_shutDown = true;
        return endDelivery("Shutdown");
    }

    // With the lock held.
    [[nodiscard]] const std::vector<IMediaConsumer*>& consumers() const { return m_consumers; }
    [[nodiscard]] INetStreamCreator* creator() const { return m_creator; }
    void addThread() { ++m_threads; }
    void removeThread() { --m_threads; }

private:
    // With the lock held.
    void enter(const std::string& call) {
        record(m_name + "." + call);
        state().misuses += t_ownClient == this ? 1 : 0;
    }
    std::uint32_t endDelivery(const char* call) {
        const FakeScope fake;
        std::unique_lock lock(state().lock);
        enter(std::string(call) + "()");
        if (!state().changed.wait_for(lock, kLongestWait, [this] { return m_threads == 0; })) {
            ++state().misuses;
        }
        return statusOf(call);
    }
    std::string nameOf(IMediaConsumer* consumer) {
        const auto found = std::find(m_consumers.begin(), m_consumers.end(), consumer);
        return found == m_consumers.end()
                   ? "unknown consumer"
                   : m_consumerNames[static_cast<std::size_t>(found - m_consumers.begin())];
    }
    void announceAll(const std::vector<ScriptedSdk::Announcement>& announcements) {
        const ClientThread thread(this);
        for (const auto& announcement : announcements) {
            IMediaConsumer* consumer = nullptr;
            try {
                consumer = ScriptedSdk::announce(*m_creator, announcement);
            } catch (...) {
                const std::lock_guard lock(state().lock);
                ++state().announcementExceptions;
            }
            const FakeScope fake;
            const std::lock_guard lock(state().lock);
            if (consumer != nullptr) {
                m_consumers.push_back(consumer);
                m_consumerNames.push_back("consumer" + std::to_string(++state().consumerNumber));
            }
        }
    }

    INetStreamCreator* m_creator;
    std::string m_name;
    std::vector<IMediaConsumer*> m_consumers;
    std::vector<std::string> m_consumerNames;
    int m_threads = 0;
    bool m_shutDown = false;
};

} // namespace

extern "C" {

std::int32_t StartSocketService() {
    const FakeScope fake;
    const std::lock_guard lock(state().lock);
    record("StartSocketService()");
    const auto status = static_cast<std::int32_t>(statusOf("StartSocketService", kSocketServiceOk));
    state().runningServices += status == kSocketServiceOk ? 1 : 0;
    return status;
}

std::int32_t StopSocketService() {
    const FakeScope fake;
    const std::lock_guard lock(state().lock);
    record("StopSocketService()");
    --state().runningServices;
    return static_cast<std::int32_t>(statusOf("StopSocketService", kSocketServiceOk));
}

SdkNetworkClient* CreateNetworkClient(INetStreamCreator* creator, const SdkClientSettings* settings) {
    const FakeScope fake;
    const std::lock_guard lock(state().lock);
    const bool zeros = std::all_of(std::begin(settings->reserved8), std::end(settings->reserved8),
                                   [](std::uint8_t value) { return value == 0; });
    record(std::string("CreateNetworkClient(") + (creator != nullptr ? "creator" : "null") +
           (zeros && settings->receiver != nullptr ? ", receiver)" : ", wrong settings)"));
    state().lastReceiver = settings->receiver;
    return statusOf("CreateNetworkClient") == 0 ? new Client(creator) : nullptr;
}
}

namespace ScriptedSdk {

void resetClients() {
    const std::lock_guard lock(state().lock);
    state().failures.clear();
    state().announcements.clear();
    state().recording = true;
    state().clientNumber = 0;
    state().consumerNumber = 0;
    state().runningServices = 0;
    state().misuses = 0;
    state().announcementExceptions = 0;
}

void failCall(const std::string& call, std::uint32_t status, int skip) {
    const std::lock_guard lock(state().lock);
    state().failures[call] = Failure{status, skip};
}

bool isFailurePending(const std::string& call) {
    const std::lock_guard lock(state().lock);
    return state().failures.count(call) != 0;
}

void setAnnouncements(std::vector<Announcement> announcements) {
    const std::lock_guard lock(state().lock);
    state().announcements = std::move(announcements);
}

void setClientRecording(bool recording) {
    const std::lock_guard lock(state().lock);
    state().recording = recording;
}

int liveClients() {
    const std::lock_guard lock(state().lock);
    return static_cast<int>(state().clients.size());
}

int runningServices() {
    const std::lock_guard lock(state().lock);
    return state().runningServices;
}

int misuses() {
    const std::lock_guard lock(state().lock);
    return state().misuses;
}

int announcementExceptions() {
    const std::lock_guard lock(state().lock);
    return state().announcementExceptions;
}

void* lastReceiver() {
    const std::lock_guard lock(state().lock);
    return state().lastReceiver;
}

std::vector<IMediaConsumer*> consumers() {
    const std::lock_guard lock(state().lock);
    return state().clients.empty() ? std::vector<IMediaConsumer*>{} : state().clients.back()->consumers();
}

void runOnClientThread(std::function<void()> callback) {
    Client* client = nullptr;
    {
        const std::lock_guard lock(state().lock);
        client = state().clients.back();
        client->addThread();
        ++state().runningThreads;
    }
    std::thread([client, callback = std::move(callback)] {
        {
            const ClientThread thread(client);
            callback();
        }
        const std::lock_guard lock(state().lock);
        client->removeThread();
        --state().runningThreads;
        state().changed.notify_all();
    }).detach();
}

void announceOnClientThread(Announcement announcement) {
    INetStreamCreator* creator = nullptr;
    {
        const std::lock_guard lock(state().lock);
        creator = state().clients.back()->creator();
    }
    runOnClientThread([creator, announcement = std::move(announcement)] {
        static_cast<void>(announce(*creator, announcement));
    });
}

bool waitForClientThreads() {
    std::unique_lock lock(state().lock);
    return state().changed.wait_for(lock, kLongestWait, [] { return state().runningThreads == 0; });
}

} // namespace ScriptedSdk
