// SPDX-License-Identifier: Apache-2.0
#include "support/RuntimeDirectory.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace bench {

namespace {

char gDirectory[] = "/tmp/displayengine-bench-XXXXXX";

void removeDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(gDirectory, ignored);
}

}  // namespace

void useRuntimeDirectory() {
    if (mkdtemp(gDirectory) == nullptr) {
        std::perror(gDirectory);
        std::exit(2);
    }
    setenv("DISPLAYENGINE_RUNTIME_DIR", gDirectory, 1);
    std::atexit(&removeDirectory);
}

}  // namespace bench
