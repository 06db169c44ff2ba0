// A property list from a stranger, read for what it says by itself.

#include "Core/Archive/PropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvid::ArchiveError error;
    const auto value = corvid::propertyListValue({data, size}, &error);
    if (!value && (error.message().empty() || error.at > size)) {
        std::abort();
    }
    return 0;
}
