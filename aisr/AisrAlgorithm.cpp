// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N AISRAlgo"

#include "aisr/AisrAlgorithm.h"

#include <cutils/properties.h>
#include <dlfcn.h>

#include <memory>
#include <string_view>
#include <type_traits>

#include "common/AisrProcess.h"
#include "common/Log.h"

namespace {

// Never destroyed: a process that is exiting may still bring its engine up.
const std::string& kLibraryName = *new std::string("libAISRProcess_interface.so");
constexpr char kLibraryFolder[] = "/system/lib64/";

constexpr int32_t kLogLevelUsual = 1;
constexpr int32_t kLogLevelDebug = 3;

/**
 * The loader's text for the last failure, until the loader is called again. It is handed out once,
 * and may be missing.
 */
const char* takeLoaderError() {
    const char* error = dlerror();
    return error == nullptr ? "" : error;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

AisrBuffer toAisrBuffer(const Aisr::BufferInfo& info) {
    AisrBuffer buffer{};
    buffer.id = info.id;
    buffer.idx = info.idx;
    buffer.width = info.width;
    buffer.height = info.height;
    buffer.stride = info.stride;
    buffer.y = info.y;
    buffer.uv = info.uv;
    return buffer;
}

/** A list of one frame; lives from the submission until its processing has returned. */
class OneBufferList {
public:
    explicit OneBufferList(const AisrBuffer& buffer)
        : mNode(new AisrBufferNode{{&mList.ends, &mList.ends}, buffer}),
          mList{{&mNode->links, &mNode->links}, 1} {}
    OneBufferList(const OneBufferList&) = delete;
    OneBufferList& operator=(const OneBufferList&) = delete;

    const AisrBufferList* get() const { return &mList; }

private:
    std::unique_ptr<AisrBufferNode> mNode;
    AisrBufferList mList;
};

}  // namespace

AisrAlgorithm::~AisrAlgorithm() {
    DE_LOGD("step in");
    deinit();
    const DeMutexLock lock(mMutex);
    unloadLibrary();
}

bool AisrAlgorithm::openLibrary(std::string& path) {
    path = kLibraryName;
    mHandle = dlopen(path.c_str(), RTLD_NOW);
    if (mHandle != nullptr) {
        return true;
    }
    const char* error = takeLoaderError();
    if (endsWith(error, "not found")) {
        path = kLibraryFolder + kLibraryName;
        mHandle = dlopen(path.c_str(), RTLD_NOW);
        if (mHandle != nullptr) {
            return true;
        }
        error = takeLoaderError();
    }
    DE_LOGW("Can't open library '%s' - %s", path.c_str(), error);
    return false;
}

bool AisrAlgorithm::loadLibrary() {
    if (mIsLoaded) {
        return true;
    }
    std::string path;
    if (!openLibrary(path)) {
        return false;
    }
    const char* symbol = nullptr;
    const auto find = [&](const char* name, auto& entry) DE_REQUIRES(mMutex) {
        symbol = name;
        entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(dlsym(mHandle, name));
        return entry != nullptr;
    };
    const bool isComplete =
        find("AisrInit", mInitFunc) && find("AisrDeinit", mDeinitFunc) &&
        find("AisrProcess", mProcessFunc) && find("AisrDoClean", mDoCleanFunc) &&
        find("AisrGetParam", mGetParamFunc) && find("AisrSetParam", mSetParamFunc);
    if (!isComplete) {
        DE_LOGW("Failed to locate %s in '%s' - %s", symbol, path.c_str(), takeLoaderError());
        unloadLibrary();
        return false;
    }
    DE_LOGI("Load library successfully.");
    mIsLoaded = true;
    return true;
}

void AisrAlgorithm::unloadLibrary() {
    if (mHandle != nullptr) {
        dlclose(mHandle);
        mHandle = nullptr;
        DE_LOGI("Unload library.");
    }
    mIsLoaded = false;
}

int AisrAlgorithm::init() {
    const DeMutexLock lock(mMutex);
    if (!loadLibrary()) {
        return -1;
    }
    if (mIsInited) {
        return 0;
    }
    // The library takes its log level before it is initialised, each time.
    const int32_t level =
        property_get_bool("persist.sys.tivora.debug.on", false) ? kLogLevelDebug : kLogLevelUsual;
    const bool isSet = setParam(AISR_TAG_SET_LOG_LEVEL, &level, sizeof(level));
    DE_LOGD("setParam(AISR_TAG_SET_LOG_LEVEL,%d) return %d", level, isSet);

    const int32_t status = mInitFunc(&mContext);
    if (status != AISR_SUCCESS) {
        DE_LOGW("mInitFunc failed, return %s", errToString(status).c_str());
        return -1;
    }
    mIsInited = true;
    return 0;
}

int AisrAlgorithm::deinit() {
    const DeMutexLock lock(mMutex);
    if (!loadLibrary()) {
        return -1;
    }
    if (!mIsInited) {
        return 0;
    }
    const DeMutexLock processLock(mProcessMutex);
    mIsInited = false;
    {
        // Cancels that saw the flag set have returned after this; later ones do not wait for the
        // entry, which may take long.
        const DeMutexLock cancelLock(mCancelMutex);
    }
    const int32_t status = mDeinitFunc(&mContext);
    if (status != AISR_SUCCESS) {
        DE_LOGW("mDeinitFunc failed, return %s", errToString(status).c_str());
        return -1;
    }
    return 0;
}

int AisrAlgorithm::enhance(const Aisr::BufferInfo& info) {
    DeMutexLock processLock(mProcessMutex);
    // A loop, since a deinit() may come between the initialisation and the lock.
    while (!mIsInited) {
        processLock.unlock();
        if (init() != 0) {
            DE_LOGW("Retry init() failed!");
            return -1;
        }
        processLock.lock();
    }

    const OneBufferList list(toAisrBuffer(info));
    DE_LOGD("%s", toString(info).c_str());
    if (!setParam(AISR_TAG_SET_BUF, list.get(), sizeof(AisrBufferList))) {
        return -1;
    }
    const int32_t status = mProcessFunc(&mContext);
    if (status != AISR_SUCCESS) {
        DE_LOGW("mProcessFunc failed, return %s", errToString(status).c_str());
        return -1;
    }
    return 0;
}

void AisrAlgorithm::cancel(const Aisr::BufferInfo& info) {
    const DeMutexLock cancelLock(mCancelMutex);
    if (!mIsInited) {
        DE_LOGW("Oops! NOT ready!");
        return;
    }
    const AisrBuffer buffer = toAisrBuffer(info);
    const bool isSet = setParam(AISR_TAG_SET_TIMEOUT, &buffer, sizeof(buffer));
    DE_LOGD("%s -- %s", toString(info).c_str(), isSet ? "success." : "failed!");
}

bool AisrAlgorithm::setParam(int tag, const void* data, unsigned long size) {
    const int32_t status = mSetParamFunc(&mContext, tag, data, size);
    if (status != AISR_SUCCESS) {
        DE_LOGW("mSetParamFunc(&mContext,%s,&bufInfo,%zu) failed, return %s",
                getTagName(tag).c_str(), static_cast<size_t>(size), errToString(status).c_str());
        return false;
    }
    return true;
}

int AisrAlgorithm::doClean() {
    return 0;
}
