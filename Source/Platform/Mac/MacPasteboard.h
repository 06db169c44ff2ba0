#pragma once

#include "Platform/Interfaces/Pasteboard.h"

namespace corvid {

/// `+[NSPasteboard generalPasteboard]`.
class MacPasteboard final : public Pasteboard {
public:
    void declareStringType() override;
    void setString(std::string_view text) override;
};

} // namespace corvid
