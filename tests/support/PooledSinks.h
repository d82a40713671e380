#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "KvAudioInterfaces.h"
#include "KvVideoInterfaces.h"
#include "TestObject.h"

// Hosts that cost nothing, for tests and benchmarks of cost: each lends one buffer of 1 MiB again and again
// and allocates nothing.

class PooledVideoSink final : public StaticTestObject<IKvVideoCallback> {
public:
    HRESULT ProvideVideoSurface(std::uint32_t size, IKvSurface** surface) override {
        m_surface.AddRef();
        *surface = size <= m_surface.m_bytes.size() ? &m_surface : nullptr;
        return S_OK;
    }
    HRESULT DeliverVideoSurface(IKvSurface*) override {
        ++m_delivered;
        return S_OK;
    }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }
    [[nodiscard]] int delivered() const { return m_delivered; }

private:
    struct Surface final : StaticTestObject<IKvSurface> {
        HRESULT SetTimeStampInfo(const std::uint64_t*) override { return S_OK; }
        HRESULT SignalWriteCompletion() override { return S_OK; }
        HRESULT Lock(std::uint32_t, EKvFaceType, SKvLockedSurfaceDescription* description) override {
            description->m_bufferCapacity = static_cast<std::uint32_t>(m_bytes.size());
            description->m_buffer = m_bytes.data();
            return S_OK;
        }
        std::vector<std::uint8_t> m_bytes = std::vector<std::uint8_t>(1 << 20);
    } m_surface;
    std::atomic<int> m_delivered{0};
};

class PooledAudioSink final : public StaticTestObject<IKvAudioCallback> {
public:
    HRESULT ProvideAudioSamples(std::uint32_t size, IKvAudioSamples** samples) override {
        m_samples.AddRef();
        *samples = size <= m_samples.m_bytes.size() ? &m_samples : nullptr;
        return S_OK;
    }
    HRESULT DeliverAudioSamples(IKvAudioSamples*) override {
        ++m_delivered;
        return S_OK;
    }
    HRESULT NotifyStatus(HRESULT) override { return S_OK; }
    [[nodiscard]] int delivered() const { return m_delivered; }

private:
    struct Samples final : StaticTestObject<IKvAudioSamples> {
        HRESULT AttachCustomObject(REFIID, IUnknown*) override { return S_OK; }
        HRESULT SetTimeStampInfo(const std::uint64_t*) override { return S_OK; }
        HRESULT SignalWriteCompletion() override { return S_OK; }
        HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) override {
            *buffer = m_bytes.data();
            *length = static_cast<std::uint32_t>(m_bytes.size());
            return S_OK;
        }
        std::vector<std::uint8_t> m_bytes = std::vector<std::uint8_t>(1 << 20);
    } m_samples;
    std::atomic<int> m_delivered{0};
};
