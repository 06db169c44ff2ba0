#pragma once

#include <string_view>

namespace corvid {

/// The general pasteboard (`NSPasteboard`). Main thread.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;
    /// Declares the one type "string" with no owner, which clears what was there.
    virtual void declareStringType() = 0;
    virtual void setString(std::string_view text) = 0;
};

} // namespace corvid
