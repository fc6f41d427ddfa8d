#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/BufferInfo.h"
#include "common/Export.h"

/**
 * Adapter of the closed AI super-resolution library, which it opens at run time: first under its
 * bare name, then in the system's library folder. Without that library only enhancement fails; each
 * later use tries to open it again.
 *
 * init() and deinit() may be called on any thread and take their turns. One thread at a time calls
 * enhance(), and any other may call cancel() meanwhile. deinit() waits for a frame in processing;
 * cancel() never does, though it may wait for the library's deinit entry.
 */
class DE_EXPORT AisrAlgorithm {
public:
    AisrAlgorithm() = default;
    /** De-initialises and closes the library. No other operation may be running. */
    virtual ~AisrAlgorithm();
    AisrAlgorithm(const AisrAlgorithm&) = delete;
    AisrAlgorithm& operator=(const AisrAlgorithm&) = delete;

    /** Opens and initialises the library unless that is done. 0 on success, otherwise -1. */
    int init();

    /**
     * De-initialises the library, which stays open; the next enhance() initialises it again. 0 on
     * success and when nothing was initialised; -1 when the library cannot be opened or its entry
     * fails.
     */
    int deinit();

    /**
     * Processes one frame in place, for as long as the library takes. The planes stay the caller's.
     * Initialises the library if need be. 0 on success, otherwise -1.
     */
    int enhance(const Aisr::BufferInfo& info);

    /** Tells the library to abandon `info`'s frame, which may be in processing. */
    void cancel(const Aisr::BufferInfo& info);

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

    // REQUIRES: mMutex held.
    bool loadLibrary();
    // REQUIRES: mMutex held. Leaves in `path` the path last tried.
    bool openLibrary(std::string& path);
    // REQUIRES: mMutex held. Stores the entry's address in `entry` before it is tested.
    template <typename FUNC>
    DE_HIDDEN bool findEntry(const char* symbol, FUNC& entry);
    // REQUIRES: mMutex held.
    void unloadLibrary();
    // REQUIRES: the library is loaded.
    bool setParam(int tag, const void* data, unsigned long size);

    std::mutex mMutex;  ///< Loading, initialising, de-initialising and unloading.
    void* mHandle = nullptr;
    bool mIsLoaded = false;
    std::atomic<bool> mIsInited{false};
    void* mContext = nullptr;  ///< The library's own; only its address is used here.
    ContextFunc mInitFunc = nullptr;
    ContextFunc mDeinitFunc = nullptr;
    ContextFunc mProcessFunc = nullptr;
    UnusedFunc mDoCleanFunc = nullptr;   ///< Required of the library, never called.
    UnusedFunc mGetParamFunc = nullptr;  ///< Required of the library, never called.
    SetParamFunc mSetParamFunc = nullptr;

    // The library's deinit entry must overlap neither processing nor a cancel, while a cancel must
    // overlap processing and never wait for it, also not when deinit() is waiting. Hence one mutex
    // for submitting and processing a frame and a short one for a cancel's call. Order: mMutex,
    // mProcessMutex, mCancelMutex. init() is called holding neither of the two.
    std::mutex mProcessMutex;
    std::mutex mCancelMutex;
};
