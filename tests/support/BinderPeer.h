// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Binder.h>

#include <memory>
#include <string>
#include <utility>

#include "support/Lines.h"

/**
 * The object at the other end in the tests of binder: a service in a program of its own that does
 * what the tests ask it to. The tests hand it objects of this kind too.
 */
class PeerObject : public android::BBinder {
public:
    enum : uint32_t {
        ANSWER = FIRST_CALL_TRANSACTION, /**< int32: a status to return, or a reply's size */
        KEEP,   /**< binder: keeps it, or nothing; replies it and what a ping of it answers */
        EVENTS, /**< int32 count: sends what it has kept so many EVENT, numbered from 0, until one
                   fails; replies how many were sent and the last status */
        EVENT,  /**< int32; oneway */
        BLOCK,  /**< descriptor: says "blocked", waits for a byte and says "done" */
        FORK,   /**< forks a child that only waits; replies its pid */
        EXIT,   /**< ends the program through exit() */
    };

    /** Adds "event <number>" to the lines for each EVENT, and "gone" when it is destroyed. */
    explicit PeerObject(std::shared_ptr<Lines> lines = std::make_shared<Lines>())
        : mLines(std::move(lines)) {}

protected:
    ~PeerObject() override { mLines->add("gone"); }
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    const std::shared_ptr<Lines> mLines;
    android::sp<android::IBinder> mKept;
};

/**
 * The program. It says "registered" once it is the service "peer", or the error. Then it obeys
 * `word` and the words of its input, each after it has said it: "pool" starts the thread pool,
 * "exit" ends it, and others do nothing.
 */
int runPeer(std::string word);
