#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>

namespace corvid {

/// A set of log levels, one bit each. Any 32-bit value is one; bits that have no name are carried
/// along. The operations are those of an option set in the platform's own language.
class LogFlags {
public:
    static const LogFlags error;
    static const LogFlags warn;
    static const LogFlags info;
    static const LogFlags debug;
    static const LogFlags verbose;

    constexpr LogFlags() = default;
    constexpr explicit LogFlags(std::int32_t rawValue) : rawValue_(rawValue) {}
    /// The union of `members`.
    constexpr LogFlags(std::initializer_list<LogFlags> members) {
        for (const LogFlags member : members) {
            rawValue_ |= member.rawValue_;
        }
    }

    constexpr std::int32_t rawValue() const { return rawValue_; }
    constexpr bool isEmpty() const { return rawValue_ == 0; }
    friend constexpr bool operator==(LogFlags, LogFlags) = default;

    /// True when all bits of `member` are in this set, which those of the empty set are.
    constexpr bool contains(LogFlags member) const { return member.isSubset(*this); }
    constexpr bool isSubset(LogFlags other) const { return intersection(other) == *this; }
    constexpr bool isSuperset(LogFlags other) const { return other.isSubset(*this); }
    constexpr bool isStrictSubset(LogFlags other) const {
        return isSubset(other) && *this != other;
    }
    constexpr bool isStrictSuperset(LogFlags other) const { return other.isStrictSubset(*this); }
    constexpr bool isDisjoint(LogFlags other) const { return intersection(other).isEmpty(); }

    // A `union` is a keyword here, hence the two names with "form".
    constexpr LogFlags unionWith(LogFlags other) const {
        return LogFlags(rawValue_ | other.rawValue_);
    }
    constexpr LogFlags intersection(LogFlags other) const {
        return LogFlags(rawValue_ & other.rawValue_);
    }
    constexpr LogFlags symmetricDifference(LogFlags other) const {
        return LogFlags(rawValue_ ^ other.rawValue_);
    }
    constexpr LogFlags subtracting(LogFlags other) const {
        return LogFlags(rawValue_ & ~other.rawValue_);
    }
    constexpr void formUnion(LogFlags other) { *this = unionWith(other); }
    constexpr void formIntersection(LogFlags other) { *this = intersection(other); }
    constexpr void formSymmetricDifference(LogFlags other) { *this = symmetricDifference(other); }
    constexpr void subtract(LogFlags other) { *this = subtracting(other); }

    struct Insertion {
        bool inserted; ///< false when all bits were there already
        std::int32_t memberAfterInsert;
    };
    constexpr Insertion insert(LogFlags member) {
        const bool inserted = !contains(member);
        formUnion(member);
        return {inserted, member.rawValue_};
    }
    /// Takes the bits of `member` away; returns those that were there, nothing if none was.
    constexpr std::optional<LogFlags> remove(LogFlags member) {
        const LogFlags removed = intersection(member);
        subtract(member);
        return removed.isEmpty() ? std::nullopt : std::optional<LogFlags>(removed);
    }
    /// Adds the bits of `member`; returns those that were there already, nothing if none was.
    constexpr std::optional<LogFlags> update(LogFlags member) {
        const LogFlags present = intersection(member);
        formUnion(member);
        return present.isEmpty() ? std::nullopt : std::optional<LogFlags>(present);
    }

private:
    std::int32_t rawValue_ = 0;
};

inline constexpr LogFlags LogFlags::error(1);
inline constexpr LogFlags LogFlags::warn(2);
inline constexpr LogFlags LogFlags::info(4);
inline constexpr LogFlags LogFlags::debug(8);
inline constexpr LogFlags LogFlags::verbose(16);

} // namespace corvid
