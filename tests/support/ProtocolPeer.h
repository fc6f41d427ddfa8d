// SPDX-License-Identifier: Apache-2.0
// The other end of the binder, for the tests of the two interfaces: a second process, or an object
// of this one that answers with bytes given beforehand.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace protocol {

/**
 * main() of a test that is other programs as well: runs the tests, or the peer or another role when
 * the first argument asks for it. A role is given the second argument.
 */
using Role = std::function<int(const std::string&)>;
int testMain(int argc, char** argv, const std::map<std::string, Role>& roles = {});

/**
 * Registers the objects, writes "ready", and serves until the process is ended; 1 when it cannot.
 */
int serve(const std::map<std::string, android::sp<android::IBinder>>& objects);

/**
 * Bytes as text, in groups of four: "05000000 ff". The layouts in the tests are written this way.
 */
std::string hex(const uint8_t* bytes, size_t size);
std::string hex(const android::Parcel& parcel);
std::vector<uint8_t> unhex(const std::string& text);

/** Makes a two-way transaction with exactly these bytes. */
android::status_t send(const android::sp<android::IBinder>& binder, uint32_t code,
                       const std::string& bytes, android::Parcel* reply);

/** Makes the next operation of a RecordingService answer with an exception; `code` is its own. */
void raise(const android::sp<android::IBinder>& service, int32_t exception, const char* message,
           int32_t code = 0);

/** A started peer. Its process ends when this goes. */
class Peer {
public:
    Peer();

    android::sp<android::IBinder> service; /**< a RecordingService */

    /** Waits for `count` calls of `recorder` and takes them. */
    static std::vector<std::string> takeCalls(const android::sp<android::IBinder>& recorder,
                                              int32_t count);

private:
    ChildProcess mProcess;
};

/** Keeps the last transaction, and returns `returned` with the bytes of `reply`. */
class ScriptedBinder : public android::BBinder {
public:
    uint32_t code = 0;
    uint32_t flags = 0;
    std::string request;
    android::status_t returned = android::OK;
    std::string reply;

protected:
    android::status_t onTransact(uint32_t transactionCode, const android::Parcel& data,
                                 android::Parcel* out, uint32_t transactionFlags) override;
};

}  // namespace protocol
