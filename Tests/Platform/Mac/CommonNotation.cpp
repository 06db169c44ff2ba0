#include "Tests/Platform/Mac/CommonNotation.h"

#include "Support/ArchiveNotation.h"

#include <algorithm>

namespace corvid {

namespace {

using Json = nlohmann::json; // With the keys of dictionaries in order, whoever wrote them.

void dropDifferences(Json& notation) {
    if (notation.contains("keyEquivalent")) {
        for (const char* key : {"hidden", "alternate", "attributedTitle"}) {
            notation.erase(key);
        }
        if (notation["separator"] == true) {
            notation.erase("title");
        }
        if (Json& submenu = notation["submenu"]; !submenu.is_null()) {
            submenu.erase("title");
            submenu.erase("autoenables");
            notation["action"] = "submenuAction:";
        }
    }
    if (notation.contains("$set")) {
        std::sort(notation["$set"].begin(), notation["$set"].end());
    }
    if (notation.is_structured()) {
        for (Json& part : notation) {
            dropDifferences(part);
        }
    }
}

} // namespace

std::string commonNotation(const Value& value) {
    std::string problem;
    const auto notation = notationOf(value, problem);
    if (!notation) {
        return problem;
    }
    Json common = *notation;
    dropDifferences(common);
    return common.dump(1);
}

} // namespace corvid
