// SPDX-License-Identifier: Apache-2.0
// The registered clients and the enable state that is sent to them.
#pragma once

#include <binder/IBinder.h>
#include <binder/PersistableBundle.h>
#include <sys/types.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "Report.h"
#include "aidl/IDisplayEngineService.h"
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
    bool add(const Key& key, const Callback& callback, pid_t pid) {
        const DeMutexLock lock(mMutex);
        const auto previous = find(key, callback);
        if (!key && previous != mClients.end()) {
            return true;
        }
        // The new client is watched before the old one is dropped: a dead one replaces nobody.
        if (binderOf(callback)->linkToDeath(this) != android::OK) {
            return false;
        }
        if (previous != mClients.end()) {
            erase(previous, "replaced");
        }
        mClients.push_back({key, pid, callback});
        note("registered " + wordsOf(descriptionOf(mClients.back())));
        if (key) {
            sendState(mClients.back());
        }
        return true;
    }

    /**
     * Withdraws the registration of `key` if `pid` made it, or without a key the one of `callback`.
     * Processes of one name share a key, and the exit of one must not silence the one that has
     * replaced it. False when there is none.
     */
    bool remove(const Key& key, const Callback& callback, pid_t pid) {
        const DeMutexLock lock(mMutex);
        const auto client = find(key, callback);
        if (client == mClients.end() || client->pid != pid) {
            return false;
        }
        erase(client, "withdrawn");
        return true;
    }

    bool enabled() const {
        const DeMutexLock lock(mMutex);
        return mEnabled;
    }

    /** The registered "clients", and the last "events": changes of them and of the state. */
    Json describe() const {
        const DeMutexLock lock(mMutex);
        Json clients = Json::array();
        for (const Client& client : mClients) {
            clients.push_back(descriptionOf(client));
        }
        return {{"clients", clients}, {"events", mEvents}};
    }

    /** Changes the enable state and sends it to every client. */
    void setEnabled(bool enabled) {
        const DeMutexLock lock(mMutex);
        mEnabled = enabled;
        size_t reached = 0;
        for (const Client& client : mClients) {
            reached += sendState(client) ? 1 : 0;
        }
        note(std::string("enable ") + (enabled ? "on" : "off") +
             " clients=" + std::to_string(reached));
    }

    void binderDied(const android::wp<android::IBinder>& who) override {
        const android::sp<android::IBinder> binder = who.promote();
        const DeMutexLock lock(mMutex);
        // One object may be registered with and without a key.
        for (auto client = mClients.begin(); client != mClients.end();) {
            client =
                binderOf(client->callback) == binder ? erase(client, "died") : std::next(client);
        }
    }

private:
    struct Client {
        Key key;
        pid_t pid;
        Callback callback;
    };
    using Iterator = std::vector<Client>::iterator;
    using Service = com::tivora::displayengine::IDisplayEngineService;

    static constexpr size_t kMostEvents = 32;

    static android::sp<android::IBinder> binderOf(const Callback& callback) {
        return android::IInterface::asBinder(callback);
    }

    static Json descriptionOf(const Client& client) {
        return client.key ? Json{{"key", *client.key}, {"pid", client.pid}}
                          : Json{{"pid", client.pid}};
    }

    void note(const std::string& event) DE_REQUIRES(mMutex) {
        report(event);
        char time[32] = "";
        const std::time_t now = std::time(nullptr);
        std::tm utc = {};
        std::strftime(time, sizeof(time), "%FT%TZ", gmtime_r(&now, &utc));
        mEvents.push_back(Json{{"time", time}, {"event", event}});
        if (mEvents.size() > kMostEvents) {
            mEvents.erase(0);
        }
    }

    bool sendState(const Client& client) const DE_REQUIRES(mMutex) {
        android::os::PersistableBundle data;
        data.putBoolean(android::String16("Enable"), mEnabled);
        // Oneway: this never waits for the client. A dead client is dropped by its death notice.
        return client.callback->onEventWithData(Service::DE_EVENT_AISR, data).isOk();
    }

    Iterator erase(Iterator client, const char* why) DE_REQUIRES(mMutex) {
        note(why + (" " + wordsOf(descriptionOf(*client))));
        binderOf(client->callback)->unlinkToDeath(this);
        return mClients.erase(client);
    }

    Iterator find(const Key& key, const Callback& callback) DE_REQUIRES(mMutex) {
        return std::find_if(mClients.begin(), mClients.end(), [&](const Client& client) {
            return client.key == key && (key || binderOf(client.callback) == binderOf(callback));
        });
    }

    mutable DeMutex mMutex;
    bool mEnabled DE_GUARDED_BY(mMutex);
    std::vector<Client> mClients DE_GUARDED_BY(mMutex);
    Json mEvents DE_GUARDED_BY(mMutex) = Json::array();
};

}  // namespace sample
