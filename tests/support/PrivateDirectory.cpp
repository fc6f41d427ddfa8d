// SPDX-License-Identifier: Apache-2.0
// Every test program has a runtime directory of its own, so that programs may run side by side.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

namespace {

class PrivateDirectory : public testing::Environment {
public:
    void SetUp() override {
        ASSERT_NE(mkdtemp(mPath.data()), nullptr) << mPath;
        setenv("DISPLAYENGINE_RUNTIME_DIR", mPath.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(mPath); }

private:
    std::string mPath = std::filesystem::temp_directory_path() / "displayengine-test-XXXXXX";
};

[[maybe_unused]] const testing::Environment* const kEnvironment =
    testing::AddGlobalTestEnvironment(new PrivateDirectory);

}  // namespace
