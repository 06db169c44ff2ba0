#include "Core/Archive/KeyedArchive.h"

#include "Core/Archive/BinaryPropertyList.h"
#include "Core/Archive/KeyedArchiver.h"
#include "Core/Archive/KeyedUnarchiver.h"
#include "Core/Archive/Limits.h"
#include "Core/Archive/XMLPropertyList.h"

#include <utility>

namespace corvid {

Bytes archivedData(const Value& root) {
    return KeyedArchiver().archive(root);
}

std::optional<Value> unarchivedObject(ByteView archive, ArchiveError* error) {
    const bool isXML = !BinaryPropertyList::hasSignature(archive) && looksLikeXML(archive);
    bool isConverted = false;
    try {
        const Bytes converted = isXML ? binaryPropertyListFromXML(archive) : Bytes();
        isConverted = isXML;
        const BinaryPropertyList list(isXML ? converted : archive);
        const std::size_t memory =
            limits::kMemoryFactor * archive.size() + limits::kMemoryAllowance;
        return KeyedUnarchiver(list, memory - converted.capacity()).root();
    } catch (ArchiveRefusal& refusal) {
        if (isConverted && refusal.error.where == ArchiveError::Where::byte) {
            // The place is one in the converted list, which the caller never saw.
            refusal.error.at = 0;
        }
        if (error != nullptr) {
            *error = std::move(refusal.error);
        }
        return std::nullopt;
    }
}

} // namespace corvid
