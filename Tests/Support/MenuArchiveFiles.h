#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace corvid {

/// A folder of replies with menus as keyed archives (`NAME.plist`), each with what it holds
/// (`NAME.json`), for tests that run over all of them.
struct MenuArchiveFiles {
    const char* name;    ///< in the names of tests
    const char* data;    ///< the folder of test data that it is in; empty when that is not there
    const char* below;   ///< where it is in there
    std::size_t howMany; ///< how many archives it has

    /// The archives, sorted; none where the data is not there. Fails the test when some are
    /// missing.
    std::vector<std::filesystem::path> files() const {
        std::vector<std::filesystem::path> files;
        if (*data == '\0') {
            return files;
        }
        for (const auto& entry : std::filesystem::directory_iterator(std::string(data) + below)) {
            if (entry.path().extension() == ".plist") {
                files.push_back(entry.path());
            }
        }
        EXPECT_EQ(files.size(), howMany) << data << below;
        std::ranges::sort(files);
        return files;
    }
};

/// What GoogleTest prints of one.
inline void PrintTo(const MenuArchiveFiles& files, std::ostream* out) {
    *out << files.name;
}

/// The project's own, and those made from compiled interface files, which are extra data.
inline constexpr MenuArchiveFiles kMenuArchives[] = {
    {"Own", CORVID_TEST_DATA, "/menus", 10},
    {"FromInterfaceFiles", CORVID_EXTRA_TEST_DATA, "/archives/menus", 30},
};

inline std::string nameOfMenuArchives(const testing::TestParamInfo<MenuArchiveFiles>& info) {
    return info.param.name;
}

} // namespace corvid
