#pragma once

#include <CorvidHostKit/Export.h>

#include <stdexcept>

namespace corvid::hostkit {

/// What Host throws. The text names the thing, its value and the remedy, ready to be shown.
class CORVID_HOSTKIT_API Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~Error() override;
};

} // namespace corvid::hostkit
