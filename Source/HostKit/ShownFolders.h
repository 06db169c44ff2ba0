#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::hostkit {

/// Which folders are on the screen, counted: several extensions may show one. Not thread-safe.
class ShownFolders {
public:
    /// True when nobody showed it before.
    bool begin(const std::string& folder);
    /// True when nobody shows it any more; an end without a begin changes nothing.
    bool end(const std::string& folder);
    /// Forgets all, and returns what was shown.
    std::vector<std::string> clear();

    bool contains(std::string_view folder) const { return counts_.contains(folder); }

private:
    std::map<std::string, std::size_t, std::less<>> counts_;
};

} // namespace corvid::hostkit
