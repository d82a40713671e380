#pragma once

// The buffers that kvreceive lends to the module: surfaces for video and transport streams, sample buffers
// for audio. All streams share them, so that the next access unit goes where the last one lay, which is still
// in the cache. A buffer goes back to its pool with its last reference and keeps its memory, so that nothing
// is allocated once the streams' sizes have been seen.
//
// A pool must outlive its buffers. Every operation may be called from any thread.

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <vector>

#include "AacConfiguration.h"
#include "ComObject.h"
#include "KvAudioInterfaces.h"
#include "KvVideoInterfaces.h"

namespace KorvelVideo::Host {

// One access unit in memory of its own.
class MediaBuffer {
public:
    MediaBuffer() = default;
    MediaBuffer(const MediaBuffer&) = delete;
    MediaBuffer& operator=(const MediaBuffer&) = delete;

    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept { return {m_memory.get(), m_size}; }
    [[nodiscard]] std::uint64_t timeStamp() const noexcept { return m_timeStamp; }
    [[nodiscard]] std::uint32_t capacity() const noexcept { return m_capacity; }
    // Audio: the configuration that the module attached; null for others.
    [[nodiscard]] virtual AacConfiguration* configuration() const noexcept { return nullptr; }

    // One reference more, one less.
    virtual void keep() noexcept = 0;
    virtual void giveBack() noexcept = 0;

protected:
    virtual ~MediaBuffer() = default;

    // Makes room for `size` bytes; false without memory. What was in the buffer is lost.
    [[nodiscard]] bool resize(std::uint32_t size) noexcept {
        constexpr std::uint32_t smallest = 1024;
        constexpr std::uint32_t largestPower = 0x80000000U;
        if (size > m_capacity || m_memory == nullptr) {
            const std::uint32_t capacity =
                size > largestPower ? size : std::bit_ceil(std::max(size, smallest));
            m_memory.reset();
            m_capacity = 0;
            m_memory.reset(new (std::nothrow) std::uint8_t[capacity]);
            if (m_memory == nullptr) {
                return false;
            }
            m_capacity = capacity;
        }
        m_size = size;
        return true;
    }

    std::unique_ptr<std::uint8_t[]> m_memory;
    std::uint32_t m_capacity = 0;
    std::uint32_t m_size = 0;
    std::uint64_t m_timeStamp = 0;
};

template <class Buffer>
class MediaPool;

// What surfaces and sample buffers have in common.
template <class Interface, class Buffer>
class PooledBuffer : public Interface, public MediaBuffer {
public:
    HRESULT QueryInterface(REFIID iid, void** object) override {
        return answerQuery<Interface>(this, iid, IID_IUnknown, object);
    }
    ULONG AddRef() override { return ++m_references; }
    ULONG Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            m_pool.takeBack(static_cast<Buffer*>(this));
        }
        return left;
    }
    HRESULT SetTimeStampInfo(const std::uint64_t* timeStamp) override {
        if (timeStamp == nullptr) {
            return E_POINTER;
        }
        m_timeStamp = *timeStamp;
        return S_OK;
    }
    HRESULT SignalWriteCompletion() override { return S_OK; }

    void keep() noexcept override { AddRef(); }
    void giveBack() noexcept override { Release(); }

protected:
    explicit PooledBuffer(MediaPool<Buffer>& pool) noexcept : m_pool(pool) {}

private:
    friend MediaPool<Buffer>;

    MediaPool<Buffer>& m_pool;
    std::atomic<ULONG> m_references{0};
};

class Surface final : public PooledBuffer<IKvSurface, Surface> {
public:
    explicit Surface(MediaPool<Surface>& pool) noexcept : PooledBuffer(pool) {}

    HRESULT Lock(std::uint32_t first, EKvFaceType face, SKvLockedSurfaceDescription* description) override {
        if (description == nullptr) {
            return E_POINTER;
        }
        if (first != 0 || face != keKvFaceTypeFront || description->m_size != sizeof *description) {
            return E_INVALIDARG;
        }
        description->m_bufferCapacity = m_size;
        description->m_buffer = m_memory.get();
        return S_OK;
    }

private:
    friend MediaPool<Surface>;
    void forget() noexcept {}
};

class AudioSamples final : public PooledBuffer<IKvAudioSamples, AudioSamples> {
public:
    explicit AudioSamples(MediaPool<AudioSamples>& pool) noexcept : PooledBuffer(pool) {}

    HRESULT AttachCustomObject(REFIID iid, IUnknown* object) override {
        if (iid != IID_IKvAACCodecConfigDataAccess) {
            return E_NOINTERFACE;
        }
        m_configuration = AacConfiguration::from(object);
        return m_configuration ? S_OK : E_INVALIDARG;
    }
    HRESULT GetBufferAndLength(std::uint8_t** buffer, std::uint32_t* length) override {
        if (buffer == nullptr || length == nullptr) {
            return E_POINTER;
        }
        *buffer = m_memory.get();
        *length = m_size;
        return S_OK;
    }
    [[nodiscard]] AacConfiguration* configuration() const noexcept override { return m_configuration.get(); }

private:
    friend MediaPool<AudioSamples>;
    void forget() noexcept { m_configuration.reset(); }

    Reference<AacConfiguration> m_configuration;
};

template <class Buffer>
class MediaPool {
public:
    // Buffers beyond these wait for nobody: they are freed as they come back.
    static constexpr std::size_t mostFree = 256;
    static constexpr std::uint64_t mostFreeBytes = 4U << 20U;
    static constexpr std::size_t alwaysKept = 2;

    MediaPool() { m_free.reserve(mostFree); }
    MediaPool(const MediaPool&) = delete;
    MediaPool& operator=(const MediaPool&) = delete;

    // A buffer of exactly `size` bytes with one reference; null without memory.
    [[nodiscard]] Buffer* lend(std::uint32_t size) noexcept {
        std::unique_ptr<Buffer> buffer = takeFree();
        if (buffer == nullptr) {
            buffer.reset(new (std::nothrow) Buffer(*this));
        }
        if (buffer == nullptr || !buffer->resize(size)) {
            return nullptr;
        }
        buffer->m_references = 1;
        return buffer.release();
    }

    void takeBack(Buffer* returned) noexcept {
        std::unique_ptr<Buffer> buffer(returned);
        buffer->forget();
        const std::lock_guard lock(m_lock);
        const bool isFew = m_free.size() < alwaysKept;
        const bool fits = m_free.size() < mostFree && m_freeBytes + buffer->capacity() <= mostFreeBytes;
        if (isFew || fits) {
            m_freeBytes += buffer->capacity();
            m_free.push_back(std::move(buffer)); // within what was reserved
        }
    }

    [[nodiscard]] std::size_t freeCount() const noexcept {
        const std::lock_guard lock(m_lock);
        return m_free.size();
    }

private:
    // The one that came back last: its memory is the likeliest to be in the cache.
    std::unique_ptr<Buffer> takeFree() noexcept {
        const std::lock_guard lock(m_lock);
        if (m_free.empty()) {
            return nullptr;
        }
        std::unique_ptr<Buffer> buffer = std::move(m_free.back());
        m_free.pop_back();
        m_freeBytes -= buffer->capacity();
        return buffer;
    }

    mutable std::mutex m_lock;
    std::vector<std::unique_ptr<Buffer>> m_free;
    std::uint64_t m_freeBytes = 0;
};

// What a run lends.
struct MediaPools {
    MediaPool<Surface> surfaces;
    MediaPool<AudioSamples> samples;
};

} // namespace KorvelVideo::Host
