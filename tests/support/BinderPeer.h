// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Binder.h>
#include <binder/IBinder.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

/**
 * The object that stands at the other end in the tests of binder: a service that does what the
 * tests ask it to, in a program of its own. The tests hand it objects of this kind too.
 */
class PeerObject : public android::BBinder {
public:
    enum : uint32_t {
        ECHO = FIRST_CALL_TRANSACTION, /**< int32 status: replied with the data, or returned */
        CALLER,                        /**< replies pid and uid of the caller */
        KEEP,                          /**< binder: keeps it; replies it */
        DROP,                          /**< lets go of what it has kept */
        CALL_KEPT, /**< makes a two-way call to what it has kept; replies the status */
        EVENTS, /**< int32 count: sends what it has kept so many RECORD, numbered from 0, or until
                   one fails; replies how many were sent and the last status */
        RECORD, /**< int32; oneway */
        BLOCK,  /**< says "blocked N", N calls being blocked, and waits for "open" */
        LARGE,  /**< int32 size: replies a parcel of that size */
        WRITE,  /**< descriptor: writes "written" to it */
        FORK,   /**< forks a child that only waits; replies its pid */
        EXIT,   /**< ends the program through exit() */
        WAIT,   /**< descriptor: says "waiting", reads a byte from it, says "done", or "late" when
                   exit did not wait for it */
    };

    /** Lets the blocked calls go, and later ones. */
    void open();
    /** Waits for so many RECORD and takes their numbers. */
    std::vector<int32_t> takeRecords(size_t count);
    /** Tells what it has kept that the program ends; the status. */
    android::status_t sayGoodbye();

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    android::status_t sendEvents(int32_t count, android::Parcel* reply);
    void block();

    std::mutex mLock;
    std::condition_variable mChanged;
    bool mIsOpen = false;
    int32_t mBlocked = 0;
    std::vector<int32_t> mRecords;
    android::sp<android::IBinder> mKept;
};

/**
 * The program: `arguments` are "--peer", and "pool", "join" or "none" for what runs its calls. It
 * says "registered" once it is the service "peer", or the error, and then obeys its input: "open",
 * "pool", "exit", and any other word is said back.
 */
int runPeer(const std::vector<std::string>& arguments);
