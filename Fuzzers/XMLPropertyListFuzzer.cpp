// An XML property list from a stranger. What is taken must be a good binary one.

#include "Core/Archive/BinaryPropertyList.h"
#include "Core/Archive/KeyedArchive.h"
#include "Core/Archive/PropertyList.h"
#include "Core/Archive/XMLPropertyList.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvid;
    Bytes binary;
    try {
        binary = binaryPropertyListFromXML({data, size});
    } catch (const ArchiveRefusal& refusal) {
        if (refusal.error.at > size) {
            std::abort();
        }
        return 0;
    }
    const BinaryPropertyList list(binary);
    if (list.top() >= list.valueCount()) {
        std::abort();
    }
    propertyListValue(binary);
    unarchivedObject({data, size});
    return 0;
}
