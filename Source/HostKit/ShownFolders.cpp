#include "HostKit/ShownFolders.h"

namespace corvid::hostkit {

bool ShownFolders::begin(const std::string& folder) {
    return ++counts_[folder] == 1;
}

bool ShownFolders::end(const std::string& folder) {
    const auto found = counts_.find(folder);
    if (found == counts_.end() || --found->second > 0) {
        return false;
    }
    counts_.erase(found);
    return true;
}

std::vector<std::string> ShownFolders::clear() {
    std::vector<std::string> folders;
    folders.reserve(counts_.size());
    for (const auto& [folder, count] : counts_) {
        folders.push_back(folder);
    }
    counts_.clear();
    return folders;
}

} // namespace corvid::hostkit
