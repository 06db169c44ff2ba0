#pragma once

#import <Foundation/Foundation.h>

#include <utility>

namespace corvid {

/// Owns one reference to an Objective-C object, or holds nil. Means the same with and without
/// automatic reference counting, so that the code that uses it compiles both ways. Not
/// thread-safe itself; the reference count is.
template <class T>
class Retained {
public:
    Retained() = default;

    /// Takes over the reference that `alloc`, `new` or `copy` gave the caller.
    static Retained adopt(T* object) {
        Retained owner;
        owner.object_ = object;
        return owner;
    }

    /// Adds a reference of its own.
#if __has_feature(objc_arc)
    static Retained share(T* object) { return adopt(object); }

    T* get() const { return object_; }
    /// An object that outlives this owner until the caller's pool is drained.
    T* autoreleased() const { return object_; }
#else
    static Retained share(T* object) { return adopt([object retain]); }

    Retained(const Retained& other) : object_([other.object_ retain]) {}
    Retained(Retained&& other) noexcept : object_(std::exchange(other.object_, nil)) {}
    Retained& operator=(Retained other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Retained() { [object_ release]; }

    T* get() const { return object_; }
    /// An object that outlives this owner until the caller's pool is drained.
    T* autoreleased() const { return [[object_ retain] autorelease]; }
#endif

private:
    T* object_ = nil;
};

} // namespace corvid
