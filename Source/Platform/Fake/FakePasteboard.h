#pragma once

#include "Platform/Fake/CallLog.h"
#include "Platform/Interfaces/Pasteboard.h"

namespace corvid {

/// Records `declareStringType` and `setString TEXT`. Any thread.
class FakePasteboard final : public Pasteboard {
public:
    /// Records into `calls`, which must outlive it.
    explicit FakePasteboard(CallLog& calls) : calls_(calls) {}
    void declareStringType() override;
    void setString(std::string_view text) override;

private:
    CallLog& calls_;
};

} // namespace corvid
