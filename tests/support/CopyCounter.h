#pragma once

#include <cstdint>

// Counts the bytes that the calling thread copies with memcpy or memmove while the object lives, in code that
// the program links statically. A program that uses it links the target kv_copy_counter.
class CopyCounter {
public:
    CopyCounter() noexcept;
    [[nodiscard]] std::uint64_t bytes() const noexcept;

private:
    std::uint64_t m_start;
};
