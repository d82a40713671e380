#include "SystemSockets.h"

#include <algorithm>
#include <array>

#include "Sockets.h"

namespace KorvelVideo::NetworkSource {

struct DatagramBatch::Messages {
    std::array<std::size_t, kMaxDatagrams> lengths{};
    std::array<std::array<std::uint8_t, kMaxHeaderSize>, kMaxDatagrams> headers{};
    std::size_t stored = 0; // bytes of a datagram that go before the overflow area
    // Not initialised, so that the system gives memory only for the pages that are used.
    std::unique_ptr<std::uint8_t[]> overflow =
        std::make_unique_for_overwrite<std::uint8_t[]>(kMaxDatagrams * kMaxDatagramSize);
    std::unique_ptr<std::uint8_t[]> scratch =
        std::make_unique_for_overwrite<std::uint8_t[]>(kMaxDatagrams * kMaxDatagramSize);
};

namespace {

WSABUF makePiece(std::uint8_t* bytes, std::size_t size) noexcept {
    WSABUF piece{};
    piece.len = static_cast<ULONG>(size);
    piece.buf = reinterpret_cast<char*>(bytes);
    return piece;
}

} // namespace

DatagramBatch::DatagramBatch() : m_messages(std::make_unique<Messages>()) {}
DatagramBatch::~DatagramBatch() = default;

// One call for each datagram: the system has none that takes many.
std::size_t DatagramBatch::receive(DatagramSocket& socket, std::uint8_t* target, std::size_t headerSize,
                                   std::size_t slotSize, std::size_t count) noexcept {
    Messages& to = *m_messages;
    count = std::min(count, kMaxDatagrams);
    to.stored = headerSize + slotSize;
    const std::size_t first = headerSize == 0 ? 1 : 0;
    for (std::size_t index = 0; index < count; ++index) {
        std::array<WSABUF, 3> pieces{
            makePiece(to.headers[index].data(), headerSize), makePiece(target + index * slotSize, slotSize),
            makePiece(to.overflow.get() + index * kMaxDatagramSize, kMaxDatagramSize)};
        DWORD received = 0;
        DWORD flags = 0;
        if (WSARecv(systemSocket(socket.handle()), pieces.data() + first,
                    static_cast<DWORD>(pieces.size() - first), &received, &flags, nullptr, nullptr) != 0) {
            return index; // nothing there, or an error that is cleared by being reported
        }
        to.lengths[index] = received;
    }
    return count;
}

std::size_t DatagramBatch::length(std::size_t index) const noexcept { return m_messages->lengths[index]; }

std::span<const std::uint8_t, DatagramBatch::kMaxHeaderSize>
DatagramBatch::header(std::size_t index) const noexcept {
    return m_messages->headers[index];
}

std::span<const std::uint8_t> DatagramBatch::overflow(std::size_t index) const noexcept {
    const std::size_t whole = length(index);
    const std::size_t stored = m_messages->stored;
    return {m_messages->overflow.get() + index * kMaxDatagramSize, whole > stored ? whole - stored : 0};
}

std::uint8_t* DatagramBatch::scratch() noexcept { return m_messages->scratch.get(); }

} // namespace KorvelVideo::NetworkSource
