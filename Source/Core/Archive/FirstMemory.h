#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory_resource>
#include <new>

namespace corvid {

/// Memory for the few vectors of one piece of work: the first `Size` bytes lie in this object, so
/// that a small message is read or written without a further allocation; what does not fit comes
/// from the heap and goes back there when it is released, so that a large one takes no more than it
/// needs. For types that `operator new` aligns well enough. One thread.
template <std::size_t Size>
class FirstMemory : public std::pmr::memory_resource {
public:
    FirstMemory() = default;
    FirstMemory(const FirstMemory&) = delete;
    FirstMemory& operator=(const FirstMemory&) = delete;

private:
    void* do_allocate(std::size_t size, std::size_t alignment) override {
        const std::size_t start = (used_ + alignment - 1) / alignment * alignment;
        if (start > Size || size > Size - start) {
            return ::operator new(size);
        }
        used_ = start + size;
        return bytes_.data() + start;
    }
    void do_deallocate(void* memory, std::size_t size, std::size_t) override {
        const auto* const byte = static_cast<std::byte*>(memory);
        const bool isOurs = std::greater_equal<>()(byte, bytes_.data()) &&
                            std::less<>()(byte, bytes_.data() + Size);
        if (!isOurs) {
            ::operator delete(memory, size);
        }
    }
    bool do_is_equal(const memory_resource& other) const noexcept override {
        return this == &other;
    }

    alignas(std::max_align_t) std::array<std::byte, Size> bytes_; // Not initialised.
    std::size_t used_ = 0;
};

} // namespace corvid
