// SPDX-License-Identifier: Apache-2.0
#include "Library.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <cstring>
#include <exception>
#include <thread>

#include "Report.h"

namespace checker {
namespace {

constexpr char kSubmit[] = "AisrSetParam(AISR_TAG_SET_BUF)";
constexpr char kCancel[] = "AisrSetParam(AISR_TAG_SET_TIMEOUT)";
constexpr char kLogLevel[] = "AisrSetParam(AISR_TAG_SET_LOG_LEVEL)";

size_t indexOf(const std::string& entry) {
    size_t i = 0;
    while (entry != kEntries[i]) {
        ++i;
    }
    return i;
}

void mustSucceed(int32_t status, const std::string& what) {
    if (status != AISR_SUCCESS) {
        failAndStop(what + " returned " + statusText(status));
    }
}

}  // namespace

std::string statusText(int32_t status) {
    constexpr const char* kNames[] = {"AISR_SUCCESS", "AISR_ERR_FATAL", "AISR_ERR_BUF_COPY",
                                      "AISR_ERR_TIMEOUT"};
    const std::string number = std::to_string(status);
    return status < 0 || status > AISR_ERR_TIMEOUT ? number + ", which is no status"
                                                   : kNames[status] + ("(" + number + ")");
}

Library::Library(const Settings& settings) {
    const Doing doing("the loading of the library");
    mHandle = dlopen(settings.library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (mHandle == nullptr) {
        failAndStop(dlerror());
    }
    const auto locate = [this](const char* entry, auto& function) {
        function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(find(entry));
    };
    locate("AisrInit", mInit);
    locate("AisrDeinit", mDeinit);
    locate("AisrProcess", mProcess);
    locate("AisrSetParam", mSetParam);
}

void* Library::find(const char* entry) const {
    return dlsym(mHandle, entry);
}

void Library::close() {
    const Doing doing("the closing of the library");
    dlclose(mHandle);
}

template <typename FUNC>
int32_t Library::call(const char* entry, const char* what, const Frame* frame, FUNC func) {
    const Doing doing(what, frame != nullptr ? static_cast<int64_t>(frame->index()) : -1,
                      frame != nullptr ? frame->shape() : FrameShape{});
    const std::string where = what + (frame != nullptr ? ", " + frame->text() : std::string());
    int32_t status = AISR_SUCCESS;
    try {
        status = func();
    } catch (const std::exception& error) {
        failAndStop(where + ": an exception left the entry (" + error.what() + ")");
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being ended
    } catch (...) {
        failAndStop(where + ": an exception left the entry");
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    mStatuses[indexOf(entry)].insert(status);
    return status;
}

int32_t Library::setLogLevel(int32_t level) {
    return setParam(kLogLevel, AISR_TAG_SET_LOG_LEVEL, &level, sizeof(level));
}

int32_t Library::init() {
    return call("AisrInit", "AisrInit", nullptr, [this] { return mInit(&mContext); });
}

int32_t Library::deinit() {
    return call("AisrDeinit", "AisrDeinit", nullptr, [this] { return mDeinit(&mContext); });
}

int32_t Library::submit(const Frame& frame) {
    return setParam(kSubmit, AISR_TAG_SET_BUF, &frame.list(), sizeof(AisrBufferList), &frame);
}

int32_t Library::process(const Frame& frame) {
    return call("AisrProcess", "AisrProcess", &frame, [this] { return mProcess(&mContext); });
}

int32_t Library::cancel(const AisrBuffer& buffer) {
    const AisrBuffer record = buffer;
    return setParam(kCancel, AISR_TAG_SET_TIMEOUT, &record, sizeof(record));
}

int32_t Library::setParam(const char* what, int32_t tag, const void* data, uint64_t size,
                          const Frame* frame) {
    return call("AisrSetParam", what, frame, [&] { return mSetParam(&mContext, tag, data, size); });
}

int32_t Library::enhance(const Frame& frame) {
    const int32_t status = submit(frame);
    return status == AISR_SUCCESS ? process(frame) : status;
}

void Library::start(int32_t level) {
    setLogLevel(level);
    mustSucceed(init(), "AisrInit");
}

void Library::end() {
    mustSucceed(deinit(), "AisrDeinit");
}

void Library::mustEnhance(const Frame& frame, const std::string& when) {
    const std::string where = ", " + frame.text() + (when.empty() ? "" : ", " + when) + ",";
    mustSucceed(submit(frame), kSubmit + where);
    mustSucceed(process(frame), "AisrProcess" + where);
}

std::set<int32_t> Library::statuses(const std::string& entry) {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mStatuses[indexOf(entry)];
}

void pause(double milliseconds) {
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(milliseconds));
}

}  // namespace checker
