#include <android/log.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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

/// A directory of this test program's own.
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

class Loader : public testing::Test {
protected:
    Loader() {
        fs::create_directories(folder() / "system/lib64");
        setenv("DISPLAYENGINE_SYSTEM_ROOT", folder().c_str(), 1);
        // A library of this machine, and the same with a dependency that is nowhere.
        void* library = dlopen("libm.so.6", RTLD_NOW);
        link_map* map = nullptr;
        EXPECT_EQ(dlinfo(library, RTLD_DI_LINKMAP, &map), 0);
        std::string image = readFile(map->l_name);
        dlclose(library);
        writeFile(folder() / "system/lib64/libpresent.so", image);
        const std::string needed("\0libc.so.6\0", 11);
        image.replace(image.find(needed), needed.size(), std::string("\0libx.so.6\0", 11));
        writeFile(folder() / "dependent.so", image);
        writeFile(folder() / "broken.so", std::string(4096, 'x'));
    }

    /// The text of a failure, read as often as the loader has one.
    static std::string failure(const std::string& name) {
        EXPECT_EQ(__wrap_dlopen(name.c_str(), RTLD_NOW), nullptr) << name;
        const char* text = __wrap_dlerror();
        const std::string result = text != nullptr ? text : "none";
        EXPECT_EQ(__wrap_dlerror(), nullptr) << name;
        return result;
    }
};

TEST_F(Loader, WordsOnlyAMissingFileAsTheDeviceDoes) {
    const std::string longName = "lib" + std::string(3000, 'n') + ".so";
    for (const std::string& name :
         {std::string("libnowhere.so"), std::string("/nowhere/libm.so"),
          (folder() / "none.so").string(), std::string("/system/lib64/libnowhere.so")}) {
        EXPECT_EQ(failure(name), "dlopen failed: library \"" + name + "\" not found");
    }
    const std::pair<std::string, std::string> others[] = {
        {"broken.so", "invalid ELF header"},
        {"system", "Is a directory"},
        {"dependent.so", "libx.so.6: cannot open shared object file: No such file or directory"},
    };
    for (const auto& [name, text] : others) {
        const std::string actual = failure((folder() / name).string());
        EXPECT_NE(actual.find(text), std::string::npos) << actual;
        EXPECT_EQ(actual.find("not found"), std::string::npos) << actual;
    }
    EXPECT_NE(failure(longName).find("File name too long"), std::string::npos);
}

TEST_F(Loader, FindsTheSystemsLibrariesBelowTheRootOfTheMoment) {
    const char* name = "/system/lib64/libpresent.so";
    void* handle = __wrap_dlopen(name, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << __wrap_dlerror();
    EXPECT_EQ(__wrap_dlerror(), nullptr);
    EXPECT_NE(dlsym(handle, "cos"), nullptr);
    dlclose(handle);
    setenv("DISPLAYENGINE_SYSTEM_ROOT", "/nowhere", 1);
    EXPECT_EQ(failure(name), std::string("dlopen failed: library \"") + name + "\" not found");
    EXPECT_NE(__wrap_dlopen(nullptr, RTLD_NOW), nullptr);
}

TEST_F(Loader, KeepsTheLatestTextOfEachThread) {
    EXPECT_EQ(__wrap_dlopen("libnowhere.so", RTLD_NOW), nullptr);
    std::thread([] { EXPECT_EQ(__wrap_dlerror(), nullptr); }).join();
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "no_such_symbol"), nullptr);
    const std::string text = __wrap_dlerror();
    EXPECT_NE(text.find("no_such_symbol"), std::string::npos) << text;
    EXPECT_EQ(__wrap_dlerror(), nullptr);
}

/// The flat form of a buffer, as a peer may send it.
struct Flat {
    explicit Flat(const GraphicBuffer& buffer) : words(buffer.getFlattenedSize() / 4) {
        void* bytes = words.data();
        size_t size = words.size() * 4;
        int* out = fds.data();
        size_t count = fds.size();
        EXPECT_EQ(buffer.flatten(bytes, size, out, count), OK);
        fdCount = fds.size() - count;
    }
    status_t readInto(GraphicBuffer* buffer) const {
        const void* bytes = words.data();
        size_t size = words.size() * 4;
        const int* in = fds.data();
        size_t count = fdCount;
        return buffer->unflatten(bytes, size, in, count);
    }

    std::vector<uint32_t> words;
    std::array<int, 2> fds{-1, -1};
    size_t fdCount = 0;
};

sp<GraphicBuffer> makeBuffer(uint32_t width, uint32_t height, PixelFormat format) {
    return sp<GraphicBuffer>::make(width, height, format, 1u, GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}

TEST(GraphicBuffer, SharesItsMemoryThroughTheFlatForm) {
    const sp<GraphicBuffer> ours = makeBuffer(4081, 1, HAL_PIXEL_FORMAT_YCRCB_420_SP);
    ASSERT_EQ(ours->initCheck(), OK);
    const sp<GraphicBuffer> theirs = makeBuffer(2, 2, PIXEL_FORMAT_RGBA_8888);
    ASSERT_EQ(Flat(*ours).readInto(theirs.get()), OK);
    EXPECT_EQ(theirs->getWidth(), 4081u);
    EXPECT_EQ(theirs->getHeight(), 1u);
    EXPECT_EQ(theirs->getStride(), 4096u);
    EXPECT_EQ(theirs->getPixelFormat(), HAL_PIXEL_FORMAT_YCRCB_420_SP);
    EXPECT_EQ(theirs->getUsage(), GraphicBuffer::USAGE_SW_WRITE_OFTEN);
    void* written = nullptr;
    void* seen = nullptr;
    ASSERT_EQ(ours->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &written), OK);
    ASSERT_EQ(theirs->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &seen), OK);
    const size_t last = 4096 * 3 - 1;  // an odd height still has whole rows of chroma
    static_cast<uint8_t*>(written)[last] = 0x5A;
    EXPECT_EQ(static_cast<uint8_t*>(seen)[last], 0x5A);

    ASSERT_EQ(Flat(*sp<GraphicBuffer>::make()).readInto(theirs.get()), OK);
    EXPECT_EQ(theirs->initCheck(), NO_INIT);
    EXPECT_EQ(theirs->lock(0, &seen), NO_INIT);
}

TEST(GraphicBuffer, RefusesADescriptionThatDoesNotFitItsMemory) {
    const sp<GraphicBuffer> good = makeBuffer(32, 16, PIXEL_FORMAT_RGBA_8888);
    const int unsealed = memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(ftruncate(unsealed, 1 << 20), 0);
    enum { kMagic, kWidth, kHeight, kStride, kFormat, kLayers, kFdCount = 10, kIntegers };
    const std::pair<const char*, std::function<void(Flat*)>> cases[] = {
        {"cut", [](Flat* f) { f->words.pop_back(); }},
        {"empty", [](Flat* f) { f->words.clear(); }},
        {"another magic", [](Flat* f) { ++f->words[kMagic]; }},
        {"no width", [](Flat* f) { f->words[kWidth] = 0; }},
        {"wider than a row", [](Flat* f) { f->words[kWidth] = 33; }},
        {"higher than the memory", [](Flat* f) { f->words[kHeight] = 17; }},
        {"longer rows than the memory", [](Flat* f) { f->words[kStride] = 33; }},
        {"overflowing", [](Flat* f) { f->words[kStride] = f->words[kHeight] = UINT32_MAX; }},
        {"unknown format", [](Flat* f) { f->words[kFormat] = 99; }},
        {"more layers", [](Flat* f) { f->words[kLayers] = 2; }},
        {"descriptor missing", [](Flat* f) { f->fdCount = 0; }},
        {"descriptors too many", [](Flat* f) { f->words[kFdCount] = f->fdCount = 2; }},
        {"integers of its own", [](Flat* f) { f->words[kIntegers] = 1; }},
        {"memory that can shrink", [&](Flat* f) { f->fds[0] = unsealed; }},
        {"no memory", [&](Flat* f) { f->fds[0] = null; }},
        {"no descriptor", [](Flat* f) { f->fds[0] = -1; }},
    };
    for (const auto& [name, damage] : cases) {
        Flat flat(*good);
        damage(&flat);
        const sp<GraphicBuffer> buffer = makeBuffer(2, 2, PIXEL_FORMAT_RGB_565);
        EXPECT_NE(flat.readInto(buffer.get()), OK) << name;
        EXPECT_EQ(buffer->initCheck(), NO_INIT) << name;
        EXPECT_EQ(buffer->getWidth(), 0u) << name;
        EXPECT_EQ(buffer->getFdCount(), 0u) << name;
    }
    for (const auto& [width, height] :
         {std::pair(0u, 1u), {1u, 0u}, {UINT32_MAX, 1u}, {1u, UINT32_MAX}}) {
        EXPECT_EQ(makeBuffer(width, height, PIXEL_FORMAT_RGBA_8888)->initCheck(), BAD_VALUE);
    }
    EXPECT_EQ(makeBuffer(1, 1, PIXEL_FORMAT_NONE)->initCheck(), BAD_VALUE);
    close(unsealed);
    close(null);
}

}  // namespace
