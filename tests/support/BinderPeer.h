// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Binder.h>
#include <binder/IBinder.h>
#include <utils/String16.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

/**
 * The object that stands at the other end in the tests of binder: a service that does what the
 * tests ask it to, in a program of its own.
 */
class PeerObject : public android::BBinder {
public:
    enum : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION, /**< int32 status: replied with the data, or returned */
        CALLER,                        /**< replies pid and uid of the caller */
        CALL_BACK, /**< binder, int32 depth: calls its CALL_BACK with itself and depth - 1 */
        KEEP,      /**< binder: keeps it; replies it */
        DROP,      /**< lets go of all it has kept */
        CALL_KEPT, /**< calls ECHO of the first kept one; replies the status */
        BLOCK,     /**< says "blocked N", N calls being blocked, and waits for the gate */
        RECORD,    /**< int32, any bytes; oneway. Waits for the gate */
        RECORDED,  /**< int32 count: waits for so many records; replies the most BLOCK and RECORD
                      calls run at a time, and the numbers recorded */
        LARGE,     /**< int32 size: replies a parcel of that size */
        WRITE,     /**< descriptor: writes "written" to it */
        FORK,      /**< forks a child that only waits; replies its pid */
        EXIT,      /**< ends the program through exit() */
        LOOK_UP,   /**< string16: replies the service of that name */
        WAIT, /**< descriptor: says "waiting", reads a byte from it, says "done", or "late" when
                 exit did not wait for it */
    };

    /** Opens or shuts the gate, open at first. */
    void setGate(bool open);
    /** The thread and the caller of the latest CALL_BACK. */
    pid_t lastCaller() const { return mLastCaller; }
    pid_t lastThread() const { return mLastThread; }

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t callBack(const android::Parcel& data, android::Parcel* reply);
    void block();
    void record(int32_t number);

    pid_t mLastCaller = 0;
    pid_t mLastThread = 0;
    std::mutex mLock;
    std::condition_variable mChanged;
    bool mOpen = true;
    int32_t mRunning = 0;  // BLOCK and RECORD calls
    int32_t mMost = 0;
    std::vector<int32_t> mRecorded;
    std::vector<android::sp<android::IBinder>> mKept;
};

/**
 * The program: `arguments` are "--peer", the service's name and "pool", "join" or "none" for the
 * threads that run its calls. It says "registered", or the error, and then obeys its input: "shut"
 * and "open" for the gate, "pool" to start one, "exit", "lookup NAME".
 */
int runPeer(const std::vector<std::string>& arguments);
