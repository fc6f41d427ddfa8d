// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace android;
namespace fs = std::filesystem;

// What the client library's calls of the loader are linked to.
extern "C" void* __wrap_dlopen(const char* name, int flags);
extern "C" char* __wrap_dlerror();

namespace {

/** A directory of this test program's own. */
fs::path folder() {
    return getenv("DISPLAYENGINE_RUNTIME_DIR");
}

void writeFile(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(Strings, ConvertBothWaysAndReplaceWhatIsBroken) {
    struct Case {
        std::string utf8;
        std::u16string utf16;
        std::string back;
    };
    const std::string bad = "\xEF\xBF\xBD";
    const Case cases[] = {
        {"", u"", ""},
        {std::string("a\0b", 3), std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
        {"\xC3\xA9\xE4\xB8\xAD", u"\u00E9\u4E2D", "\xC3\xA9\xE4\xB8\xAD"},
        {"\xF0\x9F\x98\x80", u"\U0001F600", "\xF0\x9F\x98\x80"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF", "\xF4\x8F\xBF\xBF"},
        {"a\xF0\x9F\x98", u"a\uFFFD", "a" + bad},                  // cut off
        {"\xE4\xB8z", u"\uFFFDz", bad + "z"},                      // interrupted
        {"\xC0\xAFz", u"\uFFFD\uFFFDz", bad + bad + "z"},          // overlong
        {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD", bad + bad + bad},  // a surrogate
        {"\x80", u"\uFFFD", bad},
    };
    for (const Case& c : cases) {
        const String16 wide(c.utf8.data(), c.utf8.size());
        EXPECT_EQ(std::u16string(wide.c_str(), wide.size()), c.utf16) << c.utf8;
        const String8 narrow(wide);
        EXPECT_EQ(std::string(narrow.c_str(), narrow.size()), c.back) << c.utf8;
    }
    const char16_t unpaired[] = {0xDE00, 0xDE00, 0xD83D, 'b', 0xD83D, 0xD83D, 0xDE00, 0xD83D};
    EXPECT_EQ(String8(unpaired, std::size(unpaired)),
              String8((bad + bad + bad + "b" + bad + "\xF0\x9F\x98\x80" + bad).c_str()));
    // What would complete a sequence lies behind the end.
    EXPECT_EQ(String16("\xC3\xA9", 1), String16(u"\uFFFD"));
    EXPECT_EQ(String8(u"\U0001F600", 1), String8(bad.c_str()));
    EXPECT_TRUE(String16(static_cast<const char*>(nullptr)).empty());
}

TEST(Properties, ReadAsBooleansFromTheProcessAndTheSharedFile) {
    const auto readAs = [](const char* value, int8_t fallback) {
        EXPECT_EQ(property_set("test.flag", value), 0);
        return property_get_bool("test.flag", fallback);
    };
    for (const char* yes : {"1", "y", "yes", "on", "true"}) {
        EXPECT_EQ(readAs(yes, 0), 1) << yes;
    }
    for (const char* no : {"0", "n", "no", "off", "false"}) {
        EXPECT_EQ(readAs(no, 1), 0) << no;
    }
    for (const char* neither : {"2", "True", "yes!", "11", ""}) {
        EXPECT_EQ(readAs(neither, 0), 0) << neither;
        EXPECT_EQ(readAs(neither, 1), 1) << neither;
    }
    EXPECT_EQ(property_set("", "1"), -1);
    EXPECT_EQ(property_set("test.long", std::string(PROPERTY_VALUE_MAX, '1').c_str()), -1);

    setenv("DISPLAYENGINE_PROPERTIES", (folder() / "properties").c_str(), 1);
    EXPECT_EQ(property_get_bool("test.shared", 0), 0);  // no such file yet
    writeFile(folder() / "properties",
              "# test.shared=0\n test.shared = on \r\nno equals\ntest.flag=1");
    EXPECT_EQ(property_get_bool("test.shared", 0), 1);
    EXPECT_EQ(property_get_bool("test.flag", 0), 0);  // the process's own empty value counts first
    writeFile(folder() / "properties", "test.shared=1\ntest.shared=0\n");
    EXPECT_EQ(property_get_bool("test.shared", 1), 0);
}

TEST(Log, HandsOverWholeTexts) {
    static std::string collected;
    __android_log_set_logger([](const __android_log_message* message) {
        collected = std::to_string(message->priority) + message->tag + ":" + message->message;
        errno = 0;
    });
    for (const size_t size : {size_t{0}, size_t{1023}, size_t{1024}, size_t{200000}}) {
        const std::string text(size, 'x');
        errno = ENOENT;
        EXPECT_EQ(__android_log_print(ANDROID_LOG_WARN, "tag", "%s", text.c_str()), 1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(collected, "5tag:" + text);
    }
    __android_log_set_logger(nullptr);
}

TEST(Log, WritesWholeLinesToStandardError) {
    constexpr int kThreads = 4;
    constexpr int kLines = 50;
    constexpr size_t kLength = 9000;  // more than a pipe takes without mixing
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int standardError = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    std::string written;
    std::thread reader([&written, end = ends[0]] {
        char part[4096];
        for (ssize_t count = 0; (count = read(end, part, sizeof part)) > 0;) {
            written.append(part, static_cast<size_t>(count));
        }
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([text = std::string(kLength, static_cast<char>('a' + i))] {
            for (int line = 0; line < kLines; ++line) {
                __android_log_print(ANDROID_LOG_INFO, "tag", "%s", text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    dup2(standardError, STDERR_FILENO);
    close(standardError);
    reader.join();
    close(ends[0]);

    std::istringstream output(written);
    const std::regex form(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +)" + std::to_string(getpid()) +
                          R"( +\d+ I tag: )");
    int lines = 0;
    for (std::string line; std::getline(output, line); ++lines) {
        ASSERT_GT(line.size(), kLength);
        const std::string text = line.substr(line.size() - kLength);
        EXPECT_TRUE(std::regex_match(line.substr(0, line.size() - kLength), form));
        EXPECT_EQ(text, std::string(kLength, text[0]));
    }
    EXPECT_EQ(lines, kThreads * kLines);
}

/** The loader's text after a failure, which it gives once. */
std::string failure(const std::string& name) {
    EXPECT_EQ(__wrap_dlopen(name.c_str(), RTLD_NOW), nullptr) << name;
    const char* const text = __wrap_dlerror();
    const std::string result = text != nullptr ? text : "none";
    EXPECT_EQ(__wrap_dlerror(), nullptr) << name;
    return result;
}

TEST(Loader, WordsOnlyAMissingFileAsTheDeviceDoes) {
    for (const std::string name : {"libnowhere.so", "/nowhere/libm.so"}) {
        EXPECT_EQ(failure(name), "dlopen failed: library \"" + name + "\" not found");
    }
    EXPECT_NE(failure(folder()).find("Is a directory"), std::string::npos);
    // A library of this machine, with a dependency that is nowhere.
    link_map* map = nullptr;
    ASSERT_EQ(dlinfo(dlopen("libm.so.6", RTLD_NOW), RTLD_DI_LINKMAP, &map), 0);
    std::string image = readFile(map->l_name);
    const std::string needed("\0libc.so.6\0", 11);
    image.replace(image.find(needed), needed.size(), std::string("\0libx.so.6\0", 11));
    writeFile(folder() / "dependent.so", image);
    EXPECT_EQ(failure(folder() / "dependent.so"),
              "libx.so.6: cannot open shared object file: No such file or directory");
}

TEST(Loader, KeepsTheLatestTextOfEachThread) {
    EXPECT_EQ(__wrap_dlopen("libnowhere.so", RTLD_NOW), nullptr);
    std::thread([] { EXPECT_EQ(__wrap_dlerror(), nullptr); }).join();
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "no_such_symbol"), nullptr);
    const std::string text = __wrap_dlerror();
    EXPECT_NE(text.find("no_such_symbol"), std::string::npos) << text;
    EXPECT_EQ(__wrap_dlerror(), nullptr);
}

TEST(GraphicBuffer, TakesASizeThatHasMemory) {
    const struct {
        uint32_t width, height;
        PixelFormat format;
        uint32_t stride; /**< 0: refused */
    } cases[] = {
        {32, 16, PIXEL_FORMAT_RGBA_8888, 32},
        {4081, 1, HAL_PIXEL_FORMAT_YCRCB_420_SP, 4096},
        {0, 1, PIXEL_FORMAT_RGBA_8888, 0},
        {1, 0, PIXEL_FORMAT_RGBA_8888, 0},
        {UINT32_MAX, 1, PIXEL_FORMAT_RGB_565, 0},
        {1, UINT32_MAX, PIXEL_FORMAT_RGB_565, 0},
        {1, 1, PIXEL_FORMAT_NONE, 0},
    };
    for (const auto& c : cases) {
        const auto buffer = sp<GraphicBuffer>::make(c.width, c.height, c.format, 1u,
                                                    GraphicBuffer::USAGE_SW_WRITE_OFTEN);
        EXPECT_EQ(buffer->initCheck(), c.stride > 0 ? OK : BAD_VALUE) << c.width << "x" << c.height;
        EXPECT_EQ(buffer->getStride(), c.stride);
    }
}

}  // namespace
