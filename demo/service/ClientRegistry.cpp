// SPDX-License-Identifier: Apache-2.0
#include "ClientRegistry.h"

#include <binder/PersistableBundle.h>

#include <algorithm>
#include <utility>

#include "Report.h"
#include "aidl/IDisplayEngineService.h"

using android::IBinder;
using android::IInterface;
using android::sp;
using android::String16;
using com::tivora::displayengine::IDisplayEngineService;

namespace sample {
namespace {

std::string nameOf(const std::optional<std::string>& key, pid_t pid) {
    const std::string process = "pid=" + std::to_string(pid);
    return key ? "key=" + printable(*key) + " " + process : process;
}

}  // namespace

bool ClientRegistry::add(const std::string& key, const Callback& callback, pid_t pid) {
    const DeMutexLock lock(mMutex);
    // The new client is watched before the old one is let go: a dead one replaces nobody.
    if (IInterface::asBinder(callback)->linkToDeath(this) != android::OK) {
        return false;
    }
    const auto previous = findKey(key);
    if (previous != mClients.end()) {
        erase(previous, "replaced");
    }
    insert(Client{key, pid, callback});
    size_t reached = 0;
    sendState(mClients.back(), &reached);
    return true;
}

bool ClientRegistry::add(const Callback& callback, pid_t pid) {
    const DeMutexLock lock(mMutex);
    const sp<IBinder> binder = IInterface::asBinder(callback);
    const bool known = std::any_of(mClients.begin(), mClients.end(), [&](const Client& client) {
        return !client.key && IInterface::asBinder(client.callback) == binder;
    });
    if (known) {
        return true;
    }
    if (binder->linkToDeath(this) != android::OK) {
        return false;
    }
    insert(Client{std::nullopt, pid, callback});
    return true;
}

bool ClientRegistry::remove(const std::string& key, pid_t pid) {
    const DeMutexLock lock(mMutex);
    const auto client = findKey(key);
    if (client == mClients.end() || client->pid != pid) {
        return false;
    }
    erase(client, "withdrawn");
    return true;
}

bool ClientRegistry::remove(const Callback& callback, pid_t pid) {
    const DeMutexLock lock(mMutex);
    const sp<IBinder> binder = IInterface::asBinder(callback);
    const auto client = std::find_if(mClients.begin(), mClients.end(), [&](const Client& c) {
        return !c.key && c.pid == pid && IInterface::asBinder(c.callback) == binder;
    });
    if (client == mClients.end()) {
        return false;
    }
    erase(client, "withdrawn");
    return true;
}

bool ClientRegistry::enabled() const {
    const DeMutexLock lock(mMutex);
    return mEnabled;
}

std::vector<std::string> ClientRegistry::describe() const {
    const DeMutexLock lock(mMutex);
    std::vector<std::string> lines;
    for (const Client& client : mClients) {
        lines.push_back(nameOf(client.key, client.pid));
    }
    return lines;
}

size_t ClientRegistry::setEnabled(bool enabled) {
    const DeMutexLock lock(mMutex);
    mEnabled = enabled;
    size_t reached = 0;
    for (const Client& client : mClients) {
        sendState(client, &reached);
    }
    return reached;
}

void ClientRegistry::binderDied(const android::wp<IBinder>& who) {
    const sp<IBinder> binder = who.promote();
    const DeMutexLock lock(mMutex);
    // One object may be registered with and without a key.
    for (auto client = findBinder(binder); client != mClients.end(); client = findBinder(binder)) {
        erase(client, "died");
    }
}

void ClientRegistry::insert(Client client) {
    report("registered " + nameOf(client.key, client.pid));
    mClients.push_back(std::move(client));
}

void ClientRegistry::sendState(const Client& client, size_t* reached) const {
    android::os::PersistableBundle data;
    data.putBoolean(String16("Enable"), mEnabled);
    // Oneway: this never waits for the client. A dead client is dropped by its death notice.
    if (client.callback->onEventWithData(IDisplayEngineService::DE_EVENT_AISR, data).isOk()) {
        ++*reached;
    }
}

void ClientRegistry::erase(std::vector<Client>::iterator client, const char* why) {
    report(std::string(why) + " " + nameOf(client->key, client->pid));
    IInterface::asBinder(client->callback)->unlinkToDeath(this);
    mClients.erase(client);
}

std::vector<ClientRegistry::Client>::iterator ClientRegistry::findKey(const std::string& key) {
    return std::find_if(mClients.begin(), mClients.end(),
                        [&](const Client& client) { return client.key == key; });
}

std::vector<ClientRegistry::Client>::iterator ClientRegistry::findBinder(
    const sp<IBinder>& binder) {
    return std::find_if(mClients.begin(), mClients.end(), [&](const Client& client) {
        return IInterface::asBinder(client.callback) == binder;
    });
}

}  // namespace sample
