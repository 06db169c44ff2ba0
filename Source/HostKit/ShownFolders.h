#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace corvid::hostkit {

/// Which folders are on the screen, counted: several extensions may show one. Not thread-safe.
///
/// It knows as many as fit into its bounds. While there are more, every folder counts as shown:
/// that costs pushes which nobody needs, but no badge that is on the screen becomes untrue.
class ShownFolders {
public:
    /// Folders that are known, and the bytes of their paths. One extension shows 1,024 for each of
    /// its front ends.
    static constexpr std::size_t kMaxFolders = 65'536;
    static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024 * 1024;

    /// True when nobody showed it before; false for one that is beyond the bounds.
    bool begin(const std::string& folder);
    /// True when nobody shows it any more; an end without a begin changes nothing.
    bool end(const std::string& folder);
    /// Forgets all, and returns what was shown.
    std::vector<std::string> clear();

    bool contains(std::string_view folder) const {
        return unknown_ > 0 || counts_.contains(folder);
    }

private:
    std::map<std::string, std::size_t, std::less<>> counts_;
    std::size_t bytes_ = 0;
    std::size_t unknown_ = 0; ///< begins beyond the bounds that were not ended yet
};

} // namespace corvid::hostkit
