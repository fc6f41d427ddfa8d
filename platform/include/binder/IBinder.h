// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

namespace android {

class BBinder;
class BpBinder;
class IInterface;
class Parcel;
namespace internal {
class Stability;
}

/** Packs four characters into a transaction code of the platform's own. */
constexpr uint32_t packTransactionCode(char c1, char c2, char c3, char c4) {
    return (static_cast<uint32_t>(c1) << 24) | (static_cast<uint32_t>(c2) << 16) |
           (static_cast<uint32_t>(c3) << 8) | static_cast<uint32_t>(c4);
}

/**
 * An object that can be called, in this process (BBinder) or in another one (BpBinder). Reference
 * counted; every operation may be called from any thread.
 */
class IBinder : public virtual RefBase {
public:
    enum : uint32_t {
        FIRST_CALL_TRANSACTION = 0x00000001,

        PING_TRANSACTION = packTransactionCode('_', 'P', 'N', 'G'),
        DUMP_TRANSACTION = packTransactionCode('_', 'D', 'M', 'P'),
        INTERFACE_TRANSACTION = packTransactionCode('_', 'N', 'T', 'F'),

        /** The caller does not wait; nothing that the callee answers comes back. */
        FLAG_ONEWAY = 0x00000001,
    };

    /**
     * Told once when the process of a remote object has died, on the thread that reads events; a
     * client without a thread pool is not told.
     */
    class DeathRecipient : public virtual RefBase {
    public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    /** The interface that the object implements in this process, null unless it is `descriptor`. */
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);

    /** The interface's name; asked once of a remote object, empty while it cannot be reached. */
    virtual const String16& getInterfaceDescriptor() const = 0;

    /** False once the process of a remote object is known to have died. */
    virtual bool isBinderAlive() const = 0;

    /** OK when the object answers, DEAD_OBJECT when its process has died. */
    virtual status_t pingBinder() = 0;

    /** Makes the object write a description of itself to `fd`, which stays the caller's. */
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    /**
     * Calls the object. A two-way call blocks until the reply arrives or the object's process dies
     * (DEAD_OBJECT), without a time limit; with FLAG_ONEWAY it returns as soon as the call is on
     * its way. FAILED_TRANSACTION: a parcel above 1 MiB or with more than 253 descriptors, a
     * process without a descriptor or thread left for the call, or a oneway call to a process that
     * is too far behind. INVALID_OPERATION: a two-way call to an object of a client process.
     * NO_MEMORY: this process had none for the call or the reply. Any other error is what the
     * object returned.
     */
    virtual status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                              uint32_t flags = 0) = 0;

    /**
     * Has `recipient` told when the object's process dies. The registration lasts as long as the
     * proxy. DEAD_OBJECT when it has died already, INVALID_OPERATION for an object of this process.
     */
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;

    /** Undoes linkToDeath. NAME_NOT_FOUND when nothing matches, DEAD_OBJECT after the death. */
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient>* outRecipient = nullptr) = 0;

    /** This object when it lives in this process, else null. */
    virtual BBinder* localBinder() { return nullptr; }

    /** This object when it is a proxy, else null. */
    virtual BpBinder* remoteBinder() { return nullptr; }

protected:
    ~IBinder() override = default;

private:
    friend class internal::Stability;

    std::atomic<int32_t> mStability{0};
};

}  // namespace android
