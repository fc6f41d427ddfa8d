// SPDX-License-Identifier: Apache-2.0
#include "Library.h"

#include <dlfcn.h>

#include <exception>
#include <thread>

#include "Report.h"

namespace checker {
namespace {

using ContextFunc = int32_t (*)(void** context);
using SetParamFunc = int32_t (*)(void** context, int32_t tag, const void* data, uint64_t size);

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
}

void* Library::find(const char* entry) const {
    return dlsym(mHandle, entry);
}

void Library::close() {
    const Doing doing("the closing of the library");
    dlclose(mHandle);
}

template <typename FUNC>
int32_t Library::call(const std::string& what, const Frame* frame, FUNC func) {
    const Doing doing(what, frame != nullptr ? static_cast<int64_t>(frame->index()) : -1,
                      frame != nullptr ? frame->shape() : FrameShape{});
    std::string thrown;
    try {
        return func();
    } catch (const std::exception& error) {
        thrown = std::string(" (") + error.what() + ")";
    } catch (...) {  // also the end of the thread, which is none of the library's
    }
    failAndStop(what + (frame != nullptr ? ", " + frame->text() : "") +
                ": an exception left the entry" + thrown);
}

int32_t Library::setLogLevel(int32_t level) {
    return setParam("AisrSetParam(AISR_TAG_SET_LOG_LEVEL)", AISR_TAG_SET_LOG_LEVEL, &level,
                    sizeof(level));
}

int32_t Library::init() {
    return call("AisrInit", nullptr,
                [this] { return reinterpret_cast<ContextFunc>(find("AisrInit"))(&mContext); });
}

int32_t Library::deinit() {
    return call("AisrDeinit", nullptr,
                [this] { return reinterpret_cast<ContextFunc>(find("AisrDeinit"))(&mContext); });
}

int32_t Library::submit(const Frame& frame, const void* list) {
    return setParam("AisrSetParam(AISR_TAG_SET_BUF)", AISR_TAG_SET_BUF, list,
                    sizeof(AisrBufferList), &frame);
}

int32_t Library::process(const Frame& frame) {
    return call("AisrProcess", &frame,
                [this] { return reinterpret_cast<ContextFunc>(find("AisrProcess"))(&mContext); });
}

int32_t Library::cancel(const void* buffer) {
    return setParam("AisrSetParam(AISR_TAG_SET_TIMEOUT)", AISR_TAG_SET_TIMEOUT, buffer,
                    sizeof(AisrBuffer));
}

int32_t Library::setParam(const std::string& what, int32_t tag, const void* data, uint64_t size,
                          const Frame* frame) {
    return call(what, frame, [&] {
        return reinterpret_cast<SetParamFunc>(find("AisrSetParam"))(&mContext, tag, data, size);
    });
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
    mustSucceed(submit(frame), "AisrSetParam(AISR_TAG_SET_BUF)" + where);
    mustSucceed(process(frame), "AisrProcess" + where);
}

void pause(double milliseconds) {
    std::this_thread::sleep_for(std::chrono::duration<double, std::milli>(milliseconds));
}

}  // namespace checker
