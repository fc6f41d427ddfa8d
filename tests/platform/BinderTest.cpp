// SPDX-License-Identifier: Apache-2.0
// Calls and events between two processes, and how services are registered and found.
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <set>
#include <string>
#include <vector>

#include "platform/src/RuntimeDirectory.h"
#include "support/BinderPeer.h"
#include "support/ChildProcess.h"
#include "support/TestMain.h"
#include "support/ThreadState.h"

using namespace android;

namespace {

namespace fs = std::filesystem;

constexpr size_t kLimit = 1024 * 1024;

class DeathWatch : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder>& /*who*/) override { reports.add("died"); }

    Lines reports;
};

std::unique_ptr<ChildProcess> startPeer(const std::string& word = "pool") {
    return std::make_unique<ChildProcess>(ChildProcess::ownPath(),
                                          std::vector<std::string>{"--peer", word});
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

    /** Starts the other program, and looks its object up while it cannot run. */
    void start(const std::string& word = "pool") {
        mProgram = startPeer(word);
        ASSERT_TRUE(mProgram->waitForLine(word));
        mProgram->kill(SIGSTOP);
        mPeer = find("peer");
        mProgram->kill(SIGCONT);
        ASSERT_NE(mPeer, nullptr);
    }
    status_t call(uint32_t code, int32_t number = 0, Parcel* reply = nullptr) {
        Parcel request;
        request.writeInt32(number);
        return mPeer->transact(code, request, reply);
    }
    status_t keep(const sp<IBinder>& object, Parcel* reply = nullptr) {
        Parcel request;
        request.writeStrongBinder(object);
        return mPeer->transact(PeerObject::KEEP, request, reply);
    }
    /** A call on a thread of its own, blocked until a byte is written to the pipe. */
    void callBlocked() {
        mCalls.push_back(std::async(std::launch::async, [this] {
            Parcel request;
            request.writeDupFileDescriptor(mPipe[0]);
            mLines->add(statusToString(mPeer->transact(PeerObject::BLOCK, request, nullptr)));
        }));
    }
    void expectFromProgram(const std::string& line, int times = 1) {
        while (times-- > 0) {
            ASSERT_EQ(mProgram->readLine(), line);
        }
    }
    /** That the program says nothing of itself, on many occasions. */
    void expectSilence() {
        for (int i = 0; i < 100; ++i) {
            mProgram->writeLine("nothing");
            expectFromProgram("nothing");
        }
    }

    const std::string mDirectory = getenv("DISPLAYENGINE_RUNTIME_DIR");
    /** What happens to the objects of this process, and the results of the blocked calls. */
    const std::shared_ptr<Lines> mLines = std::make_shared<Lines>();
    int mPipe[2];
    sp<IBinder> mPeer;
    std::vector<std::future<void>> mCalls;
    std::unique_ptr<ChildProcess> mProgram;  // is ended before the calls are waited for
};

TEST_F(BinderTest, AnswersWithinItsLimits) {
    start();
    struct {
        size_t request;
        int descriptors;
        int32_t answer;
        status_t status;
    } const cases[] = {
        {4, 0, -42, -42},   {64 * 1024, 0, 64 * 1024 + 4, OK},
        {kLimit, 0, 4, OK}, {kLimit + 4, 0, 4, FAILED_TRANSACTION},
        {4, 0, kLimit, OK}, {4, 0, kLimit + 4, FAILED_TRANSACTION},
        {4, 253, 4, OK},    {4, 254, 4, FAILED_TRANSACTION},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.request << " " << c.descriptors << " " << c.answer);
        Parcel request;
        Parcel reply;
        request.writeInt32(c.answer);
        for (int i = 0; i < c.descriptors; ++i) {
            request.writeDupFileDescriptor(mPipe[1]);
        }
        request.setDataSize(std::max(request.dataSize(), c.request));
        reply.writeInt32(7);  // gives way to what comes
        EXPECT_EQ(mPeer->transact(PeerObject::ANSWER, request, &reply), c.status);
        EXPECT_EQ(reply.dataSize(), c.status == OK ? static_cast<size_t>(c.answer) : 0);
    }
    EXPECT_EQ(call(0), UNKNOWN_TRANSACTION);
    EXPECT_TRUE(mPeer->getInterfaceDescriptor().empty());
    EXPECT_EQ(mPeer->dump(mPipe[1], {String16("argument")}), OK);
    // Every copy of the descriptor is closed, here and there: the pipe has an end.
    close(mPipe[1]);
    char byte;
    EXPECT_EQ(read(mPipe[0], &byte, 1), 0);
    // Nonsense ends the session of the one who sends it.
    transport::RuntimeDirectory directory;
    EXPECT_EQ(directory.open(false), OK);
    const transport::ForkSafeFd stranger = directory.connect("peer");
    pollfd end = {stranger.get(), POLLRDHUP, 0};
    EXPECT_EQ(write(stranger.get(), "nonsense", 8), 8);
    EXPECT_EQ(poll(&end, 1, kPatienceSeconds * 1000), 1);
    EXPECT_EQ(mPeer->pingBinder(), OK);
    // A call may end its own process, and the socket and the lock go with it.
    EXPECT_EQ(call(PeerObject::EXIT), DEAD_OBJECT);
    EXPECT_EQ(mProgram->wait(), 0);
    EXPECT_TRUE(fs::is_empty(mDirectory));
}

TEST_F(BinderTest, SendsEventsInOrderWithoutEverWaiting) {
    start();
    Parcel reply;
    EXPECT_EQ(keep(new PeerObject(mLines), &reply), OK);
    EXPECT_NE(reply.readStrongBinder(), nullptr);
    EXPECT_EQ(reply.readInt32(), INVALID_OPERATION) << "a client is not waited for";
    // Nobody reads them before the thread pool is started.
    EXPECT_EQ(call(PeerObject::EVENTS, 100'000, &reply), OK);
    const int32_t sent = reply.readInt32();
    ASSERT_GT(sent, 100);
    EXPECT_EQ(reply.readInt32(), FAILED_TRANSACTION);
    std::vector<std::string> expected;
    for (int32_t i = 0; i < sent; ++i) {
        expected.push_back("event " + std::to_string(i));
    }
    ProcessState::self()->startThreadPool();
    EXPECT_EQ(mLines->take(expected.size()), expected);
    EXPECT_EQ(call(PeerObject::EVENTS, 100, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 100) << "there is room again";
    expected.resize(100);
    EXPECT_EQ(mLines->take(100), expected);
}

TEST_F(BinderTest, RunsSixtyFourCallsAtATimeFromThePoolsStartToItsExit) {
    start("no pool");
    for (int i = 0; i < 64; ++i) {
        callBlocked();
    }
    expectSilence();
    mProgram->writeLine("pool");
    expectFromProgram("pool");
    expectFromProgram("blocked", 64);
    callBlocked();
    expectSilence();
    EXPECT_EQ(write(mPipe[1], "x", 1), 1);
    expectFromProgram("done");
    expectFromProgram("blocked");
    mProgram->writeLine("exit");
    expectFromProgram("exit");
    waitUntilAsleep(mProgram->pid());
    callBlocked();  // nobody is let in any more
    EXPECT_EQ(write(mPipe[1], std::string(64, 'x').data(), 64), 64);
    expectFromProgram("done", 64);
    mLines->waitFor(statusToString(OK), 65);
    mLines->waitFor(statusToString(DEAD_OBJECT));
    EXPECT_EQ(mProgram->wait(), 0);
}

TEST_F(BinderTest, KeepsWhatThePeerHoldsUntilItIsGivenBackOrThePeerDies) {
    ProcessState::self()->startThreadPool();
    start();
    sp<IBinder> object = new PeerObject(mLines);
    Parcel reply;
    for (int times = 0; times < 2; ++times) {
        EXPECT_EQ(keep(object, &reply), OK);
        EXPECT_EQ(reply.readStrongBinder(), object) << "it has to come home as itself";
    }
    reply.freeData();
    object.clear();
    EXPECT_EQ(call(PeerObject::EVENTS, 1), OK);
    EXPECT_EQ(mLines->take(1), std::vector<std::string>{"event 0"});
    EXPECT_EQ(keep(nullptr, &reply), OK);
    EXPECT_EQ(reply.readStrongBinder(), nullptr);
    EXPECT_EQ(mLines->take(1), std::vector<std::string>{"gone"});
    EXPECT_EQ(find("peer"), mPeer);

    const sp<DeathWatch> watch = new DeathWatch();
    const sp<DeathWatch> other = new DeathWatch();
    EXPECT_EQ(mPeer->linkToDeath(watch), OK);
    EXPECT_EQ(mPeer->linkToDeath(other), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(other), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(other), NAME_NOT_FOUND);
    EXPECT_EQ(keep(new PeerObject(mLines)), OK);
    callBlocked();
    expectFromProgram("blocked");
    mProgram->kill();
    mLines->waitFor(statusToString(DEAD_OBJECT));
    mLines->waitFor("gone");
    watch->reports.waitFor("died");
    EXPECT_EQ(other->reports.count("died"), 0U);
    EXPECT_FALSE(mPeer->isBinderAlive());
    EXPECT_EQ(mPeer->linkToDeath(other), DEAD_OBJECT);
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

TEST_F(BinderTest, UsesNoRuntimeDirectoryButTheUsersOwn) {
    struct {
        std::string directory;
        fs::perms mode;
        status_t status;
    } const cases[] = {
        {mDirectory, fs::perms(0770), PERMISSION_DENIED},
        {mDirectory, fs::perms(0701), PERMISSION_DENIED},
        {mDirectory + "/missing/deeper", fs::perms(0700), NAME_NOT_FOUND},
        // Longer than a socket's address.
        {mDirectory + "/" + std::string(100, 'x'), fs::perms(0700), OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.directory);
        setenv("DISPLAYENGINE_RUNTIME_DIR", c.directory.c_str(), 1);
        fs::permissions(mDirectory, c.mode);
        const auto peer = startPeer();
        EXPECT_EQ(peer->readLine(), c.status == OK ? "registered" : statusToString(c.status));
        EXPECT_EQ(find("peer") != nullptr, c.status == OK);
        EXPECT_EQ(find("../" + fs::path(c.directory).filename().string() + "/peer"), nullptr);
    }
    EXPECT_EQ(fs::status(cases[3].directory).permissions(), fs::perms::owner_all);
}

TEST_F(BinderTest, GivesANameToOneProcessUntilItDies) {
    start();
    EXPECT_EQ(add("peer", new PeerObject()), ALREADY_EXISTS);
    for (int times = 0; times < 2; ++times) {
        const sp<IBinder> own = new PeerObject();
        EXPECT_EQ(add("own", own), OK);
        EXPECT_EQ(find("own"), own);
    }
    for (const char* name : {"", ".hidden", "a/b", "../up"}) {
        EXPECT_EQ(add(name, new PeerObject()), BAD_VALUE) << name;
    }
    EXPECT_EQ(add("none", nullptr), BAD_VALUE);
    EXPECT_NE(add(std::string(300, 'x'), new PeerObject()), OK);
    mProgram->kill();
    mProgram->wait();
    EXPECT_TRUE(fs::exists(mDirectory + "/peer.sock")) << "there is nothing left behind to test";
    EXPECT_EQ(find("peer"), nullptr);

    // Of many that start at once over what was left behind, one is the service.
    auto found = std::async(std::launch::async,
                            [] { return defaultServiceManager()->getService(String16("peer")); });
    std::vector<std::unique_ptr<ChildProcess>> peers(6);
    for (auto& peer : peers) {
        peer = startPeer();
    }
    std::multiset<std::string> lines;
    for (const auto& peer : peers) {
        lines.insert(peer->readLine().value_or(""));
    }
    EXPECT_EQ(lines.count("registered"), 1U);
    EXPECT_EQ(lines.count(statusToString(ALREADY_EXISTS)), 5U);
    EXPECT_EQ(mPeer->pingBinder(), DEAD_OBJECT);
    mPeer = found.get();
    ASSERT_NE(mPeer, nullptr);
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

}  // namespace

int main(int argc, char** argv) {
    return testMain(argc, argv, {{"--peer", runPeer}});
}
