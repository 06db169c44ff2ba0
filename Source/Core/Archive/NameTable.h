#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace corvid {

/// Finds a name in a fixed list by one comparison: a perfect hash, made by the compiler. Names have
/// four characters or more. Any thread.
template <std::size_t Count>
class NameTable {
public:
    /// What find() gives for a text that is not in the list.
    static constexpr std::size_t kNone = Count;

    /// Does not compile when names are equal, or alike in length and end.
    consteval explicit NameTable(const std::array<std::string_view, Count>& names) : names_(names) {
        for (std::size_t place = 0; place < Count; ++place) {
            ends_[place] = Ends(names[place]);
        }
        while (!fillSlots()) {
            factor_ += 0x9E3779B97F4A7C16; // Some other odd number.
        }
    }

    /// The place of `text` in the list.
    constexpr std::size_t find(std::string_view text) const {
        if (text.size() < kShortest) {
            return kNone;
        }
        const Ends ends(text);
        const std::size_t place = slots_[slot(ends)];
        // The ends meet, or overlap, in all but the longest names.
        return ends_[place] == ends && (text.size() <= 2 * kWord || names_[place] == text) ? place
                                                                                           : kNone;
    }

    constexpr std::string_view operator[](std::size_t place) const { return names_[place]; }

private:
    static_assert(Count < 0xFF);
    static constexpr std::size_t kShortest = 4;
    static constexpr std::size_t kWord = 8;
    static constexpr unsigned kSlotBits = 8;

    /// The first and the last word of a text, which are words of four bytes in a short one.
    struct Ends {
        constexpr Ends() = default;
        constexpr explicit Ends(std::string_view text) : size(text.size()) {
            const char* const start = text.data();
            const char* const end = start + size;
            if (size >= kWord) {
                first = load<std::uint64_t>(start);
                last = load<std::uint64_t>(end - kWord);
            } else {
                first = load<std::uint32_t>(start);
                last = load<std::uint32_t>(end - kShortest);
            }
        }
        friend constexpr bool operator==(const Ends&, const Ends&) = default;

        std::size_t size = 0;
        std::uint64_t first = 0;
        std::uint64_t last = 0;
    };

    template <class Word>
    static constexpr Word load(const char* bytes) {
        Word word = 0;
        if (std::is_constant_evaluated()) {
            for (std::size_t i = sizeof(Word); i-- > 0;) {
                word = word << 8U | static_cast<unsigned char>(bytes[i]);
            }
        } else {
            std::memcpy(&word, bytes, sizeof(Word));
        }
        return word;
    }

    // Names of one family begin alike: what tells them apart is the length and the end.
    constexpr std::size_t slot(const Ends& ends) const {
        return ((ends.last ^ ends.size) * factor_) >> (64U - kSlotBits);
    }

    consteval bool fillSlots() {
        for (std::uint8_t& slot : slots_) {
            slot = kNone;
        }
        for (std::size_t place = 0; place < Count; ++place) {
            std::uint8_t& taken = slots_[slot(ends_[place])];
            if (taken != kNone) {
                return false;
            }
            taken = static_cast<std::uint8_t>(place);
        }
        return true;
    }

    std::array<std::string_view, Count> names_;
    std::array<Ends, Count + 1> ends_{}; ///< behind the names', what no text equals
    std::array<std::uint8_t, std::size_t{1} << kSlotBits> slots_{};
    std::uint64_t factor_ = 0x9E3779B97F4A7C15;
};

} // namespace corvid
