// SPDX-License-Identifier: Apache-2.0
// Calls and events between two processes: order, limits, descriptors, references, death and exit.
#include <binder/IInterface.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "support/BinderPeer.h"
#include "support/ChildProcess.h"
#include "support/ThreadState.h"

using android::DEAD_OBJECT;
using android::defaultServiceManager;
using android::FAILED_TRANSACTION;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::String16;
using android::wp;

namespace {

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
    void binderDied(const wp<IBinder>& who) override { mWho.set_value(who.unsafe_get()); }
    IBinder* wait() { return mWho.get_future().get(); }

private:
    std::promise<IBinder*> mWho;
};

class BinderTest : public testing::Test {
protected:
    /** Starts the other program with `threads` for its calls, and looks its object up. */
    void start(const std::string& threads = "pool") {
        mProgram = std::make_unique<ChildProcess>(ChildProcess::ownPath(),
                                                  std::vector<std::string>{"--peer", threads});
        ASSERT_TRUE(mProgram->waitForLine("registered"));
        mPeer = defaultServiceManager()->checkService(String16("peer"));
        ASSERT_NE(mPeer, nullptr);
    }
    status_t call(uint32_t code, const Parcel& request = Parcel(), Parcel* reply = nullptr) {
        return mPeer->transact(code, request, reply);
    }
    status_t callWith(uint32_t code, int32_t number, Parcel* reply) {
        Parcel request;
        request.writeInt32(number);
        return call(code, request, reply);
    }
    status_t callWith(uint32_t code, const sp<IBinder>& object, Parcel* reply = nullptr) {
        Parcel request;
        request.writeStrongBinder(object);
        return call(code, request, reply);
    }
    status_t callWithFd(uint32_t code, int descriptor) {
        Parcel request;
        request.writeDupFileDescriptor(descriptor);
        return call(code, request);
    }
    std::future<status_t> callBlocked() {
        return std::async(std::launch::async, [this] { return call(PeerObject::BLOCK); });
    }
    /** That the program has nothing to say but its answers, on many occasions. */
    void expectSilence() {
        for (int i = 0; i < 100; ++i) {
            mProgram->writeLine("nothing");
            EXPECT_EQ(mProgram->readLine(), "nothing");
        }
    }

    std::unique_ptr<ChildProcess> mProgram;
    sp<IBinder> mPeer;
};

TEST_F(BinderTest, ACallAnswersWhatTheObjectAnswers) {
    start();
    for (const status_t status : {status_t{OK}, status_t{android::BAD_TYPE}, -42}) {
        Parcel request;
        Parcel reply;
        reply.writeInt32(7);  // gives way to what comes
        request.writeInt32(status);
        EXPECT_EQ(call(PeerObject::ECHO, request, &reply), status);
        EXPECT_EQ(reply.dataSize(), status == OK ? request.dataSize() : 0);
    }
    EXPECT_EQ(call(0), android::UNKNOWN_TRANSACTION);
    EXPECT_EQ(mPeer->pingBinder(), OK);
    EXPECT_TRUE(mPeer->getInterfaceDescriptor().empty());
    Parcel caller;
    EXPECT_EQ(call(PeerObject::CALLER, Parcel(), &caller), OK);
    EXPECT_EQ(caller.readInt32(), getpid());
    EXPECT_EQ(static_cast<uid_t>(caller.readInt32()), getuid());
}

TEST_F(BinderTest, EventsArriveInOrderAndTheirSenderNeverWaits) {
    start();
    const sp<PeerObject> own = new PeerObject();
    EXPECT_EQ(callWith(PeerObject::KEEP, own), OK);
    Parcel toClient;
    EXPECT_EQ(call(PeerObject::CALL_KEPT, Parcel(), &toClient), OK);
    EXPECT_EQ(toClient.readInt32(), android::INVALID_OPERATION) << "a client is not waited for";
    // Nobody reads them before the thread pool is started.
    Parcel reply;
    EXPECT_EQ(callWith(PeerObject::EVENTS, 100'000, &reply), OK);
    const int32_t sent = reply.readInt32();
    EXPECT_GT(sent, 100);
    EXPECT_EQ(reply.readInt32(), FAILED_TRANSACTION);
    ProcessState::self()->startThreadPool();
    for (const int32_t count : {sent, 100}) {
        std::vector<int32_t> expected(static_cast<size_t>(count));
        std::iota(expected.begin(), expected.end(), 0);
        EXPECT_EQ(own->takeRecords(expected.size()), expected);
        EXPECT_EQ(callWith(PeerObject::EVENTS, 100, &reply), OK);
        EXPECT_EQ(reply.readInt32(), 100) << "there is room again";
    }
}

TEST_F(BinderTest, CallsWaitUntilTheThreadPoolIsStarted) {
    start("none");
    std::future<status_t> blocked = callBlocked();
    expectSilence();
    mProgram->writeLine("pool");
    EXPECT_EQ(mProgram->readLine(), "blocked 1");
    mProgram->writeLine("open");
    EXPECT_EQ(blocked.get(), OK);
}

TEST_F(BinderTest, SixtyFourCallsRunAtATimeAndFurtherOnesWait) {
    start();
    std::vector<std::future<status_t>> blocked;
    for (int number = 1; number <= 65; ++number) {
        blocked.push_back(callBlocked());
        if (number <= 64) {
            EXPECT_EQ(mProgram->readLine(), "blocked " + std::to_string(number));
        }
    }
    expectSilence();
    mProgram->writeLine("open");
    for (auto& result : blocked) {
        EXPECT_EQ(result.get(), OK);
    }
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

TEST_F(BinderTest, ADeathIsReportedToThoseWhoAskedForIt) {
    ProcessState::self()->startThreadPool();
    start();
    const sp<DeathWatch> watch = new DeathWatch();
    const sp<DeathWatch> other = new DeathWatch();
    EXPECT_EQ(mPeer->linkToDeath(watch), OK);
    EXPECT_EQ(mPeer->linkToDeath(other), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(other), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(other), android::NAME_NOT_FOUND);
    std::promise<void> gone;
    EXPECT_EQ(callWith(PeerObject::KEEP, new Mortal(gone)), OK);
    std::future<status_t> blocked = callBlocked();
    EXPECT_TRUE(mProgram->waitForLine("blocked 1"));
    mProgram->kill();
    EXPECT_EQ(blocked.get(), DEAD_OBJECT);
    EXPECT_EQ(watch->wait(), mPeer.get());
    gone.get_future().get();
    EXPECT_FALSE(mPeer->isBinderAlive());
    EXPECT_EQ(mPeer->transact(PeerObject::RECORD, Parcel(), nullptr, IBinder::FLAG_ONEWAY),
              DEAD_OBJECT);
    EXPECT_EQ(mPeer->linkToDeath(other), DEAD_OBJECT);
    EXPECT_EQ(other->getStrongCount(), 1);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("peer")), nullptr);
}

TEST_F(BinderTest, TheReferenceOfThePeerKeepsAnObjectAlive) {
    ProcessState::self()->startThreadPool();
    start();
    std::promise<void> gone;
    sp<IBinder> object = new Mortal(gone);
    for (int times = 0; times < 2; ++times) {
        Parcel reply;
        EXPECT_EQ(callWith(PeerObject::KEEP, object, &reply), OK);
        EXPECT_EQ(reply.readStrongBinder(), object) << "it has to come home as itself";
    }
    object.clear();
    Parcel reply;
    EXPECT_EQ(callWith(PeerObject::EVENTS, 1, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 1);
    EXPECT_EQ(call(PeerObject::DROP), OK);
    gone.get_future().get();

    // The peer's own object is one and the same proxy, and null stays null.
    EXPECT_EQ(callWith(PeerObject::KEEP, mPeer, &reply), OK);
    EXPECT_EQ(reply.readStrongBinder(), mPeer);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("peer")), mPeer);
    EXPECT_EQ(callWith(PeerObject::KEEP, nullptr, &reply), OK);
    sp<IBinder> read = mPeer;
    EXPECT_EQ(reply.readNullableStrongBinder(&read), OK);
    EXPECT_EQ(read, nullptr);
}

TEST_F(BinderTest, DescriptorsTravelAndTooManyAreRefused) {
    start();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(callWithFd(PeerObject::WRITE, ends[1]), OK);
    EXPECT_EQ(mPeer->dump(ends[1], {String16("-a")}), OK);
    for (const size_t count : {253, 254}) {
        Parcel request;
        request.writeInt32(OK);
        for (size_t i = 0; i < count; ++i) {
            request.writeDupFileDescriptor(ends[1]);
        }
        EXPECT_EQ(call(PeerObject::ECHO, request), count == 253 ? OK : FAILED_TRANSACTION);
    }
    EXPECT_EQ(mPeer->pingBinder(), OK);
    // Every copy is closed, here and there: the pipe has an end.
    close(ends[1]);
    std::string text(64, '\0');
    text.resize(static_cast<size_t>(read(ends[0], text.data(), text.size())));
    EXPECT_EQ(text, "written");
    EXPECT_EQ(read(ends[0], text.data(), text.size()), 0);
    close(ends[0]);
}

TEST_F(BinderTest, ATransactionIsAtMostOneMebibyte) {
    start();
    struct {
        int32_t request;
        int32_t reply;
        status_t status;
    } const cases[] = {
        {kLimit, 4, OK},
        {kLimit + 4, 4, FAILED_TRANSACTION},
        {4, kLimit, OK},
        {4, kLimit + 4, FAILED_TRANSACTION},
        {64 * 1024, 64 * 1024 + 4, OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.request << " " << c.reply);
        Parcel request;
        Parcel reply;
        request.writeInt32(c.reply);
        request.setDataSize(static_cast<size_t>(c.request));
        EXPECT_EQ(call(PeerObject::LARGE, request, &reply), c.status);
        EXPECT_EQ(reply.dataSize(), c.status == OK ? static_cast<size_t>(c.reply) : 0);
    }
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

TEST_F(BinderTest, AForkedChildHasNoPartInItsParentsSessions) {
    start();
    EXPECT_EQ(mPeer->pingBinder(), OK);  // there is a call line to be closed
    const pid_t child = fork();
    if (child == 0) {
        const bool isDead = mPeer->pingBinder() == DEAD_OBJECT && !mPeer->isBinderAlive();
        // It is a process like any other, and may find the service for itself.
        mPeer = defaultServiceManager()->checkService(String16("peer"));
        Parcel caller;
        const bool isOwn = mPeer != nullptr && call(PeerObject::CALLER, Parcel(), &caller) == OK &&
                           caller.readInt32() == getpid();
        _exit(isDead && isOwn ? 0 : 1);
    }
    int result = -1;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(mPeer->pingBinder(), OK) << "the child has disturbed its parent";

    // A child that lives on must not make its dead parent look alive.
    Parcel reply;
    EXPECT_EQ(call(PeerObject::FORK, Parcel(), &reply), OK);
    const pid_t orphan = reply.readInt32();
    ASSERT_GT(orphan, 0);
    mProgram->kill();
    mProgram->wait();
    EXPECT_EQ(mPeer->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("peer")), nullptr);
    EXPECT_EQ(defaultServiceManager()->addService(String16("peer"), new PeerObject()), OK);
    EXPECT_EQ(kill(orphan, SIGKILL), 0);
}

TEST_F(BinderTest, ExitWaitsForRunningCallsAndOutgoingCallsStillWork) {
    start();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ProcessState::self()->startThreadPool();
    const sp<PeerObject> own = new PeerObject();
    EXPECT_EQ(callWith(PeerObject::KEEP, own), OK);
    auto running =
        std::async(std::launch::async, [&] { return callWithFd(PeerObject::WAIT, ends[0]); });
    EXPECT_TRUE(mProgram->waitForLine("waiting"));
    mProgram->writeLine("exit");
    EXPECT_TRUE(mProgram->waitForLine("exiting"));
    waitUntilAsleep(mProgram->pid());
    std::future<status_t> late = callBlocked();
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(mProgram->readLine(), "done");
    EXPECT_EQ(mProgram->readLine(), "goodbye 0");
    EXPECT_EQ(running.get(), OK);
    EXPECT_EQ(late.get(), DEAD_OBJECT) << "nobody is let in any more";
    EXPECT_EQ(own->takeRecords(1), std::vector<int32_t>{0});
    EXPECT_EQ(mProgram->wait(), 0);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(BinderTest, ACallMayEndItsOwnProcess) {
    for (const char* threads : {"pool", "join"}) {
        start(threads);
        EXPECT_EQ(call(PeerObject::EXIT), DEAD_OBJECT);
        EXPECT_EQ(mProgram->wait(), 0);
        EXPECT_TRUE(std::filesystem::is_empty(getenv("DISPLAYENGINE_RUNTIME_DIR")))
            << "the socket and the lock have to go with it";
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--peer") {
        return runPeer(std::vector<std::string>(argv + 1, argv + argc));
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
