// SPDX-License-Identifier: Apache-2.0
#include "ClientRegistry.h"

#include <binder/PersistableBundle.h>

#include <algorithm>
#include <ctime>
#include <iterator>

#include "Report.h"
#include "aidl/IDisplayEngineService.h"

using android::IBinder;
using android::IInterface;
using android::sp;
using android::String16;
using com::tivora::displayengine::IDisplayEngineService;

namespace sample {
namespace {

constexpr size_t kMostEvents = 32;

Json descriptionOf(const ClientRegistry::Key& key, pid_t pid) {
    return key ? Json{{"key", *key}, {"pid", pid}} : Json{{"pid", pid}};
}

}  // namespace

bool ClientRegistry::add(const Key& key, const Callback& callback, pid_t pid) {
    const DeMutexLock lock(mMutex);
    const auto previous = find(key, callback);
    if (!key && previous != mClients.end()) {
        return true;
    }
    // The new client is watched before the old one is dropped: a dead one replaces nobody.
    if (IInterface::asBinder(callback)->linkToDeath(this) != android::OK) {
        return false;
    }
    if (previous != mClients.end()) {
        erase(previous, "replaced");
    }
    mClients.push_back({key, pid, callback});
    note("registered " + wordsOf(descriptionOf(key, pid)));
    if (key) {
        sendState(mClients.back());
    }
    return true;
}

bool ClientRegistry::remove(const Key& key, const Callback& callback, pid_t pid) {
    const DeMutexLock lock(mMutex);
    const auto client = find(key, callback);
    if (client == mClients.end() || client->pid != pid) {
        return false;
    }
    erase(client, "withdrawn");
    return true;
}

bool ClientRegistry::enabled() const {
    const DeMutexLock lock(mMutex);
    return mEnabled;
}

Json ClientRegistry::describe() const {
    const DeMutexLock lock(mMutex);
    Json clients = Json::array();
    for (const Client& client : mClients) {
        clients.push_back(descriptionOf(client.key, client.pid));
    }
    return {{"clients", clients}, {"events", mEvents}};
}

void ClientRegistry::setEnabled(bool enabled) {
    const DeMutexLock lock(mMutex);
    mEnabled = enabled;
    size_t reached = 0;
    for (const Client& client : mClients) {
        reached += sendState(client) ? 1 : 0;
    }
    note(std::string("enable ") + (enabled ? "on" : "off") + " clients=" + std::to_string(reached));
}

void ClientRegistry::binderDied(const android::wp<IBinder>& who) {
    const sp<IBinder> binder = who.promote();
    const DeMutexLock lock(mMutex);
    // One object may be registered with and without a key.
    for (auto client = mClients.begin(); client != mClients.end();) {
        client = IInterface::asBinder(client->callback) == binder ? erase(client, "died")
                                                                  : std::next(client);
    }
}

void ClientRegistry::note(const std::string& event) {
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

bool ClientRegistry::sendState(const Client& client) const {
    android::os::PersistableBundle data;
    data.putBoolean(String16("Enable"), mEnabled);
    // Oneway: this never waits for the client. A dead client is dropped by its death notice.
    return client.callback->onEventWithData(IDisplayEngineService::DE_EVENT_AISR, data).isOk();
}

ClientRegistry::Iterator ClientRegistry::erase(Iterator client, const char* why) {
    note(std::string(why) + " " + wordsOf(descriptionOf(client->key, client->pid)));
    IInterface::asBinder(client->callback)->unlinkToDeath(this);
    return mClients.erase(client);
}

ClientRegistry::Iterator ClientRegistry::find(const Key& key, const Callback& callback) {
    const sp<IBinder> binder = IInterface::asBinder(callback);
    return std::find_if(mClients.begin(), mClients.end(), [&](const Client& client) {
        return client.key == key && (key || IInterface::asBinder(client.callback) == binder);
    });
}

}  // namespace sample
