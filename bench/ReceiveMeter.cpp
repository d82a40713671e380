// Receives what kv-paced-sender sends, through the entry points of the network client, and prints what it
// cost.
//
//   kv-receive-meter udp|rtp ADDRESS PORT STREAMS SECONDS
//
// Each delivered buffer is copied once, as the module copies it into the host's buffer, and the datagrams'
// numbers are checked. Processor time is the operating system's account for the process, from the first data
// on.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include "NetworkClientCounters.h"
#include "StreamingSdk.h"

namespace {

using namespace MainConcept::NetworkStreaming;
using KorvelVideo::NetworkSource::ClientCounters;

constexpr std::size_t kPayloadSize = 7 * 188;

std::atomic<bool> started{false};

class Consumer final : public IMediaConsumer {
public:
    void GetBuffer(_tagConsumerInfo* info) override {
        std::uint32_t capacity = 0;
        info->buffer = m_allocator->AllocateBuffer(&capacity, nullptr);
        AttachBuffer(info, 0, capacity);
    }
    void OnData(_tagConsumerInfo* info) override {
        m_allocator->ConfirmBufferSize(info->buffer, info->dataLength);
        if (info->discard == 0) {
            started = true;
            std::memcpy(m_hostBuffer.get(), info->buffer, info->dataLength);
            check(m_hostBuffer.get(), info->dataLength);
        }
        m_allocator->ReleaseBuffer(info->buffer);
    }
    void OnNotify(_tagNetSourceNotifyType /*type*/, void* /*data*/) override {}
    std::int32_t ResetAllocator() override { return 0; }

    std::uint64_t bytes = 0;
    std::uint64_t lost = 0;
    std::uint64_t disordered = 0;
    std::uint64_t expected = 0;

private:
    void check(const std::uint8_t* data, std::size_t length) {
        bytes += length;
        for (std::size_t at = 0; at + kPayloadSize <= length; at += kPayloadSize) {
            std::uint64_t number = 0;
            for (unsigned byte = 0; byte < 8; ++byte) {
                number |= std::uint64_t{data[at + 4 + byte]} << 8 * byte;
            }
            if (number < expected) {
                ++disordered;
            } else {
                lost += number - expected;
            }
            expected = number + 1;
        }
    }

    std::unique_ptr<SdkBufferAllocator> m_allocator{
        CreateBufferAllocator(2, 8, 0x100000, 0x10000, 1, nullptr)};
    std::unique_ptr<std::uint8_t[]> m_hostBuffer = std::make_unique<std::uint8_t[]>(1U << 16);
};

class Creator final : public INetStreamCreator {
public:
    IMediaConsumer* OnCreateConsumerForNetStream(_tagMCNetStreamMediaInfo* /*mediaInfo*/,
                                                 IMCPlaylistItemQualitySelector* /*qualitySelector*/,
                                                 std::uint32_t /*value*/) override {
        return &consumer;
    }
    void ReservedSlot2() override {}
    void ReservedSlot3() override {}
    Consumer consumer;
};

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

long wakeUps() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

long residentKilobytes() {
    long size = 0;
    long resident = 0;
    if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%ld %ld", &size, &resident) != 2) {
            resident = 0;
        }
        std::fclose(file);
    }
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::fprintf(stderr, "usage: %s udp|rtp ADDRESS PORT STREAMS SECONDS\n", argv[0]);
        return 2;
    }
    const int port = std::atoi(argv[3]);
    const int count = std::atoi(argv[4]);
    StartSocketService();
    const long residentBefore = residentKilobytes();
    std::vector<std::unique_ptr<Creator>> creators;
    std::vector<SdkNetworkClient*> clients;
    for (int index = 0; index < count; ++index) {
        creators.push_back(std::make_unique<Creator>());
        const SdkClientSettings settings{};
        SdkNetworkClient* const client = CreateNetworkClient(creators.back().get(), &settings);
        const std::string url = std::string(argv[1]) + "://" + argv[2] + ":" + std::to_string(port + index);
        const std::uint8_t enabled = 1;
        const std::uint32_t status = client->Init(url.c_str(), nullptr);
        if (status != keClientOk || client->EnableConsumer(&creators.back()->consumer, 0, &enabled, 1) != 0 ||
            client->Play(0.0, -1.0, 1.0) != 0) {
            std::fprintf(stderr, "%s cannot be received: status %u\n", url.c_str(), status);
            return 3;
        }
        clients.push_back(client);
    }
    std::fprintf(stderr, "ready\n");
    while (!started) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const double before = processorSeconds();
    const long wakeUpsBefore = wakeUps();
    std::this_thread::sleep_for(std::chrono::duration<double>(std::atof(argv[5])));
    const double cost = processorSeconds() - before;
    const long woken = wakeUps() - wakeUpsBefore;
    const long resident = residentKilobytes() - residentBefore;

    std::vector<ClientCounters> counters(clients.size());
    counters[0].size = sizeof(ClientCounters);
    GetNetworkClientCounters(counters.data(), static_cast<std::uint32_t>(counters.size()));
    std::uint64_t drops = 0;
    for (std::size_t index = 0; index < clients.size(); ++index) {
        drops += counters[index].kernelDrops;
        clients[index]->Stop();
        clients[index]->Shutdown();
        clients[index]->Release();
    }
    std::uint64_t bytes = 0;
    std::uint64_t lost = 0;
    std::uint64_t disordered = 0;
    std::uint64_t datagrams = 0;
    for (const auto& creator : creators) {
        bytes += creator->consumer.bytes;
        lost += creator->consumer.lost;
        disordered += creator->consumer.disordered;
        datagrams += creator->consumer.expected;
    }
    StopSocketService();
    std::printf("{\"bytes\":%llu,\"cpu_seconds\":%.3f,\"cpu_seconds_per_gb\":%.3f,\"wake_ups\":%ld,"
                "\"datagrams_expected\":%llu,\"lost\":%llu,\"disordered\":%llu,\"kernel_drops\":%llu,"
                "\"resident_kilobytes\":%ld}\n",
                static_cast<unsigned long long>(bytes), cost, cost * 1e9 / static_cast<double>(bytes), woken,
                static_cast<unsigned long long>(datagrams), static_cast<unsigned long long>(lost),
                static_cast<unsigned long long>(disordered), static_cast<unsigned long long>(drops),
                resident);
    return 0;
}
