// SPDX-License-Identifier: Apache-2.0
// Every test program has a runtime directory of its own, so that programs may run side by side.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace {

class PrivateDirectory : public testing::Environment {
public:
    void SetUp() override {
        std::string path =
            (std::filesystem::temp_directory_path() / "displayengine-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no temporary directory: " + path);
        }
        mPath = path;
        setenv("DISPLAYENGINE_RUNTIME_DIR", path.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(mPath); }

private:
    std::filesystem::path mPath;
};

[[maybe_unused]] const testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new PrivateDirectory);

}  // namespace
