// A keyed archive from a stranger. What is taken must be written so that it is taken again, and
// the second time give the same bytes.

#include "Core/Archive/KeyedArchive.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvid;
    const auto value = unarchivedObject({data, size});
    if (!value) {
        return 0;
    }
    const Bytes archive = archivedData(*value);
    const auto again = unarchivedObject(archive);
    if (!again || archivedData(*again).size() > archive.size()) {
        std::abort();
    }
    return 0;
}
