// SPDX-License-Identifier: Apache-2.0
// Opening and closing the library.
#include <dlfcn.h>
#include <elf.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Library.h"

namespace checker {
namespace {

/** A library may let its threads run out for so long. */
constexpr double kThreadPatienceMs = 1000;

struct Export {
    std::string name;
    bool isFunction;
    bool isUnique; /**< Keeps the library in memory for ever. */
};

/** The dynamic symbols that the library's file defines; throws std::out_of_range when it lies. */
std::vector<Export> exportsOf(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    const std::string file{std::istreambuf_iterator<char>(stream), {}};
    const auto read = [&file](size_t offset, auto record) {
        file.copy(reinterpret_cast<char*>(&record), sizeof record, offset);
        return record;
    };
    const auto header = read(0, Elf64_Ehdr{});
    std::vector<Export> exports;
    for (size_t i = 0; i < header.e_shnum; ++i) {
        const auto table = read(header.e_shoff + i * sizeof(Elf64_Shdr), Elf64_Shdr{});
        const size_t size = table.sh_type == SHT_DYNSYM ? table.sh_size : 0;
        const auto names = read(header.e_shoff + table.sh_link * sizeof(Elf64_Shdr), Elf64_Shdr{});
        for (size_t at = 0; at < size; at += sizeof(Elf64_Sym)) {
            const auto symbol = read(table.sh_offset + at, Elf64_Sym{});
            const auto binding = ELF64_ST_BIND(symbol.st_info);
            if (symbol.st_shndx != SHN_UNDEF && binding != STB_LOCAL) {
                exports.push_back({&file.at(names.sh_offset + symbol.st_name),
                                   ELF64_ST_TYPE(symbol.st_info) == STT_FUNC,
                                   binding == STB_GNU_UNIQUE});
            }
        }
    }
    return exports;
}

bool isEntry(const std::string& name) {
    return std::find(kEntries.begin(), kEntries.end(), name) != kEntries.end();
}

ptrdiff_t threadCount() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::distance(begin(threads), end(threads));
}

}  // namespace

void checkOpen(const Settings& settings) {
    const Stopwatch stopwatch;
    const Library library(settings);
    note("loaded in " + oneDecimal(stopwatch.milliseconds()) + " ms");
}

void checkEntries(const Settings& settings) {
    const Library library(settings);
    for (const char* entry : kEntries) {
        if (library.find(entry) == nullptr) {
            fail(entry + std::string(" is not exported"));
        }
    }
    for (const Export& symbol : exportsOf(settings.library)) {
        if (isEntry(symbol.name) && !symbol.isFunction) {
            fail(symbol.name + " is not a function");
        }
    }
}

void checkExports(const Settings& settings) {
    // The linker adds some to every library.
    const std::string linkers = " _init _fini _edata _end __bss_start ";
    for (const Export& symbol : exportsOf(settings.library)) {
        if (symbol.isUnique) {
            warn("cannot be unloaded for its unique symbol " + symbol.name);
        } else if (!isEntry(symbol.name) &&
                   linkers.find(" " + symbol.name + " ") == std::string::npos) {
            warn("also exports " + symbol.name);
        }
    }
}

void checkThreadsGone(const Settings& settings) {
    const ptrdiff_t before = threadCount();
    Library library(settings);
    library.start();
    const Frame frame({1280, 720, 1344});
    library.mustEnhance(frame);
    note("has up to " + std::to_string(threadCount() - before) + " threads of its own");
    library.end();
    const Stopwatch stopwatch;
    const bool isAtOnce = threadCount() <= before;
    while (threadCount() > before && stopwatch.milliseconds() < kThreadPatienceMs) {
        pause(5);
    }
    if (const ptrdiff_t left = threadCount() - before; left > 0) {
        fail("after AisrDeinit, threads of the library are left: " + std::to_string(left));
    } else if (!isAtOnce) {
        warn("the last thread ended " + oneDecimal(stopwatch.milliseconds()) +
             " ms after AisrDeinit had returned");
    }
}

void checkUnload(const Settings& settings) {
    for (const char* when : {"unused", "after a frame"}) {
        Library library(settings);
        if (when[0] == 'a') {
            library.start();
            const Frame frame({1280, 720, 1344});
            library.mustEnhance(frame);
            library.end();
        }
        library.close();
        if (dlopen(settings.library.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr) {
            warn("stays loaded, " + std::string(when));
            return;
        }
    }
}

}  // namespace checker
