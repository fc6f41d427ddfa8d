// SPDX-License-Identifier: Apache-2.0
// Makes the dynamic loader behave as on a device where a caller can notice: the wording for a
// missing library, and the folder of the system's libraries. The client library is linked with the
// linker's
// --wrap option, which turns its calls of dlopen and dlerror into these.

#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "NoMemory.h"

namespace {

constexpr char kSystemLibraries[] = "/system/lib64/";

// Two of the longest paths and some words around them.
constexpr size_t kErrorLength = 2 * 4096 + 256;

// Plain arrays, because the engine still asks for the text while the process exits, after the
// destructors of thread-local objects.
thread_local char tError[kErrorLength];
thread_local bool tErrorPending = false;

/** Where the library that the device knows as `name` lies on this machine. */
std::string locate(const char* name) {
    const char* root = std::getenv("DISPLAYENGINE_SYSTEM_ROOT");
    const bool system = std::strncmp(name, kSystemLibraries, sizeof kSystemLibraries - 1) == 0;
    return system && root != nullptr ? std::string(root) + name : std::string(name);
}

/**
 * Whether the loader's text says that the file `path` itself is not there. The text of a missing
 * dependency begins with the dependency's name instead, and every other failure ends differently.
 * Both ends are compared because the words between them depend on the locale.
 */
bool saysMissing(const std::string& text, const std::string& path) {
    const std::string begin = path + ": ";
    const std::string end = std::string(": ") + std::strerror(ENOENT);
    return text.size() > begin.size() + end.size() && text.compare(0, begin.size(), begin) == 0 &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

void* openLibrary(const char* name, int flags) {
    const std::string path = locate(name);
    void* handle = dlopen(path.c_str(), flags);
    if (handle == nullptr) {
        const char* text = dlerror();
        if (text != nullptr && saysMissing(text, path)) {
            std::snprintf(tError, sizeof tError, "dlopen failed: library \"%s\" not found", name);
        } else {
            std::snprintf(tError, sizeof tError, "%s", text != nullptr ? text : "dlopen failed");
        }
    }
    return handle;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker chooses these names.
extern "C" void* __wrap_dlopen(const char* name, int flags) {
    void* handle = nullptr;
    const android::status_t status = android::orNoMemory([&handle, name, flags] {
        handle = name != nullptr ? openLibrary(name, flags) : dlopen(nullptr, flags);
    });
    if (status != android::OK) {
        std::snprintf(tError, sizeof tError, "dlopen failed: out of memory");
    }
    tErrorPending = handle == nullptr && name != nullptr;
    return handle;
}

extern "C" char* __wrap_dlerror() {
    // dlopen's own text has been taken out of the loader, so what is left there is newer.
    char* newer = dlerror();
    const bool pending = tErrorPending;
    tErrorPending = false;
    return newer != nullptr ? newer : pending ? tError : nullptr;
}
// NOLINTEND(bugprone-reserved-identifier)
