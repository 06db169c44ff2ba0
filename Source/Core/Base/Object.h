#pragma once

namespace corvid {

/// The root of the few classes that a file manager hands about without knowing what they are: the
/// sender of a menu action and its target. Nothing but a virtual destructor, so that
/// `dynamic_cast` can tell what came.
class Object {
public:
    Object() = default;
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
};

} // namespace corvid
