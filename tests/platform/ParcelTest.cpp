// SPDX-License-Identifier: Apache-2.0
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <binder/Status.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

using namespace android;
using android::binder::Status;
using android::os::PersistableBundle;
using Bytes = std::vector<uint8_t>;

namespace {

/** The bytes of 32-bit words, least significant byte first. */
Bytes words(const std::vector<uint32_t>& values) {
    Bytes bytes;
    for (const uint32_t value : values) {
        for (int shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(value >> shift));
        }
    }
    return bytes;
}

Bytes content(const Parcel& parcel) {
    return Bytes(parcel.data(), parcel.data() + parcel.dataSize());
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

TEST(Parcel, LaysValuesOutAsPublished) {
    PersistableBundle bundle;
    bundle.putInt(String16("z"), 5);
    bundle.putString(String16("a"), String16("q"));
    bundle.putBoolean(String16("z"), true);  // replaces the number, keeps its place
    Parcel parcel;
    parcel.writeInt32(-2);
    parcel.writeBool(true);
    parcel.writeString16(String16("ab"));
    parcel.writeString16(String16("a"));
    parcel.writeByteVector({1, 2, 3, 4, 5});
    parcel.writeInt32Vector({7, -1});
    parcel.writeInterfaceToken(String16("a"));
    parcel.writeStrongBinder(nullptr);
    parcel.writeParcelable(PersistableBundle());
    parcel.writeParcelable(bundle);
    EXPECT_EQ(Status::ok().writeToParcel(&parcel), OK);
    EXPECT_EQ(Status::fromExceptionCode(-4, "m").writeToParcel(&parcel), OK);
    EXPECT_EQ(Status::fromServiceSpecificError(9).writeToParcel(&parcel), OK);
    EXPECT_EQ(Status::fromStatusT(DEAD_OBJECT).writeToParcel(&parcel), -EPIPE);  // and nothing more
    // clang-format off
    EXPECT_EQ(content(parcel), words({
        0xFFFFFFFE,
        1,
        2, 0x00620061, 0,
        1, 0x00000061,
        5, 0x04030201, 0x00000005,
        2, 7, 0xFFFFFFFF,
        0x80000000, 0xFFFFFFFF, 0x53595354, 1, 'a',
        0x73622A85, 0x17F, 0, 0, 0, 0, 0,
        1, 0,
        1, 40, 0x4C444E42, 2, 1, 'z', 9, 1, 1, 'a', 0, 1, 'q',
        0,
        0xFFFFFFFC, 1, 'm', 0,
        0xFFFFFFF8, 0, 0, 0, 9,
    }));
    // clang-format on
}

TEST(Parcel, RefusesWhatCannotBe) {
    String16 text;
    std::vector<int32_t> integers;
    Bytes bytes;
    std::vector<String16> strings;
    sp<IBinder> binder;
    const auto readText = [&](const Parcel& p) { return p.readString16(&text); };
    const auto readIntegers = [&](const Parcel& p) { return p.readInt32Vector(&integers); };
    const auto readBytes = [&](const Parcel& p) { return p.readByteVector(&bytes); };
    const auto readStrings = [&](const Parcel& p) { return p.readString16Vector(&strings); };
    const auto readBinder = [&](const Parcel& p) { return p.readStrongBinder(&binder); };
    const auto readStatus = [](const Parcel& p) {
        Status status;
        const status_t result = status.readFromParcel(p);
        EXPECT_EQ(status.transactionError(), result);
        return result;
    };
    const auto readToken = [](const Parcel& p) {
        return p.enforceInterface(String16("ab")) ? OK : PERMISSION_DENIED;
    };
    const uint32_t kBinder = 0x73622A85;
    const uint32_t kHuge = INT32_MAX;
    const uint32_t kNone = UINT32_MAX;
    struct {
        const char* name;
        std::vector<uint32_t> input;
        std::function<status_t(const Parcel&)> read;
        status_t status;
    } const cases[] = {
        {"token", {0, 0, 0x53595354, 2, 0x00620061, 0}, readToken, OK},
        {"another's token", {0, 0, 0x53595354, 2, 0x00630061, 0}, readToken, PERMISSION_DENIED},
        {"shorter token", {0, 0, 0x53595354, 1, 0x61}, readToken, PERMISSION_DENIED},
        {"another header", {0, 0, 0x53595355, 2, 0x00620061, 0}, readToken, PERMISSION_DENIED},
        {"no string", {kNone}, readText, UNEXPECTED_NULL},
        {"negative string", {kNone - 1}, readText, BAD_VALUE},
        {"huge string", {kHuge, 0}, readText, NOT_ENOUGH_DATA},
        {"string without room for its end", {2, 0x00620061}, readText, NOT_ENOUGH_DATA},
        {"string without its end", {1, 0x00620061}, readText, BAD_VALUE},
        {"no integers", {kNone}, readIntegers, UNEXPECTED_NULL},
        {"negative count", {0x80000000, 1}, readIntegers, BAD_VALUE},
        {"more integers than data", {3, 1, 2}, readIntegers, NOT_ENOUGH_DATA},
        {"huge count", {kHuge, 1}, readIntegers, NOT_ENOUGH_DATA},
        {"more bytes than data", {5, 1}, readBytes, NOT_ENOUGH_DATA},
        {"more strings than data", {kHuge / 8, 0, 0}, readStrings, NOT_ENOUGH_DATA},
        {"broken string among strings", {1, kNone, 0}, readStrings, UNEXPECTED_NULL},
        {"nothing", {}, readBinder, NOT_ENOUGH_DATA},
        {"null binder", {kBinder, 0, 0, 0, 0, 0, 0}, readBinder, UNEXPECTED_NULL},
        {"forged binder", {kBinder, 0, 1, 0, 0, 0, 0}, readBinder, BAD_TYPE},
        {"no binder at all", {1, 0, 0, 0, 0, 0, 0}, readBinder, BAD_TYPE},
        {"binder without stability", {kBinder, 0, 0, 0, 0, 0}, readBinder, NOT_ENOUGH_DATA},
        {"empty status", {}, readStatus, NOT_ENOUGH_DATA},
        {"status without message", {0xFFFFFFFC, kNone}, readStatus, UNEXPECTED_NULL},
        {"trace beyond the data", {0xFFFFFFFC, 1, 'm', 4}, readStatus, UNKNOWN_ERROR},
        {"no service code", {0xFFFFFFF8, 1, 'm', 0}, readStatus, NOT_ENOUGH_DATA},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Bytes flat = words(c.input);
        Parcel parcel;
        parcel.setData(flat.data(), flat.size());
        text = String16("kept");
        integers = {42};
        bytes = {42};
        strings = {String16("kept")};
        EXPECT_EQ(c.read(parcel), c.status);
        EXPECT_EQ(text, String16("kept"));
        EXPECT_EQ(integers, std::vector<int32_t>{42});
        EXPECT_EQ(bytes, Bytes{42});
        EXPECT_EQ(strings, std::vector<String16>{String16("kept")});
        EXPECT_EQ(binder, nullptr);
    }
}

TEST(PersistableBundle, ComesBackWholeAndAnswersOnlyForItsTypes) {
    PersistableBundle inner;
    inner.putInt(String16("n"), 1);
    PersistableBundle bundle;
    bundle.putString(String16("s"), String16("text"));
    bundle.putInt(String16("i"), -2);
    bundle.putLong(String16("l"), int64_t{1} << 40);
    bundle.putDouble(String16("d"), 0.5);
    bundle.putBoolean(String16("b"), true);
    bundle.putStringVector(String16("sv"), {String16("x"), String16("")});
    bundle.putIntVector(String16("iv"), {1, 2, 3});
    bundle.putLongVector(String16("lv"), {INT64_MIN});
    bundle.putBooleanVector(String16("bv"), {true, false});
    bundle.putDoubleVector(String16("dv"), {1.5, -1.5});
    bundle.putPersistableBundle(String16("p"), inner);
    Parcel parcel;
    ASSERT_EQ(parcel.writeParcelable(bundle), OK);
    parcel.setDataPosition(0);
    PersistableBundle read;
    read.putInt(String16("old"), 1);
    ASSERT_EQ(parcel.readParcelable(&read), OK);
    EXPECT_EQ(parcel.dataAvail(), 0u);
    Parcel again;
    ASSERT_EQ(again.writeParcelable(read), OK);
    EXPECT_EQ(content(again), content(parcel));  // every value, in its order, and nothing else

    int32_t number = 42;
    int64_t wide = 42;
    PersistableBundle nested;
    EXPECT_FALSE(read.getInt(String16("old"), &number));
    EXPECT_FALSE(read.getInt(String16("b"), &number));
    EXPECT_EQ(number, 42);
    EXPECT_FALSE(read.getLong(String16("i"), &wide));
    EXPECT_EQ(wide, 42);
    EXPECT_TRUE(read.getInt(String16("i"), &number));
    EXPECT_EQ(number, -2);
    EXPECT_TRUE(read.getPersistableBundle(String16("p"), &nested));
    EXPECT_TRUE(nested.getInt(String16("n"), &number));
    EXPECT_EQ(number, 1);
}

TEST(PersistableBundle, IsWrittenNoDeeperThanItIsRead) {
    PersistableBundle bundle;
    bundle.putInt(String16("n"), 1);
    for (int depth = 1; depth < PersistableBundle::kMaxDepth; ++depth) {
        PersistableBundle outer;
        outer.putPersistableBundle(String16("p"), bundle);
        bundle = outer;
    }
    EXPECT_EQ(Parcel().writeParcelable(bundle), OK);
    PersistableBundle deeper;
    deeper.putPersistableBundle(String16("p"), bundle);
    EXPECT_EQ(Parcel().writeParcelable(deeper), BAD_VALUE);
}

TEST(Parcel, CarriesBindersAndDescriptorsBesideTheData) {
    constexpr int32_t kBinderType = 0x73622A85;
    constexpr size_t kDescriptorAt = 4;
    constexpr size_t kBinderAt = kDescriptorAt + 24;
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const sp<IBinder> binder = sp<BBinder>::make();
    int inside = -1;
    {
        Parcel parcel;
        parcel.writeInt32(1);
        ASSERT_EQ(parcel.writeDupFileDescriptor(null), OK);
        ASSERT_EQ(parcel.writeStrongBinder(binder), OK);
        ASSERT_EQ(parcel.objects().size(), 2u);
        EXPECT_EQ(parcel.objects()[0].offset, kDescriptorAt);
        EXPECT_EQ(parcel.objects()[1].offset, kBinderAt);

        sp<IBinder> read;
        parcel.setDataPosition(kDescriptorAt);
        inside = parcel.readFileDescriptor();
        EXPECT_TRUE(isOpen(inside));
        EXPECT_NE(inside, null);
        EXPECT_EQ(parcel.readStrongBinder(&read), OK);
        EXPECT_EQ(read, binder);
        EXPECT_EQ(parcel.dataAvail(), 0u);
        EXPECT_EQ(parcel.readFileDescriptor(), -1);
        parcel.setDataPosition(kDescriptorAt);
        EXPECT_EQ(parcel.readStrongBinder(&read), BAD_TYPE);

        // An object written over is gone, also for a placeholder that claims to be one.
        parcel.setDataPosition(kDescriptorAt);
        parcel.writeInt32(kBinderType);
        EXPECT_EQ(parcel.objects().size(), 1u);
        EXPECT_FALSE(isOpen(inside));
        parcel.setDataPosition(kDescriptorAt);
        EXPECT_EQ(parcel.readStrongBinder(&read), BAD_TYPE);
        EXPECT_EQ(parcel.setDataSize(kBinderAt + 20), OK);
        EXPECT_TRUE(parcel.objects().empty());

        ASSERT_EQ(parcel.writeDupFileDescriptor(null), OK);
        inside = parcel.objects().at(0).fd;
    }
    EXPECT_FALSE(isOpen(inside));
    EXPECT_EQ(binder->getStrongCount(), 1);

    // A placeholder and its entry that disagree.
    Parcel parcel;
    sp<IBinder> read;
    ASSERT_EQ(parcel.ipcSetData(words({kBinderType, 0, 1, 0, 0, 0, 0}), {{0, nullptr, null}}), OK);
    EXPECT_EQ(parcel.readNullableStrongBinder(&read), BAD_TYPE);
}

}  // namespace
