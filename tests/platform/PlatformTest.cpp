// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <binder/Parcel.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/mman.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <utils/String8.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace android;

// What the client library's calls of the loader are linked to.
extern "C" void* __wrap_dlopen(const char* name, int flags);
extern "C" char* __wrap_dlerror();

namespace {

/** A file of this test program's own. */
std::string ownFile(const std::string& name, const std::string& content) {
    const std::string path = std::string(getenv("DISPLAYENGINE_RUNTIME_DIR")) + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

TEST(Strings, ConvertBothWaysAndReplaceWhatIsBroken) {
    const std::string bad = "\xEF\xBF\xBD";
    const struct {
        std::string utf8;
        std::u16string utf16;
        std::string back;
    } cases[] = {
        {std::string("a\0b", 3), std::u16string(u"a\0b", 3), std::string("a\0b", 3)},
        {"\xC3\xA9\xE4\xB8\xAD", u"\u00E9\u4E2D", "\xC3\xA9\xE4\xB8\xAD"},
        {"\xF0\x9F\x98\x80", u"\U0001F600", "\xF0\x9F\x98\x80"},
        {"a\xF0\x9F\x98", u"a\uFFFD", "a" + bad},  // cut off
        {"\xE4\xB8z", u"\uFFFDz", bad + "z"},      // interrupted
        {"\xC0\xAFz", u"\uFFFDz", bad + "z"},      // overlong
        {"\xED\xA0\x80", u"\uFFFD", bad},          // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD", bad},      // beyond the last code point
        {"\x80\xFF", u"\uFFFD\uFFFD", bad + bad},
    };
    for (const auto& c : cases) {
        const String16 wide(c.utf8.data(), c.utf8.size());
        EXPECT_EQ(std::u16string(wide.c_str(), wide.size()), c.utf16) << c.utf8;
        const String8 narrow(wide);
        EXPECT_EQ(std::string(narrow.c_str(), narrow.size()), c.back) << c.utf8;
    }
    const char16_t unpaired[] = {0xDE00, 0xD83D, 'b', 0xD83D, 0xD83D, 0xDE00, 0xD83D};
    EXPECT_EQ(String8(String16(unpaired, std::size(unpaired))).string(),
              bad + bad + "b" + bad + "\xF0\x9F\x98\x80" + bad);
    // What would complete a sequence lies behind the end.
    EXPECT_EQ(String8(String16("\xC3\xA9", 1)).string(), bad);
    EXPECT_EQ(String8(String16(u"\U0001F600", 1)).string(), bad);
}

TEST(Properties, ReadAsBooleansFromTheProcessAndTheSharedFile) {
    constexpr int8_t kDefault = 2;
    const struct {
        std::vector<const char*> values;
        int8_t result;
    } cases[] = {
        {{"1", "y", "yes", "on", "true"}, 1},
        {{"0", "n", "no", "off", "false"}, 0},
        {{"2", "True", "yes!", "11", ""}, kDefault},
    };
    for (const auto& c : cases) {
        for (const char* const value : c.values) {
            EXPECT_EQ(property_set("test.flag", value), 0);
            EXPECT_EQ(property_get_bool("test.flag", kDefault), c.result) << value;
        }
    }
    EXPECT_EQ(property_set("test.long", std::string(PROPERTY_VALUE_MAX, '1').c_str()), -1);
    const std::string file =
        ownFile("properties", "a=0\n#b=0\nno equals\n a = on \r\nb=1\nb=off\ntest.flag=1");
    setenv("DISPLAYENGINE_PROPERTIES", file.c_str(), 1);
    EXPECT_EQ(property_get_bool("a", kDefault), 1);
    EXPECT_EQ(property_get_bool("b", kDefault), 0);
    EXPECT_EQ(property_get_bool("test.flag", kDefault), kDefault)
        << "the process's own comes first";
}

TEST(Log, WritesWholeLinesToStandardError) {
    constexpr int kLines = 50;
    const std::string texts[] = {std::string(1023, 'a'), std::string(1024, 'b'),
                                 std::string(9000, 'c')};
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (const std::string& text : texts) {
        threads.emplace_back([&text] {
            for (int line = 0; line < kLines; ++line) {
                __android_log_print(ANDROID_LOG_INFO, "tag", "%s", text.c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream output(testing::internal::GetCapturedStderr());
    const std::regex form(R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +)" + std::to_string(getpid()) +
                          R"( +\d+ I tag: )");
    int lines = 0;
    for (std::string line; std::getline(output, line); ++lines) {
        const std::string& text = texts[(line.back() - 'a') % 3];
        const size_t start = line.size() - text.size();
        EXPECT_TRUE(std::regex_match(line.substr(0, start), form));
        EXPECT_EQ(line.substr(start), text);
    }
    EXPECT_EQ(lines, kLines * 3);

    const int standardError = dup(STDERR_FILENO);
    close(STDERR_FILENO);
    errno = ENOENT;
    __android_log_print(ANDROID_LOG_INFO, "tag", "to nobody");
    EXPECT_EQ(errno, ENOENT);
    dup2(standardError, STDERR_FILENO);
}

TEST(Loader, WordsOnlyAMissingFileAsTheDeviceDoes) {
    link_map* map = nullptr;
    ASSERT_EQ(dlinfo(dlopen("libm.so.6", RTLD_NOW), RTLD_DI_LINKMAP, &map), 0);
    std::stringstream image;
    image << std::ifstream(map->l_name, std::ios::binary).rdbuf();
    std::string dependent = image.str();
    dependent.replace(dependent.find(std::string("\0libc.so.6", 10)) + 1, 9, "lib-.so.6");
    const struct {
        std::string name;
        std::string text;
    } cases[] = {
        {"/nowhere/libm.so", "dlopen failed: library \"/nowhere/libm.so\" not found"},
        {ownFile("dependent.so", dependent),
         "lib-.so.6: cannot open shared object file: No such file or directory"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(__wrap_dlopen(c.name.c_str(), RTLD_NOW), nullptr);
        std::thread([] {
            EXPECT_EQ(__wrap_dlerror(), nullptr) << "each thread has its own";
        }).join();
        EXPECT_STREQ(__wrap_dlerror(), c.text.c_str());
        EXPECT_EQ(__wrap_dlerror(), nullptr) << "given once";
    }
    EXPECT_EQ(__wrap_dlopen("libnowhere.so", RTLD_NOW), nullptr);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "no_such_symbol"), nullptr);
    EXPECT_NE(std::string(__wrap_dlerror()).find("no_such_symbol"), std::string::npos);
}

TEST(GraphicBuffer, RefusesAShapeThatItsMemoryCannotHold) {
    enum Word { MAGIC, WIDTH, HEIGHT, STRIDE, FORMAT, LAYERS, FDS = 10, INTEGERS };
    const struct {
        Word word;
        uint32_t value;
        status_t result;
    } cases[] = {
        {HEIGHT, 2, OK},        {MAGIC, 1, BAD_VALUE},    {WIDTH, 0, BAD_VALUE},
        {WIDTH, 17, BAD_VALUE}, {HEIGHT, 0, BAD_VALUE},   {HEIGHT, 65, BAD_VALUE},
        {STRIDE, 0, BAD_VALUE}, {STRIDE, 512, BAD_VALUE}, {FORMAT, 2, BAD_VALUE},
        {LAYERS, 2, BAD_VALUE}, {FDS, 2, BAD_VALUE},      {INTEGERS, 1, BAD_VALUE},
    };
    constexpr size_t kFlatAt = 2 * sizeof(int32_t);
    const sp<GraphicBuffer> whole = new GraphicBuffer(16, 64, PIXEL_FORMAT_RGBA_8888, 1, 0);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.word << " is " << c.value);
        Parcel parcel;
        parcel.write(*whole);
        parcel.setDataPosition(kFlatAt + c.word * sizeof(int32_t));
        parcel.writeInt32(static_cast<int32_t>(c.value));
        parcel.setDataPosition(0);
        const sp<GraphicBuffer> read = new GraphicBuffer(1, 1, PIXEL_FORMAT_RGBA_8888, 1, 0);
        EXPECT_EQ(parcel.read(*read), c.result);
        EXPECT_EQ(read->initCheck(), c.result == OK ? OK : NO_INIT);
    }
    // Memory that its owner could still cut away.
    const int unsealed = memfd_create("unsealed", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(unsealed, 1 << 20), 0);
    Parcel source;
    source.write(*whole);
    Parcel parcel;
    ASSERT_EQ(parcel.ipcSetData({source.data(), source.data() + source.dataSize()},
                                {{source.objects()[0].offset, nullptr, unsealed}}),
              OK);
    EXPECT_EQ(parcel.read(*sp<GraphicBuffer>(new GraphicBuffer)), BAD_VALUE);

    const sp<GraphicBuffer> wide = new GraphicBuffer(4081, 1, HAL_PIXEL_FORMAT_YCRCB_420_SP, 1, 0);
    EXPECT_EQ(wide->getStride(), 4096u);
    const sp<GraphicBuffer> huge = new GraphicBuffer(UINT32_MAX, 1, PIXEL_FORMAT_RGBA_8888, 1, 0);
    EXPECT_EQ(huge->initCheck(), BAD_VALUE);
}

}  // namespace
