#include "Tests/Support/TemporaryFolder.h"

#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace corvid {

TemporaryFolder::TemporaryFolder()
    : path_(std::filesystem::canonical(std::filesystem::temp_directory_path()) / "corvid-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("cannot make " + path_);
    }
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

} // namespace corvid
