// SPDX-License-Identifier: Apache-2.0
// What the stand-in gives the library besides binder: values, properties, loader, images.
// Damaged parcels are the fuzzers' subject.
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <cutils/properties.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>
#include <sys/mman.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <utils/String8.h>

#include <fstream>
#include <sstream>
#include <string>

#include "support/Recording.h"

using namespace android;
using android::os::PersistableBundle;

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

TEST(PlatformTest, ABundleHasItsLayoutAndAnswersOnlyForItsTypes) {
    PersistableBundle inner;
    inner.putInt(String16("k"), 5);
    PersistableBundle bundle;
    bundle.putInt(String16("z"), 5);
    bundle.putLong(String16("l"), int64_t{1} << 32);
    bundle.putDouble(String16("d"), 2);
    bundle.putBoolean(String16("z"), true);  // replaces the number, keeps its place
    bundle.putPersistableBundle(String16("p"), inner);
    const std::string layout =
        "64000000 424e444c 04000000 01000000 7a000000 09000000 01000000 "
        "01000000 6c000000 06000000 00000000 01000000 "
        "01000000 64000000 08000000 00000000 00000040 "
        "01000000 70000000 19000000 14000000 424e444c 01000000 01000000 6b000000 01000000 05000000";
    Parcel parcel;
    ASSERT_EQ(bundle.writeToParcel(&parcel), OK);
    EXPECT_EQ(protocol::hex(parcel), layout);
    parcel.setDataPosition(0);
    ASSERT_EQ(inner.readFromParcel(&parcel), OK);
    Parcel again;
    ASSERT_EQ(inner.writeToParcel(&again), OK);
    EXPECT_EQ(protocol::hex(again), layout) << "the old content is gone";
    int32_t number = 0;
    EXPECT_FALSE(inner.getInt(String16("z"), &number) || inner.getInt(String16("l"), &number));
    EXPECT_TRUE(inner.getPersistableBundle(String16("p"), &inner) &&
                inner.getInt(String16("k"), &number) && number == 5);
}

TEST(PlatformTest, ABundleIsWrittenNoDeeperThanItIsRead) {
    PersistableBundle bundle;
    for (int depth = 1; depth <= PersistableBundle::kMaxDepth; ++depth) {
        bundle.putPersistableBundle(String16("k"), PersistableBundle(bundle));
        Parcel parcel;
        EXPECT_EQ(parcel.writeParcelable(bundle), OK);
        parcel.setDataPosition(0);
        EXPECT_EQ(parcel.readParcelable(&bundle), OK);
    }
    bundle.putPersistableBundle(String16("k"), PersistableBundle(bundle));
    EXPECT_EQ(Parcel().writeParcelable(bundle), BAD_VALUE);
}

TEST(PlatformTest, StringsConvertBothWaysAndReplaceWhatIsBroken) {
    const struct {
        std::string utf8;
        std::u16string utf16;
    } cases[] = {
        {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
        {"\xC3\xA9\xE4\xB8\xAD", u"\u00E9\u4E2D"},
        {"\xF0\x9F\x98\x80", u"\U0001F600"},
        {"a\xF0\x9F\x98", u"a\uFFFD"},                  // cut off
        {"\xE4\xB8z", u"\uFFFDz"},                      // interrupted
        {"\xC0\xAFz\x80\xFF", u"\uFFFDz\uFFFD\uFFFD"},  // overlong, then stray bytes
        {"\xED\xA0\x80", u"\uFFFD"},                    // a surrogate
        {"\xF4\x90\x80\x80", u"\uFFFD"},                // beyond the last code point
    };
    for (const auto& c : cases) {
        const String16 wide(c.utf8.data(), c.utf8.size());
        EXPECT_EQ(std::u16string(wide.c_str(), wide.size()), c.utf16) << c.utf8;
        EXPECT_EQ(String16(String8(wide)), wide) << c.utf8;
    }
}

TEST(PlatformTest, PropertiesAreBooleansOfTheProcessOrTheSharedFile) {
    constexpr int8_t kDefault = 2;
    const std::string file = ownFile("properties", "a=0\n#b=0\nno equals\n a = on \r\nb=off\nc=1");
    setenv("DISPLAYENGINE_PROPERTIES", file.c_str(), 1);
    property_set("c", "True");  // The process's own comes first, and is none of the words.
    const struct {
        const char* name;
        int8_t result;
    } cases[] = {{"a", 1}, {"b", 0}, {"c", kDefault}, {"d", kDefault}};
    for (const auto& c : cases) {
        EXPECT_EQ(property_get_bool(c.name, kDefault), c.result) << c.name;
    }
}

TEST(PlatformTest, TheLoaderWordsOnlyAMissingFileAsTheDeviceDoes) {
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
        EXPECT_STREQ(__wrap_dlerror(), c.text.c_str());
        EXPECT_EQ(__wrap_dlerror(), nullptr) << "given once";
    }
}

TEST(PlatformTest, AnImageRefusesAShapeThatItsMemoryCannotHold) {
    enum Word { MAGIC, WIDTH, HEIGHT, STRIDE, FORMAT, LAYERS, FDS = 10, INTEGERS };
    const struct {
        Word word;
        int32_t value;
        status_t result;
    } cases[] = {
        {HEIGHT, 2, OK},        {MAGIC, 1, BAD_VALUE},    {WIDTH, 0, BAD_VALUE},
        {WIDTH, 17, BAD_VALUE}, {HEIGHT, 0, BAD_VALUE},   {HEIGHT, 65, BAD_VALUE},
        {STRIDE, 0, BAD_VALUE}, {STRIDE, 512, BAD_VALUE}, {FORMAT, 2, BAD_VALUE},
        {LAYERS, 2, BAD_VALUE}, {FDS, 2, BAD_VALUE},      {INTEGERS, 1, BAD_VALUE},
    };
    const sp<GraphicBuffer> whole = new GraphicBuffer(16, 64, PIXEL_FORMAT_RGBA_8888, 1, 0);
    for (const auto& c : cases) {
        Parcel parcel;
        parcel.write(*whole);
        parcel.setDataPosition((2 + c.word) * sizeof(int32_t));
        parcel.writeInt32(c.value);
        parcel.setDataPosition(0);
        EXPECT_EQ(parcel.read(*sp<GraphicBuffer>(new GraphicBuffer)), c.result)
            << c.word << " is " << c.value;
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
}

}  // namespace
