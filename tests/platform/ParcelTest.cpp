// SPDX-License-Identifier: Apache-2.0
// Parcels and bundles as far as the tests of the two interfaces do not show them. Damaged ones are
// the fuzzers' subject.
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <binder/Status.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <vector>

using namespace android;
using android::os::PersistableBundle;
using Words = std::vector<uint32_t>;

namespace {

int gFailingAllocation = 0; /**< 1 for the next one, 2 for the one after that, 0 for none */

}  // namespace

void* operator new(size_t size) {
    const bool fails = gFailingAllocation > 0 && --gFailingAllocation == 0;
    void* const memory = fails ? nullptr : std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    std::free(memory);
}

namespace {

const String16 kKey("a key longer than a string holds in itself");

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) >= 0;
}

PersistableBundle nested(int depth) {
    PersistableBundle bundle;
    if (depth > 1) {
        bundle.putPersistableBundle(kKey, nested(depth - 1));
    } else {
        bundle.putString(kKey, kKey);
    }
    return bundle;
}

TEST(PersistableBundle, ComesBackWholeAndAnswersOnlyForItsTypes) {
    PersistableBundle bundle;
    bundle.putInt(String16("z"), 5);
    bundle.putLong(String16("l"), int64_t{1} << 32);
    bundle.putDouble(String16("d"), 2);
    bundle.putBoolean(String16("z"), true);  // replaces the number, keeps its place
    bundle.putPersistableBundle(String16("p"), PersistableBundle());
    const Words flat = {76, 0x4C444E42, 4,   1, 'z', 9,          1, 1,   'l', 6, 0,
                        1,  1,          'd', 8, 0,   0x40000000, 1, 'p', 25,  0};
    Parcel parcel;
    ASSERT_EQ(bundle.writeToParcel(&parcel), OK);
    ASSERT_EQ(parcel.dataSize(), flat.size() * sizeof(uint32_t));
    EXPECT_TRUE(
        std::equal(flat.begin(), flat.end(), reinterpret_cast<const uint32_t*>(parcel.data())));

    parcel.setDataPosition(0);
    PersistableBundle read = nested(2);
    ASSERT_EQ(read.readFromParcel(&parcel), OK);
    EXPECT_EQ(read.size(), 4u) << "the old content is gone";
    int32_t number = 42;
    int64_t wide = 0;
    double real = 0;
    EXPECT_FALSE(read.getInt(String16("z"), &number) || read.getInt(String16("l"), &number));
    EXPECT_EQ(number, 42);
    EXPECT_TRUE(read.getLong(String16("l"), &wide) && read.getDouble(String16("d"), &real));
    EXPECT_TRUE(wide == int64_t{1} << 32 && real == 2);
    EXPECT_TRUE(read.getPersistableBundle(String16("p"), &read));
    EXPECT_TRUE(read.empty());
}

TEST(PersistableBundle, IsWrittenNoDeeperThanItIsRead) {
    EXPECT_EQ(Parcel().writeParcelable(nested(PersistableBundle::kMaxDepth)), OK);
    EXPECT_EQ(Parcel().writeParcelable(nested(PersistableBundle::kMaxDepth + 1)), BAD_VALUE);
}

/** Reads a value of each type that allocates, while one allocation fails. */
status_t readAll(const Parcel& parcel, int failingAllocation) {
    String16 text;
    std::vector<uint8_t> bytes;
    std::vector<int32_t> numbers;
    binder::Status outcome;
    PersistableBundle bundle;
    parcel.setDataPosition(0);
    gFailingAllocation = failingAllocation;
    status_t status = parcel.readString16(&text);
    if (status != OK || (status = parcel.readByteVector(&bytes)) != OK ||
        (status = parcel.readInt32Vector(&numbers)) != OK ||
        (status = outcome.readFromParcel(parcel)) != OK) {
        return status;
    }
    status = parcel.readParcelable(&bundle);
    return status == OK && !bundle.getPersistableBundle(kKey, &bundle) ? NO_MEMORY : status;
}

TEST(Parcel, AnswersAFailedAllocationWithNoMemory) {
    Parcel parcel;
    parcel.writeString16(kKey);
    parcel.writeByteVector({1});
    parcel.writeInt32Vector({1});
    static_cast<void>(binder::Status::fromExceptionCode(-1, String8(kKey)).writeToParcel(&parcel));
    parcel.writeParcelable(nested(2));
    int number = 1;
    while (readAll(parcel, number) == NO_MEMORY && gFailingAllocation == 0) {
        ++number;
    }
    EXPECT_GT(gFailingAllocation, 0) << "not so the failure of allocation " << number;
    EXPECT_GT(number, 10);
    EXPECT_EQ(readAll(parcel, 0), OK);
}

TEST(Parcel, CarriesBindersAndDescriptorsBesideTheData) {
    constexpr size_t kBinderAt = 24;
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const sp<IBinder> binder(new BBinder);
    sp<IBinder> read;
    int inside = -1;
    {
        Parcel parcel;
        parcel.writeDupFileDescriptor(null);
        parcel.writeStrongBinder(binder);
        ASSERT_EQ(parcel.objects().size(), 2u);
        EXPECT_EQ(parcel.objects()[1].offset, kBinderAt);
        parcel.setDataPosition(0);
        inside = parcel.readFileDescriptor();
        EXPECT_TRUE(inside != null && isOpen(inside));
        EXPECT_EQ(parcel.readStrongBinder(), binder);

        // An object written over is gone, also for a placeholder that claims to be one.
        parcel.setDataPosition(0);
        parcel.writeInt32(0x73622A85);
        EXPECT_EQ(parcel.objects().size(), 1u);
        EXPECT_FALSE(isOpen(inside));
        parcel.setDataPosition(0);
        EXPECT_EQ(parcel.readStrongBinder(&read), BAD_TYPE);
        EXPECT_EQ(parcel.setDataSize(kBinderAt + 20), OK);
        EXPECT_TRUE(parcel.objects().empty());

        parcel.writeDupFileDescriptor(null);
        inside = parcel.objects().at(0).fd;
    }
    EXPECT_FALSE(isOpen(inside));
    EXPECT_EQ(binder->getStrongCount(), 1);
}

}  // namespace
