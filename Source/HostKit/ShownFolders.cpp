#include "HostKit/ShownFolders.h"

namespace corvid::hostkit {

bool ShownFolders::begin(const std::string& folder) {
    if (const auto found = counts_.find(folder); found != counts_.end()) {
        ++found->second;
        return false;
    }
    if (counts_.size() >= kMaxFolders || folder.size() > kMaxBytes - bytes_) {
        ++unknown_;
        return false;
    }
    counts_.emplace(folder, 1);
    bytes_ += folder.size();
    return true;
}

bool ShownFolders::end(const std::string& folder) {
    const auto found = counts_.find(folder);
    if (found == counts_.end()) {
        unknown_ -= unknown_ > 0 ? 1U : 0U;
        return false;
    }
    if (--found->second > 0) {
        return false;
    }
    counts_.erase(found);
    bytes_ -= folder.size();
    return true;
}

std::vector<std::string> ShownFolders::clear() {
    std::vector<std::string> folders;
    folders.reserve(counts_.size());
    for (const auto& [folder, count] : counts_) {
        folders.push_back(folder);
    }
    counts_.clear();
    bytes_ = 0;
    unknown_ = 0;
    return folders;
}

} // namespace corvid::hostkit
