#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <new>
#include <vector>

namespace corvid {

/// Memory for the few vectors of one piece of work: the first bytes lie in this object, so that a
/// small message is read or written without a further allocation; what does not fit comes from the
/// heap and goes back there when it is released, so that a large one takes no more than it needs.
/// One thread. No std::pmr::memory_resource, whose calls cannot be inlined.
class FirstMemory {
public:
    FirstMemory(const FirstMemory&) = delete;
    FirstMemory& operator=(const FirstMemory&) = delete;

    /// For types that `operator new` aligns well enough; throws std::bad_alloc as that does.
    void* allocate(std::size_t size, std::size_t alignment) {
        const std::size_t start = (used_ + alignment - 1) & ~(alignment - 1);
        if (start > size_ || size > size_ - start) {
            return ::operator new(size);
        }
        used_ = start + size;
        return bytes_ + start;
    }
    void deallocate(void* memory, std::size_t size) noexcept {
        const auto* const byte = static_cast<std::byte*>(memory);
        const bool isOurs =
            std::greater_equal<>()(byte, bytes_) && std::less<>()(byte, bytes_ + size_);
        if (!isOurs) {
            ::operator delete(memory, size);
        }
    }

protected:
    FirstMemory() = default;
    ~FirstMemory() = default;
    void begin(std::byte* bytes, std::size_t size) {
        bytes_ = bytes;
        size_ = size;
    }

private:
    std::byte* bytes_ = nullptr;
    std::size_t size_ = 0;
    std::size_t used_ = 0;
};

/// One with its first `Size` bytes.
template <std::size_t Size>
class FirstMemoryOf : public FirstMemory {
public:
    FirstMemoryOf() { begin(bytes_.data(), Size); }

private:
    alignas(std::max_align_t) std::array<std::byte, Size> bytes_; // Not initialised.
};

/// What a container takes its memory from; the FirstMemory outlives it.
template <class T>
class FirstAllocator {
public:
    using value_type = T; // NOLINT(readability-identifier-naming): the library's

    FirstAllocator(FirstMemory& memory) : memory_(&memory) {}
    template <class Other>
    FirstAllocator(const FirstAllocator<Other>& other) : memory_(&other.memory()) {}

    T* allocate(std::size_t count) {
        static_assert(alignof(T) <= alignof(std::max_align_t));
        return static_cast<T*>(memory_->allocate(count * sizeof(T), alignof(T)));
    }
    void deallocate(T* memory, std::size_t count) noexcept {
        memory_->deallocate(memory, count * sizeof(T));
    }

    FirstMemory& memory() const { return *memory_; }
    friend bool operator==(const FirstAllocator&, const FirstAllocator&) = default;

private:
    FirstMemory* memory_;
};

template <class T>
using FirstVector = std::vector<T, FirstAllocator<T>>;

} // namespace corvid
