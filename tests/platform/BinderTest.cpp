// SPDX-License-Identifier: Apache-2.0
// Calls and events between two processes, and how services are registered and found.
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "platform/src/Frame.h"
#include "platform/src/RuntimeDirectory.h"
#include "support/BinderPeer.h"
#include "support/ChildProcess.h"
#include "support/ThreadState.h"

using namespace android;
using namespace android::transport;

namespace {

namespace fs = std::filesystem;

constexpr int32_t kLimit = 1024 * 1024;

/** An object that tells when it is destroyed. */
class Mortal : public PeerObject {
public:
    explicit Mortal(std::promise<void>& gone) : mGone(gone) {}

protected:
    ~Mortal() override { mGone.set_value(); }

private:
    std::promise<void>& mGone;
};

class DeathWatch : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder>& who) override { dead.set_value(who.unsafe_get()); }

    std::promise<IBinder*> dead;
};

std::unique_ptr<ChildProcess> startPeer(const std::string& threads = "pool") {
    return std::make_unique<ChildProcess>(ChildProcess::ownPath(),
                                          std::vector<std::string>{"--peer", threads});
}

sp<IBinder> find(const std::string& name) {
    return defaultServiceManager()->checkService(String16(name.c_str()));
}

status_t add(const std::string& name, const sp<IBinder>& service) {
    return defaultServiceManager()->addService(String16(name.c_str()), service);
}

class BinderTest : public testing::Test {
protected:
    BinderTest() { EXPECT_EQ(pipe2(mPipe, O_CLOEXEC), 0); }

    /** Starts the other program with `threads` for its calls, and looks its object up. */
    void start(const std::string& threads = "pool") {
        mProgram = startPeer(threads);
        ASSERT_TRUE(mProgram->waitForLine("registered"));
        mPeer = find("peer");
        ASSERT_NE(mPeer, nullptr);
    }
    /** A call with a number, which may be padded to `size` bytes. */
    status_t call(uint32_t code, int32_t number = 0, Parcel* reply = nullptr, int32_t size = 4) {
        Parcel request;
        request.writeInt32(number);
        request.setDataSize(static_cast<size_t>(size));
        return mPeer->transact(code, request, reply);
    }
    status_t keep(const sp<IBinder>& object, Parcel* reply = nullptr) {
        Parcel request;
        request.writeStrongBinder(object);
        return mPeer->transact(PeerObject::KEEP, request, reply);
    }
    /** A call on a thread of its own, blocked until something is written to the pipe. */
    std::future<status_t> callBlocked() {
        return std::async(std::launch::async, [this] {
            Parcel request;
            request.writeDupFileDescriptor(mPipe[0]);
            return mPeer->transact(PeerObject::BLOCK, request, nullptr);
        });
    }
    void unblock() { EXPECT_EQ(write(mPipe[1], "x", 1), 1); }
    /** That the program says nothing of itself, on many occasions. */
    void expectSilence() {
        for (int i = 0; i < 100; ++i) {
            mProgram->writeLine("nothing");
            EXPECT_EQ(mProgram->readLine(), "nothing");
        }
    }

    const std::string mDirectory = getenv("DISPLAYENGINE_RUNTIME_DIR");
    int mPipe[2];
    std::unique_ptr<ChildProcess> mProgram;
    sp<IBinder> mPeer;
};

TEST_F(BinderTest, AnswersWithinItsLimits) {
    start();
    struct {
        int32_t request;
        int32_t answer;
        status_t status;
    } const cases[] = {
        {4, BAD_TYPE, BAD_TYPE},
        {4, -42, -42},
        {64 * 1024, 64 * 1024 + 4, OK},
        {kLimit, 4, OK},
        {kLimit + 4, 4, FAILED_TRANSACTION},
        {4, kLimit, OK},
        {4, kLimit + 4, FAILED_TRANSACTION},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.request << " " << c.answer);
        Parcel reply;
        reply.writeInt32(7);  // gives way to what comes
        EXPECT_EQ(call(PeerObject::ANSWER, c.answer, &reply, c.request), c.status);
        EXPECT_EQ(reply.dataSize(), c.status == OK ? static_cast<size_t>(c.answer) : 0);
    }
    EXPECT_EQ(call(0), UNKNOWN_TRANSACTION);
    EXPECT_EQ(mPeer->pingBinder(), OK);
    EXPECT_TRUE(mPeer->getInterfaceDescriptor().empty());

    for (const size_t count : {253, 254}) {
        Parcel request;
        request.writeInt32(OK);
        for (size_t i = 0; i < count; ++i) {
            request.writeDupFileDescriptor(mPipe[1]);
        }
        EXPECT_EQ(mPeer->transact(PeerObject::ANSWER, request, nullptr),
                  count == 253 ? OK : FAILED_TRANSACTION);
    }
    EXPECT_EQ(mPeer->dump(mPipe[1], {String16("dumped")}), OK);
    // Every copy is closed, here and there: the pipe has an end.
    close(mPipe[1]);
    char text[8] = {};
    EXPECT_EQ(read(mPipe[0], text, sizeof(text)), 6);
    EXPECT_STREQ(text, "dumped");
    EXPECT_EQ(read(mPipe[0], text, sizeof(text)), 0);
}

TEST_F(BinderTest, SendsEventsInOrderWithoutEverWaiting) {
    start();
    const sp<PeerObject> own = new PeerObject();
    Parcel reply;
    EXPECT_EQ(keep(own, &reply), OK);
    EXPECT_EQ(reply.readStrongBinder(), own);
    EXPECT_EQ(reply.readInt32(), INVALID_OPERATION) << "a client is not waited for";
    // Nobody reads them before the thread pool is started.
    EXPECT_EQ(call(PeerObject::EVENTS, 100'000, &reply), OK);
    int32_t sent = reply.readInt32();
    EXPECT_GT(sent, 100);
    EXPECT_EQ(reply.readInt32(), FAILED_TRANSACTION);
    ProcessState::self()->startThreadPool();
    for (int round = 0; round < 2; ++round) {
        std::vector<int32_t> expected(static_cast<size_t>(sent));
        std::iota(expected.begin(), expected.end(), 0);
        EXPECT_EQ(own->takeEvents(expected.size()), expected);
        EXPECT_EQ(call(PeerObject::EVENTS, 100, &reply), OK);
        EXPECT_EQ(sent = reply.readInt32(), 100) << "there is room again";
    }
}

TEST_F(BinderTest, RunsNothingUntilThePoolIsStarted) {
    start("none");
    std::future<status_t> blocked = callBlocked();
    expectSilence();
    mProgram->writeLine("pool");
    EXPECT_EQ(mProgram->readLine(), "blocked");
    unblock();
    EXPECT_EQ(blocked.get(), OK);
}

TEST_F(BinderTest, RunsSixtyFourCallsOfAClientAtATime) {
    start();
    std::vector<std::future<status_t>> blocked;
    while (blocked.size() < 64) {
        blocked.push_back(callBlocked());
        EXPECT_EQ(mProgram->readLine(), "blocked");
    }
    blocked.push_back(callBlocked());
    expectSilence();
    unblock();
    for (auto& result : blocked) {
        EXPECT_EQ(result.get(), OK);
    }
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

TEST_F(BinderTest, ReportsADeathToThoseWhoAskedForIt) {
    ProcessState::self()->startThreadPool();
    start();
    const sp<DeathWatch> watch = new DeathWatch();
    const sp<DeathWatch> other = new DeathWatch();
    EXPECT_EQ(mPeer->linkToDeath(watch), OK);
    EXPECT_EQ(mPeer->linkToDeath(other), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(other), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(other), NAME_NOT_FOUND);
    std::promise<void> gone;
    EXPECT_EQ(keep(new Mortal(gone)), OK);
    std::future<status_t> blocked = callBlocked();
    EXPECT_TRUE(mProgram->waitForLine("blocked"));
    mProgram->kill();
    EXPECT_EQ(blocked.get(), DEAD_OBJECT);
    EXPECT_EQ(watch->dead.get_future().get(), mPeer.get());
    gone.get_future().get();
    EXPECT_FALSE(mPeer->isBinderAlive());
    EXPECT_EQ(mPeer->linkToDeath(other), DEAD_OBJECT);
    EXPECT_EQ(other->getStrongCount(), 1);
    mProgram->wait();  // the kernel closes its sockets one after the other
    EXPECT_EQ(find("peer"), nullptr);
}

TEST_F(BinderTest, KeepsWhatThePeerHoldsAndNothingElse) {
    ProcessState::self()->startThreadPool();
    start();
    std::promise<void> gone;
    sp<IBinder> object = new Mortal(gone);
    Parcel reply;
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(keep(object, &reply), OK);
        EXPECT_EQ(reply.readStrongBinder(), object) << "it has to come home as itself";
    }
    reply.freeData();
    object.clear();
    EXPECT_EQ(call(PeerObject::EVENTS, 1, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 1);
    EXPECT_EQ(keep(nullptr, &reply), OK);
    EXPECT_EQ(reply.readStrongBinder(), nullptr);
    gone.get_future().get();
    EXPECT_EQ(find("peer"), mPeer);
}

TEST_F(BinderTest, GivesAForkedChildNoPartInItsParentsSessions) {
    start();
    EXPECT_EQ(mPeer->pingBinder(), OK);  // there is a call line to be closed
    const pid_t child = fork();
    if (child == 0) {
        const bool isDead = mPeer->pingBinder() == DEAD_OBJECT && !mPeer->isBinderAlive();
        mPeer = find("peer");  // it may find the service for itself
        _exit(isDead && mPeer->pingBinder() == OK ? 0 : 1);
    }
    int result = -1;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(mPeer->pingBinder(), OK) << "the child has disturbed its parent";

    // A child that lives on must not make its dead parent look alive.
    Parcel reply;
    EXPECT_EQ(call(PeerObject::FORK, 0, &reply), OK);
    const pid_t orphan = reply.readInt32();
    ASSERT_GT(orphan, 0);
    mProgram->kill();
    mProgram->wait();
    EXPECT_EQ(mPeer->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(find("peer"), nullptr);
    EXPECT_EQ(add("peer", new PeerObject()), OK);
    EXPECT_EQ(kill(orphan, SIGKILL), 0);
}

TEST_F(BinderTest, WaitsAtExitForRunningCallsAndCanStillCall) {
    start();
    ProcessState::self()->startThreadPool();
    const sp<PeerObject> own = new PeerObject();
    EXPECT_EQ(keep(own), OK);
    std::future<status_t> running = callBlocked();
    EXPECT_TRUE(mProgram->waitForLine("blocked"));
    mProgram->writeLine("exit");
    EXPECT_TRUE(mProgram->waitForLine("exiting"));
    waitUntilAsleep(mProgram->pid());
    std::future<status_t> late = callBlocked();
    unblock();
    EXPECT_EQ(mProgram->readLine(), "done");
    EXPECT_EQ(mProgram->readLine(), "goodbye 0");
    EXPECT_EQ(running.get(), OK);
    EXPECT_EQ(late.get(), DEAD_OBJECT) << "nobody is let in any more";
    EXPECT_EQ(own->takeEvents(1), std::vector<int32_t>{-1});
    EXPECT_EQ(mProgram->wait(), 0);
}

TEST_F(BinderTest, LetsACallEndItsOwnProcess) {
    for (const char* threads : {"pool", "join"}) {
        start(threads);
        EXPECT_EQ(call(PeerObject::EXIT), DEAD_OBJECT);
        EXPECT_EQ(mProgram->wait(), 0);
        EXPECT_TRUE(fs::is_empty(mDirectory)) << "the socket and the lock have to go with it";
    }
}

TEST_F(BinderTest, HandsOutAServiceOfTheProcessAsItIs) {
    const sp<IBinder> first = new PeerObject();
    const sp<IBinder> second = new PeerObject();
    EXPECT_EQ(find("own"), nullptr);
    for (const sp<IBinder>& service : {first, second}) {
        EXPECT_EQ(add("own", service), OK);
        EXPECT_EQ(find("own"), service);
    }
    EXPECT_EQ(first->getStrongCount(), 1);
    for (const char* name : {"", ".hidden", "a/b", "../up"}) {
        EXPECT_EQ(add(name, first), BAD_VALUE) << name;
    }
    EXPECT_EQ(add("none", nullptr), BAD_VALUE);
    EXPECT_NE(add(std::string(300, 'x'), first), OK);
}

TEST_F(BinderTest, UsesNoRuntimeDirectoryButTheUsersOwn) {
    struct {
        std::string directory;
        mode_t mode;
        status_t status;
    } const cases[] = {
        {mDirectory, 0770, PERMISSION_DENIED},
        {mDirectory, 0701, PERMISSION_DENIED},
        {mDirectory + "/missing/deeper", 0700, NAME_NOT_FOUND},
        {mDirectory + "/" + std::string(100, 'x'), 0700, OK},  // longer than a socket's address
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.directory);
        setenv("DISPLAYENGINE_RUNTIME_DIR", c.directory.c_str(), 1);
        chmod(mDirectory.c_str(), c.mode);
        const auto peer = startPeer();
        EXPECT_EQ(peer->readLine(), c.status == OK ? "registered" : statusToString(c.status));
        EXPECT_EQ(find("peer") != nullptr, c.status == OK);
        EXPECT_EQ(find("../" + fs::path(c.directory).filename().string() + "/peer"), nullptr);
    }
    struct stat state = {};
    EXPECT_EQ(stat(getenv("DISPLAYENGINE_RUNTIME_DIR"), &state), 0);
    EXPECT_EQ(state.st_mode & 07777, 0700U);
}

TEST_F(BinderTest, TakesOverANameThatIsLeftBehindAndNoOther) {
    start();
    EXPECT_EQ(add("peer", new PeerObject()), ALREADY_EXISTS);
    fs::rename(mDirectory + "/peer.sock", mDirectory + "/hidden");
    EXPECT_EQ(find("peer"), nullptr) << "the name has gone, the process has not";
    fs::rename(mDirectory + "/hidden", mDirectory + "/peer.sock");
    EXPECT_EQ(find("peer"), mPeer);
    mProgram->kill();
    mProgram->wait();
    EXPECT_TRUE(fs::exists(mDirectory + "/peer.sock")) << "there is nothing left behind to test";
    EXPECT_EQ(find("peer"), nullptr);

    // Of many that start at once over what was left behind, one is the service.
    std::future<sp<IBinder>> found = std::async(
        std::launch::async, [] { return defaultServiceManager()->getService(String16("peer")); });
    std::vector<std::unique_ptr<ChildProcess>> peers(6);
    for (auto& peer : peers) {
        peer = startPeer();
    }
    std::vector<std::string> lines;
    for (const auto& peer : peers) {
        lines.push_back(peer->readLine().value_or(""));
    }
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "registered"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), statusToString(ALREADY_EXISTS)), 5);
    const sp<IBinder> second = found.get();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->pingBinder(), OK);
    EXPECT_EQ(mPeer->pingBinder(), DEAD_OBJECT);
}

TEST_F(BinderTest, FindsAStoppedServiceWithoutWaitingForIt) {
    mProgram = startPeer();
    ASSERT_TRUE(mProgram->waitForLine("registered"));
    mProgram->kill(SIGSTOP);
    mPeer = find("peer");
    EXPECT_EQ(find("peer"), mPeer);
    mProgram->kill(SIGCONT);
    ASSERT_NE(mPeer, nullptr);
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

TEST_F(BinderTest, GivesAStrangerSixtyFourLinesUntilItSaysNonsense) {
    start();
    RuntimeDirectory directory;
    EXPECT_EQ(directory.open(false), OK);
    const ForkSafeFd stranger = directory.connect("peer");
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
    EXPECT_EQ(recv(lines.back().get(), &byte, 1, 0), 0) << "it is refused";
    OutgoingFrame ping;
    ping.header.handle = 1;
    ping.header.code = IBinder::PING_TRANSACTION;
    EXPECT_EQ(ping.send(lines.front().get()), OK);
    EXPECT_EQ(recv(lines.front().get(), &byte, 1, 0), 1) << "it is answered";
    EXPECT_EQ(send(stranger.get(), "nonsense", 8, MSG_NOSIGNAL), 8);
    EXPECT_EQ(recv(lines.front().get(), &byte, 1, 0), 0) << "the session has ended";
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 2 && argv[1] == std::string("--peer")) {
        return runPeer(argv[2]);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
