#pragma once

#include "Platform/Unix/RuntimeFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace corvid {

/// A folder of its own for ports and volume files, which this process and its children use, and a
/// folder to serve.
class RuntimeFolderFixture : public ::testing::Test {
protected:
    RuntimeFolderFixture() {
        std::string name = (std::filesystem::temp_directory_path() / "corvid-host-XXXXXX").string();
        top_ = std::filesystem::canonical(mkdtemp(name.data()));
        setenv("XDG_RUNTIME_DIR", top_.c_str(), 1);
        volume_ = (top_ / "volume").string();
        std::filesystem::create_directory(volume_);
    }
    ~RuntimeFolderFixture() override {
        std::error_code ignored;
        std::filesystem::remove_all(top_, ignored);
    }

    static RuntimeFolder runtimeFolder() { return RuntimeFolder::ofThisUser(); }

    std::filesystem::path top_;
    std::string volume_;
};

} // namespace corvid
