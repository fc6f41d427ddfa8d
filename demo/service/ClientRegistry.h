// SPDX-License-Identifier: Apache-2.0
// The registered clients and the enable state that they are told.
#pragma once

#include <binder/IBinder.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineCallback.h"
#include "common/DeMutex.h"

namespace sample {

/**
 * Keeps at most one keyed registration per key, and any number of callbacks without a key, and
 * drops each when its process dies. All operations may be called from any thread.
 *
 * The enable state is kept here so that a client that registers while the state changes is told the
 * later of the two: state and clients change under one lock, and events of one callback arrive in
 * the order in which they were sent.
 */
class ClientRegistry : public android::IBinder::DeathRecipient {
public:
    using Callback = android::sp<com::tivora::displayengine::IDisplayEngineCallback>;

    explicit ClientRegistry(bool enabled) : mEnabled(enabled) {}

    /**
     * Registers `callback` under `key` and tells it the current enable state; an earlier
     * registration of the key is replaced. False when the client is already dead.
     */
    bool add(const std::string& key, const Callback& callback, pid_t pid);

    /**
     * Registers `callback` without a key; a second time changes nothing. False when the client is
     * already dead.
     */
    bool add(const Callback& callback, pid_t pid);

    /**
     * Withdraws the registration of `key` if `pid` made it. Processes of one name share a key, and
     * the exit of one must not silence the one that has replaced it. False when there is none.
     */
    bool remove(const std::string& key, pid_t pid);

    /** Withdraws `callback`, registered without a key. False when it is not registered. */
    bool remove(const Callback& callback, pid_t pid);

    bool enabled() const;

    /** The registered clients, one "key=K pid=P" text each ("pid=P" without a key). */
    std::vector<std::string> describe() const;

    /** Changes the enable state and sends it to every client; returns how many were reached. */
    size_t setEnabled(bool enabled);

    void binderDied(const android::wp<android::IBinder>& who) override;

private:
    struct Client {
        std::optional<std::string> key;
        pid_t pid;
        Callback callback;
    };

    void insert(Client client) DE_REQUIRES(mMutex);
    void sendState(const Client& client, size_t* reached) const DE_REQUIRES(mMutex);
    void erase(std::vector<Client>::iterator client, const char* why) DE_REQUIRES(mMutex);
    std::vector<Client>::iterator findKey(const std::string& key) DE_REQUIRES(mMutex);
    std::vector<Client>::iterator findBinder(const android::sp<android::IBinder>& binder)
        DE_REQUIRES(mMutex);

    mutable DeMutex mMutex;
    bool mEnabled DE_GUARDED_BY(mMutex);
    std::vector<Client> mClients DE_GUARDED_BY(mMutex);
};

}  // namespace sample
