#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "KvAudioInterfaces.h"
#include "KvVideoInterfaces.h"
#include "TestObject.h"

// A host that costs nothing, for tests and benchmarks of cost: it lends one buffer of 1 MiB again and again
// and allocates nothing.
class PooledSink final : public StaticTestObject<IKvVideoCallback, IKvAudioCallback> {
public:
    HRESULT ProvideVideoSurface(std::uint32_t size, IKvSurface** surface) override {
        *surface = m_buffer.lend(size);
        return S_OK;
    }
    HRESULT ProvideAudioSamples(std::uint32_t size, IKvAudioSamples** samples) override {
        *samples = m_buffer.lend(size);
        return S_OK;
    }
    HRESULT DeliverVideoSurface(IKvSurface*) override { return ++m_delivered, S_OK; }
    HRESULT DeliverAudioSamples(IKvAudioSamples*) override { return ++m_delivered, S_OK; }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }
    [[nodiscard]] int delivered() const { return m_delivered; }

private:
    class Buffer final : public StaticTestObject<IKvSurface, IKvAudioSamples> {
    public:
        Buffer* lend(std::uint32_t size) {
            AddRef();
            return size <= m_bytes.size() ? this : nullptr;
        }
        HRESULT SetTimeStampInfo(const std::uint64_t*) override { return S_OK; }
        HRESULT SignalWriteCompletion() override { return S_OK; }
        HRESULT AttachCustomObject(REFIID, IUnknown*) override { return S_OK; }
        HRESULT Lock(std::uint32_t, EKvFaceType, SKvLockedSurfaceDescription* description) override {
            return GetBufferAndLength(&description->m_buffer, &description->m_bufferCapacity);
        }
        HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) override {
            *buffer = m_bytes.data();
            *length = static_cast<std::uint32_t>(m_bytes.size());
            return S_OK;
        }

    private:
        std::vector<std::uint8_t> m_bytes = std::vector<std::uint8_t>(1 << 20);
    } m_buffer;
    std::atomic<int> m_delivered{0};
};
