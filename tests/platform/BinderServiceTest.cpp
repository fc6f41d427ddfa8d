// SPDX-License-Identifier: Apache-2.0
// How services are registered and found, and what a stranger on their sockets can do.
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/src/Frame.h"
#include "support/BinderPeer.h"
#include "support/ChildProcess.h"

using android::defaultServiceManager;
using android::IBinder;
using android::OK;
using android::sp;
using android::status_t;
using android::String16;
using namespace android::transport;

namespace {

namespace fs = std::filesystem;

class BinderServiceTest : public testing::Test {
protected:
    static std::unique_ptr<ChildProcess> startPeer() {
        return std::make_unique<ChildProcess>(ChildProcess::ownPath(),
                                              std::vector<std::string>{"--peer", "pool"});
    }
    static sp<IBinder> find(const std::string& name) {
        return defaultServiceManager()->checkService(String16(name.c_str()));
    }
    static status_t add(const std::string& name, const sp<IBinder>& service) {
        return defaultServiceManager()->addService(String16(name.c_str()), service);
    }

    const std::string mDirectory = getenv("DISPLAYENGINE_RUNTIME_DIR");
};

TEST_F(BinderServiceTest, AServiceOfThisProcessIsHandedOutAsItIs) {
    const sp<IBinder> first = new PeerObject();
    const sp<IBinder> second = new PeerObject();
    EXPECT_EQ(find("own"), nullptr);
    EXPECT_EQ(add("own", first), OK);
    EXPECT_EQ(find("own"), first);
    EXPECT_EQ(add("own", second), OK);
    EXPECT_EQ(find("own"), second);
    EXPECT_EQ(first->getStrongCount(), 1);
    EXPECT_EQ(defaultServiceManager()->getService(String16("own")), second);
    for (const char* name : {"", ".hidden", "a/b", "../up"}) {
        EXPECT_EQ(add(name, first), android::BAD_VALUE) << name;
    }
    EXPECT_EQ(add("none", nullptr), android::BAD_VALUE);
    EXPECT_NE(add(std::string(300, 'x'), first), OK);
}

TEST_F(BinderServiceTest, TheRuntimeDirectoryMustBeTheUsersOwn) {
    const std::string made = mDirectory +
                             "/a-name-that-makes-the-path-longer-than-a-socket-address"
                             "-may-be-which-is-about-one-hundred-bytes";
    struct {
        std::string directory;
        mode_t mode;
        status_t status;
    } const cases[] = {
        {mDirectory, 0770, android::PERMISSION_DENIED},
        {mDirectory, 0701, android::PERMISSION_DENIED},
        {mDirectory + "/missing/deeper", 0700, android::NAME_NOT_FOUND},
        {mDirectory, 0700, OK},
        {made, 0700, OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.directory);
        setenv("DISPLAYENGINE_RUNTIME_DIR", c.directory.c_str(), 1);
        chmod(mDirectory.c_str(), c.mode);
        const auto peer = startPeer();
        EXPECT_EQ(peer->readLine(),
                  c.status == OK ? "registered" : android::statusToString(c.status));
        EXPECT_EQ(find("peer") != nullptr, c.status == OK);
        EXPECT_EQ(find("../" + fs::path(c.directory).filename().string() + "/peer"), nullptr);
    }
    struct stat state = {};
    EXPECT_EQ(stat(made.c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 07777, 0700U);
}

TEST_F(BinderServiceTest, ANameLeftBehindIsTakenOverAndALiveOnesIsNot) {
    auto peer = startPeer();
    ASSERT_TRUE(peer->waitForLine("registered"));
    const sp<IBinder> first = find("peer");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(add("peer", new PeerObject()), android::ALREADY_EXISTS);
    EXPECT_EQ(find("peer"), first);
    fs::rename(mDirectory + "/peer.sock", mDirectory + "/hidden");
    EXPECT_EQ(find("peer"), nullptr) << "the name has gone, the process has not";
    fs::rename(mDirectory + "/hidden", mDirectory + "/peer.sock");
    EXPECT_EQ(find("peer"), first);
    peer->kill();
    peer->wait();
    EXPECT_TRUE(fs::exists(mDirectory + "/peer.sock")) << "there is nothing left behind to test";
    EXPECT_EQ(find("peer"), nullptr);

    // Of many that start at once over what was left behind, one is the service.
    std::vector<std::unique_ptr<ChildProcess>> peers;
    for (int i = 0; i < 6; ++i) {
        peers.push_back(startPeer());
    }
    int registered = 0;
    for (const auto& starter : peers) {
        const auto line = starter->readLine();
        registered += line == "registered" ? 1 : 0;
        EXPECT_TRUE(line == "registered" || line == "ALREADY_EXISTS") << line.value_or("");
    }
    EXPECT_EQ(registered, 1);
    const sp<IBinder> second = find("peer");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->pingBinder(), OK);
    EXPECT_EQ(first->pingBinder(), android::DEAD_OBJECT);
}

TEST_F(BinderServiceTest, GetServiceWaitsForTheService) {
    sp<IBinder> service;
    std::thread waiting([&] { service = defaultServiceManager()->getService(String16("peer")); });
    // Whether the service comes before or after the thread looks, the result is the same.
    const auto peer = startPeer();
    EXPECT_TRUE(peer->waitForLine("registered"));
    waiting.join();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->pingBinder(), OK);
}

TEST_F(BinderServiceTest, AStoppedServiceIsFoundWithoutWaitingForIt) {
    const auto peer = startPeer();
    ASSERT_TRUE(peer->waitForLine("registered"));
    peer->kill(SIGSTOP);
    const sp<IBinder> service = find("peer");
    EXPECT_NE(service, nullptr);
    EXPECT_EQ(find("peer"), service);
    peer->kill(SIGCONT);
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->pingBinder(), OK);
}

TEST_F(BinderServiceTest, AStrangerHasSixtyFourLinesUntilItSaysNonsense) {
    const auto peer = startPeer();
    ASSERT_TRUE(peer->waitForLine("registered"));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (mDirectory + "/peer.sock").copy(address.sun_path, sizeof(address.sun_path) - 1);
    const UniqueFd stranger(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(stranger.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    std::vector<UniqueFd> lines;
    for (int i = 0; i < 65; ++i) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        lines.emplace_back(ends[0]);
        const UniqueFd services(ends[1]);
        OutgoingFrame frame;
        frame.header.type = FrameType::kCallLine;
        frame.fds.push_back(services.get());
        EXPECT_EQ(frame.send(stranger.get()), OK);
    }
    char byte;
    EXPECT_LE(recv(lines.back().get(), &byte, 1, 0), 0) << "it is refused";
    OutgoingFrame ping;
    ping.header.handle = 1;
    ping.header.code = IBinder::PING_TRANSACTION;
    EXPECT_EQ(ping.send(lines.front().get()), OK);
    EXPECT_EQ(recv(lines.front().get(), &byte, 1, 0), 1) << "it is answered";
    EXPECT_EQ(send(stranger.get(), "nonsense", 8, MSG_NOSIGNAL), 8);
    EXPECT_LE(recv(stranger.get(), &byte, 1, 0), 0) << "it is shown out";
    EXPECT_LE(recv(lines.front().get(), &byte, 1, 0), 0);
    EXPECT_NE(find("peer"), nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--peer") {
        return runPeer(std::vector<std::string>(argv + 1, argv + argc));
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
