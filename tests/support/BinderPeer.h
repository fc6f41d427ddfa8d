// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Binder.h>

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
        ANSWER = FIRST_CALL_TRANSACTION, /**< int32: a status to return, or a reply's size */
        KEEP,   /**< binder: keeps it, or nothing; replies it and what a ping of it answers */
        EVENTS, /**< int32 count: sends what it has kept so many EVENT, numbered from 0, until one
                   fails; replies how many were sent and the last status */
        EVENT,  /**< int32; oneway */
        BLOCK,  /**< descriptor: says "blocked" and waits until it is readable; says "done", or
                   "late" when exit did not wait for it */
        FORK,   /**< forks a child that only waits; replies its pid */
        EXIT,   /**< ends the program through exit() */
    };

    /** Writes the arguments. */
    android::status_t dump(int fd, const android::Vector<android::String16>& args) override;
    /** Waits for so many EVENT and takes their numbers. */
    std::vector<int32_t> takeEvents(size_t count);

protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<int32_t> mEvents;
};

/**
 * The program: `threads` is "pool", "join" or "none", for what runs its calls. It says "registered"
 * once it is the service "peer", or the error, and then obeys its input: "pool", "exit", and any
 * other word is said back.
 */
int runPeer(const std::string& threads);
