#pragma once

#include "Core/Archive/ArchiveError.h"
#include "Core/Base/Bytes.h"

#include <string>
#include <vector>

namespace corvid {

/// An archive that is wrong in one way, and the error that names it.
struct BrokenArchive {
    std::string name;
    Bytes bytes;
    ArchiveError error;
};

/// One for each way to be wrong that the readers tell apart.
std::vector<BrokenArchive> brokenArchives();

/// A keyed archive in XML whose objects are `objects`, each an element, "$null" first.
/// "@5" in it becomes a reference to object 5.
std::string archiveXML(const std::string& objects, const std::string& root = "@1");

/// A property list of `values`, each given by its bytes, with references and offsets of two bytes.
Bytes rawPropertyList(const std::vector<std::string>& values, unsigned top);

} // namespace corvid
