#include "support/Fuzzing.h"

#include <android/log.h>
#include <binder/Binder.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

using namespace android;

namespace fuzz {
namespace {

std::mutex gLogLock;
std::vector<std::string>* const gLog = new std::vector<std::string>;

[[maybe_unused]] const bool gCollects = [] {
    __android_log_set_logger([](const __android_log_message* message) {
        const std::lock_guard<std::mutex> lock(gLogLock);
        gLog->emplace_back(message->message);
    });
    return true;
}();

}  // namespace

void fail(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: not so: %s\n", file, line, condition);
    std::abort();
}

size_t openDescriptors() {
    DIR* const folder = opendir("/proc/self/fd");
    size_t count = 0;
    while (folder != nullptr && readdir(folder) != nullptr) {
        ++count;
    }
    REQUIRE(folder != nullptr && closedir(folder) == 0);
    return count;
}

std::vector<std::string> takeLog() {
    const std::lock_guard<std::mutex> lock(gLogLock);
    return std::exchange(*gLog, {});
}

Object makeObject(FuzzedDataProvider& data) {
    static const sp<IBinder>* const callback = new sp<IBinder>(new RecordingCallback);
    static const sp<IBinder>* const other = new sp<IBinder>(new BBinder);
    enum { kNone, kCallback, kOther, kDevice, kMemory, kUnsealed, kReadOnly };
    const int kind = data.ConsumeIntegralInRange<int>(kNone, kReadOnly);
    const size_t bytes = data.ConsumeIntegral<uint16_t>();
    Object object;
    if (kind == kCallback || kind == kOther) {
        object.binder = kind == kCallback ? *callback : *other;
    } else if (kind == kDevice) {
        object.fd = transport::UniqueFd(open("/dev/null", O_RDWR | O_CLOEXEC));
    } else if (kind >= kMemory) {
        object.fd = transport::UniqueFd(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        REQUIRE(ftruncate(object.fd.get(), static_cast<off_t>(bytes)) == 0);
        const int seals = F_SEAL_SHRINK | (kind == kReadOnly ? F_SEAL_WRITE : 0);
        REQUIRE(kind == kUnsealed || fcntl(object.fd.get(), F_ADD_SEALS, seals) == 0);
        object.bytes = kind == kUnsealed ? 0 : bytes;
        object.writable = kind != kReadOnly;
    }
    return object;
}

Input::Input(FuzzedDataProvider& data, const Parcel& front)
    : bytes(front.data(), front.data() + front.dataSize()) {
    for (int count = data.ConsumeIntegralInRange(0, 3); count > 0; --count) {
        const size_t offset = data.ConsumeIntegral<uint16_t>();
        objects.push_back(makeObject(data));
        objects.back().offset = bytes.size() + offset;
    }
    const auto rest = data.ConsumeRemainingBytes<uint8_t>();
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    size = bytes.size();
}

bool Input::fill(Parcel* parcel) const {
    constexpr size_t kPlaceholder = 24;
    std::vector<ParcelObject> handed;
    bool plausible = true;
    for (const Object& object : objects) {
        handed.push_back(
            {object.offset, object.binder, object.fd.ok() ? dup(object.fd.get()) : -1});
        plausible = plausible && object.offset + kPlaceholder <= bytes.size();
        for (const Object* other = &object + 1; other != objects.data() + objects.size(); ++other) {
            plausible = plausible && (other->offset >= object.offset + kPlaceholder ||
                                      other->offset + kPlaceholder <= object.offset);
        }
    }
    parcel->writeInt32(7);  // gives way, whatever comes
    REQUIRE(parcel->ipcSetData(bytes, handed) == (plausible ? status_t{OK} : BAD_VALUE));
    REQUIRE(parcel->dataPosition() == 0);
    REQUIRE(plausible || (parcel->dataSize() == 0 && parcel->objects().empty()));
    REQUIRE(!plausible || parcel->setDataSize(size) == OK);
    return plausible;
}

Values Values::fresh() const {
    Values made = *this;
    for (de::DeGraphicBuffer& buffer : made.buffers) {
        Parcel parcel;
        buffer.writeToParcel(&parcel);
        parcel.setDataPosition(0);
        buffer = de::DeGraphicBuffer();
        buffer.readFromParcel(&parcel);
    }
    return made;
}

Values makeValues(FuzzedDataProvider& data) {
    Values made;
    for (int32_t& number : made.numbers) {
        number = data.ConsumeIntegral<int32_t>();
    }
    made.result = data.ConsumeIntegral<int32_t>();
    made.values.resize(data.ConsumeIntegralInRange<size_t>(0, 7), made.result);
    made.bytes.resize(data.ConsumeIntegralInRange<size_t>(0, 7), 0xa5);
    const auto has = data.ConsumeIntegral<uint8_t>();
    made.accepted = (has & 1) != 0;
    if ((has & 2) != 0) {
        made.bundle.putInt(String16("k"), made.numbers[0]);
    }
    for (int i = 0; i < 2; ++i) {
        if ((has & (4 << i)) != 0) {
            made.buffers[i].setGraphicBuffer(
                new GraphicBuffer(4, 2, PIXEL_FORMAT_RGB_565, 1, has, "fuzz"));
        }
    }
    static const sp<RecordingCallback>* const callback =
        new sp<RecordingCallback>(new RecordingCallback);
    made.callback = (has & 16) != 0 ? *callback : nullptr;
    return made;
}

Status makeStatus(FuzzedDataProvider& data, bool transport) {
    const int kind = data.ConsumeIntegralInRange(0, transport ? 3 : 2);
    const auto number = data.ConsumeIntegral<int32_t>();
    switch (kind) {
        case 0:
            return Status::ok();
        case 1:
            return Status::fromExceptionCode(number, "why");
        case 2:
            return Status::fromServiceSpecificError(number, "why");
        default:
            return Status::fromStatusT(number);
    }
}

bool same(const Parcel& a, const Parcel& b) {
    const auto sameObject = [](const ParcelObject& one, const ParcelObject& other) {
        return one.binder == other.binder && (one.fd < 0) == (other.fd < 0);
    };
    return a.dataSize() == b.dataSize() &&
           std::equal(a.data(), a.data() + a.dataSize(), b.data()) &&
           std::equal(a.objects().begin(), a.objects().end(), b.objects().begin(),
                      b.objects().end(), sameObject);
}

}  // namespace fuzz
