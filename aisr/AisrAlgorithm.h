// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "common/BufferInfo.h"
#include "common/DeMutex.h"
#include "common/Export.h"

/**
 * Adapter of the closed AI super-resolution library, which it opens at run time: first under its
 * bare name, then in the system's library folder. Without that library only enhancement fails; each
 * later use tries to open it again.
 *
 * init() and deinit() may be called on any thread and take their turns. One thread at a time calls
 * enhance(), and any other may call cancel() meanwhile. deinit() waits for a frame in processing;
 * cancel() waits for none of the others. It runs the library's set-parameter entry on its caller's
 * thread, so it lasts as long as that entry takes for a cancel.
 */
class DE_EXPORT AisrAlgorithm {
public:
    AisrAlgorithm() = default;
    /** De-initialises and closes the library. No other operation may be running. */
    virtual ~AisrAlgorithm();
    AisrAlgorithm(const AisrAlgorithm&) = delete;
    AisrAlgorithm& operator=(const AisrAlgorithm&) = delete;

    /** Opens and initialises the library unless that is done. 0 on success, otherwise -1. */
    int init() DE_EXCLUDES(mMutex, mProcessMutex, mCancelMutex);

    /**
     * De-initialises the library, which stays open; the next enhance() initialises it again. 0 on
     * success and when nothing was initialised; -1 when the library cannot be opened or its entry
     * fails.
     */
    int deinit() DE_EXCLUDES(mMutex, mProcessMutex, mCancelMutex);

    /**
     * Processes one frame in place, for as long as the library takes. The planes stay the caller's.
     * Initialises the library if need be. 0 on success, otherwise -1.
     */
    int enhance(const Aisr::BufferInfo& info) DE_EXCLUDES(mMutex, mProcessMutex, mCancelMutex);

    /**
     * Tells the library to abandon `info`'s frame, which may be in processing. Does nothing while
     * the library is not initialised, or is being de-initialised.
     */
    void cancel(const Aisr::BufferInfo& info) DE_EXCLUDES(mCancelMutex);

    /** Does nothing; 0. */
    int doClean();

    /** "AISR_ERR_TIMEOUT(3)", or a text with the number for an unknown status. */
    std::string errToString(int status) const;
    /** "AISR_TAG_SET_BUF(2)", or a text with the number for an unnamed tag. */
    std::string getTagName(int tag) const;

    /** Lowercase hexadecimal without prefix. */
    static std::string toString(unsigned long value);
    /** The whole record: "data:{ id=7b3f idx=3 y=0xa00 uv=0xc00 640(704)x360 }". */
    static std::string toString(const Aisr::BufferInfo& info);
    /** The record without its addresses: "data:{ id=7b3f idx=3 640(704)x360 }". */
    static std::string toStringSafe(const Aisr::BufferInfo& info);
    /** The geometry, width(stride)xheight: "640(704)x360". */
    static std::string rectToString(const Aisr::BufferInfo& info);

private:
    using ContextFunc = int32_t (*)(void** context);
    using SetParamFunc = int32_t (*)(void** context, int32_t tag, const void* data, uint64_t size);
    using UnusedFunc = void (*)();

    bool loadLibrary() DE_REQUIRES(mMutex);
    // Leaves in `path` the path last tried.
    bool openLibrary(std::string& path) DE_REQUIRES(mMutex);
    void unloadLibrary() DE_REQUIRES(mMutex);
    // REQUIRES: the library is loaded, and stays so.
    bool setParam(int tag, const void* data, unsigned long size);

    DeMutex mMutex; /**< Loading, initialising, de-initialising and unloading. */
    void* mHandle DE_GUARDED_BY(mMutex) = nullptr;
    bool mIsLoaded DE_GUARDED_BY(mMutex) = false;
    std::atomic<bool> mIsInited{false}; /**< Set under mMutex; lets the others use the entries. */
    void* mContext = nullptr;           /**< The library's own; only its address is used here. */
    ContextFunc mInitFunc DE_GUARDED_BY(mMutex) = nullptr;
    ContextFunc mDeinitFunc DE_GUARDED_BY(mMutex) = nullptr;
    // These two are found under mMutex and constant from the first initialisation on: frames and
    // cancels call them without it, after they have seen mIsInited.
    ContextFunc mProcessFunc = nullptr;
    UnusedFunc mDoCleanFunc DE_GUARDED_BY(mMutex) = nullptr;  /**< Required, but never called. */
    UnusedFunc mGetParamFunc DE_GUARDED_BY(mMutex) = nullptr; /**< Required, but never called. */
    SetParamFunc mSetParamFunc = nullptr;

    // The library's deinit entry must overlap neither processing nor a cancel, while a cancel must
    // overlap processing, and wait neither for it nor for the deinit entry. Hence one mutex for
    // submitting and processing a frame, and a second one that only a cancel's call holds: deinit()
    // takes the first, clears mIsInited, and takes the second once before it calls the entry.
    DeMutex mProcessMutex DE_ACQUIRED_AFTER(mMutex);
    DeMutex mCancelMutex DE_ACQUIRED_AFTER(mMutex, mProcessMutex);
};
