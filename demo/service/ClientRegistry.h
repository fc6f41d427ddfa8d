// SPDX-License-Identifier: Apache-2.0
// The registered clients and the enable state that is sent to them.
#pragma once

#include <binder/IBinder.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineCallback.h"
#include "common/DeMutex.h"
#include "tools/support/JsonText.h"

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

    using Key = std::optional<std::string>;

    explicit ClientRegistry(bool enabled) : mEnabled(enabled) {}

    /**
     * Registers `callback`. Under a key, an earlier registration of the key is replaced, and the
     * callback is told the current enable state; without one, a second time changes nothing. False
     * when the client is already dead.
     */
    bool add(const Key& key, const Callback& callback, pid_t pid);

    /**
     * Withdraws the registration of `key` if `pid` made it, or without a key the one of `callback`.
     * Processes of one name share a key, and the exit of one must not silence the one that has
     * replaced it. False when there is none.
     */
    bool remove(const Key& key, const Callback& callback, pid_t pid);

    bool enabled() const;

    /** The registered "clients", and the last "events": changes of them and of the state. */
    Json describe() const;

    /** Changes the enable state and sends it to every client. */
    void setEnabled(bool enabled);

    void binderDied(const android::wp<android::IBinder>& who) override;

private:
    struct Client {
        Key key;
        pid_t pid;
        Callback callback;
    };
    using Iterator = std::vector<Client>::iterator;

    void note(const std::string& event) DE_REQUIRES(mMutex);
    bool sendState(const Client& client) const DE_REQUIRES(mMutex);
    Iterator erase(Iterator client, const char* why) DE_REQUIRES(mMutex);
    Iterator find(const Key& key, const Callback& callback) DE_REQUIRES(mMutex);

    mutable DeMutex mMutex;
    bool mEnabled DE_GUARDED_BY(mMutex);
    std::vector<Client> mClients DE_GUARDED_BY(mMutex);
    Json mEvents DE_GUARDED_BY(mMutex) = Json::array();
};

}  // namespace sample
