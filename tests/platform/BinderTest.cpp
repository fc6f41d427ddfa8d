// SPDX-License-Identifier: Apache-2.0
// Calls between two processes: nesting, order, descriptors, references, limits, death and exit.
#include <binder/BpBinder.h>
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
#include <thread>
#include <vector>

#include "support/BinderPeer.h"
#include "support/ChildProcess.h"
#include "support/ThreadState.h"

using android::DEAD_OBJECT;
using android::defaultServiceManager;
using android::FAILED_TRANSACTION;
using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::ProcessState;
using android::sp;
using android::status_t;
using android::String16;
using android::wp;

namespace {

constexpr size_t kLimit = 1024 * 1024;

/** An object that tells when it is destroyed. */
class Mortal : public PeerObject {
public:
    explicit Mortal(std::promise<void>& gone) : mGone(gone) {}

protected:
    ~Mortal() override { mGone.set_value(); }

private:
    std::promise<void>& mGone;
};

class Mourner : public IBinder::DeathRecipient {
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
        mProgram = std::make_unique<ChildProcess>(
            ChildProcess::ownPath(), std::vector<std::string>{"--peer", "peer", threads});
        ASSERT_TRUE(mProgram->waitForLine("registered"));
        mPeer = defaultServiceManager()->checkService(String16("peer"));
        ASSERT_NE(mPeer, nullptr);
    }

    status_t call(uint32_t code, uint32_t flags = 0) { return call(code, Parcel(), flags); }
    status_t call(uint32_t code, const Parcel& request, uint32_t flags = 0) {
        Parcel reply;
        return mPeer->transact(code, request, &reply, flags);
    }
    status_t callWith(uint32_t code, const sp<IBinder>& object, Parcel* reply) {
        Parcel request;
        request.writeStrongBinder(object);
        return mPeer->transact(code, request, reply);
    }
    status_t callWith(uint32_t code, int descriptor) {
        Parcel request;
        request.writeDupFileDescriptor(descriptor);
        return call(code, request);
    }
    /** A call on a thread of its own, which has reached the peer when this returns. */
    std::future<status_t> callBlocked() {
        auto result = std::async(std::launch::async, [this] { return call(PeerObject::BLOCK); });
        EXPECT_TRUE(mProgram->waitForLine("blocked " + std::to_string(++mBlocked)));
        return result;
    }
    void gate(const std::string& word) {
        mProgram->writeLine(word);
        EXPECT_TRUE(mProgram->waitForLine(word));
    }

    std::unique_ptr<ChildProcess> mProgram;
    sp<IBinder> mPeer;
    int mBlocked = 0;
};

/** What came through a pipe up to its end. */
std::string readAll(int descriptor) {
    std::string text;
    char part[64];
    for (ssize_t size; (size = read(descriptor, part, sizeof(part))) > 0;) {
        text.append(part, static_cast<size_t>(size));
    }
    return text;
}

TEST_F(BinderTest, ACallAnswersWhatTheObjectAnswers) {
    start();
    for (const status_t status : {status_t{OK}, status_t{android::BAD_TYPE}, -42}) {
        Parcel request;
        Parcel reply;
        reply.writeInt32(7);  // gives way to what comes
        request.writeInt32(status);
        request.writeString16(String16("text"));
        EXPECT_EQ(mPeer->transact(PeerObject::ECHO, request, &reply), status);
        EXPECT_EQ(reply.dataSize(), status == OK ? request.dataSize() : 0);
        EXPECT_EQ(reply.readInt32(), 0);
    }
    EXPECT_EQ(call(0), android::UNKNOWN_TRANSACTION);
    EXPECT_EQ(mPeer->pingBinder(), OK);
    EXPECT_EQ(mPeer->transact(PeerObject::ECHO, Parcel(), nullptr), OK);
    EXPECT_TRUE(mPeer->getInterfaceDescriptor().empty());

    Parcel caller;
    EXPECT_EQ(mPeer->transact(PeerObject::CALLER, Parcel(), &caller), OK);
    EXPECT_EQ(caller.readInt32(), getpid());
    EXPECT_EQ(static_cast<uid_t>(caller.readInt32()), getuid());
}

TEST_F(BinderTest, NestedCallsRunOnTheWaitingThreadsWithoutAnyPool) {
    start("join");
    const sp<PeerObject> own = new PeerObject();
    Parcel request;
    Parcel reply;
    request.writeStrongBinder(own);
    request.writeInt32(9);
    EXPECT_EQ(mPeer->transact(PeerObject::CALL_BACK, request, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 10);
    EXPECT_EQ(own->lastThread(), gettid());
    EXPECT_EQ(own->lastCaller(), mProgram->pid());
    EXPECT_EQ(IPCThreadState::self()->getCallingPid(), getpid());
}

TEST_F(BinderTest, OnewayCallsArriveInOrderOneAtATimeAndNeverBlockTheSender) {
    start("none");
    gate("shut");
    const auto record = [this](int32_t number, size_t size) {
        Parcel request;
        request.writeInt32(number);
        request.setDataSize(size);
        return call(PeerObject::RECORD, request, IBinder::FLAG_ONEWAY);
    };
    // More than any socket holds, while nobody even reads.
    int32_t sent = 0;
    while (sent < 1000) {
        ASSERT_EQ(record(sent++, 2000), OK);
    }
    // A receiver that stays behind is sent no more, in a clear way, and nothing sent is lost.
    status_t status = OK;
    while ((status = record(sent, kLimit / 2)) == OK) {
        ASSERT_LT(++sent, 1100);
    }
    EXPECT_EQ(status, FAILED_TRANSACTION);
    mProgram->writeLine("pool");
    gate("open");
    for (int round = 0; round < 2; ++round) {
        Parcel awaited;
        Parcel reply;
        awaited.writeInt32(sent);
        EXPECT_EQ(mPeer->transact(PeerObject::RECORDED, awaited, &reply), OK);
        EXPECT_EQ(reply.readInt32(), 1);
        std::vector<int32_t> expected(static_cast<size_t>(sent));
        std::iota(expected.begin(), expected.end(), 0);
        std::vector<int32_t> recorded;
        EXPECT_EQ(reply.readInt32Vector(&recorded), OK);
        EXPECT_EQ(recorded, expected);
        // It has caught up: there is room again.
        ASSERT_EQ(record(sent++, kLimit / 2), OK);
    }
}

TEST_F(BinderTest, BlockedCallsKeepNoneBackUntilFifteenThreadsAreBlocked) {
    start();
    gate("shut");
    // Without a pool here, the threads that wait take turns at reading for all of them.
    std::vector<std::future<status_t>> blocked;
    const auto quick = [this] {
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(call(PeerObject::ECHO), OK);
        }
    };
    while (blocked.size() < 14) {
        blocked.push_back(callBlocked());
        std::thread other(quick);
        quick();
        other.join();
    }
    blocked.push_back(callBlocked());
    // One more is with the peer before its gate opens, and runs after that.
    EXPECT_EQ(call(PeerObject::RECORD, IBinder::FLAG_ONEWAY), OK);
    for (int i = 0; i < 100; ++i) {
        gate("shut");  // changes nothing, but gives a sixteenth thread every occasion
    }
    gate("open");
    for (auto& result : blocked) {
        EXPECT_EQ(result.get(), OK);
    }
    Parcel awaited;
    Parcel reply;
    awaited.writeInt32(1);
    EXPECT_EQ(mPeer->transact(PeerObject::RECORDED, awaited, &reply), OK);
    EXPECT_EQ(reply.readInt32(), 15);
}

TEST_F(BinderTest, ADeathIsReportedToThoseWhoAskedForIt) {
    ProcessState::self()->startThreadPool();
    start();
    const sp<Mourner> mourner = new Mourner();
    const sp<Mourner> indifferent = new Mourner();
    EXPECT_EQ(mPeer->linkToDeath(mourner), OK);
    EXPECT_EQ(mPeer->linkToDeath(indifferent), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(indifferent), OK);
    EXPECT_EQ(mPeer->unlinkToDeath(indifferent), android::NAME_NOT_FOUND);
    mProgram->kill();
    EXPECT_EQ(mourner->wait(), mPeer.get());
    EXPECT_FALSE(mPeer->isBinderAlive());
    EXPECT_EQ(call(PeerObject::RECORD, IBinder::FLAG_ONEWAY), DEAD_OBJECT);
    EXPECT_EQ(mPeer->linkToDeath(indifferent), DEAD_OBJECT);
    EXPECT_EQ(mPeer->unlinkToDeath(mourner), DEAD_OBJECT);
    EXPECT_EQ(indifferent->getStrongCount(), 1);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("peer")), nullptr);
}

TEST_F(BinderTest, TheReferenceOfThePeerKeepsAnObjectAlive) {
    start();
    std::promise<void> gone;
    sp<IBinder> object = new Mortal(gone);
    IBinder* const address = object.get();
    for (int times = 0; times < 2; ++times) {
        Parcel reply;
        EXPECT_EQ(callWith(PeerObject::KEEP, object, &reply), OK);
        EXPECT_EQ(reply.readStrongBinder().get(), address) << "it has to come home as itself";
    }
    object.clear();
    Parcel reply;
    EXPECT_EQ(mPeer->transact(PeerObject::CALL_KEPT, Parcel(), &reply), OK);
    EXPECT_EQ(reply.readInt32(), OK);
    auto destroyed = gone.get_future();
    EXPECT_EQ(call(PeerObject::DROP), OK);
    // The peer gives the reference back when its last thread lets go of it, and this process, which
    // has no pool, reads that while it waits for a reply.
    while (destroyed.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        ASSERT_EQ(mPeer->pingBinder(), OK);
    }

    // The peer's own object is one and the same proxy, and null stays null.
    Parcel echoed;
    EXPECT_EQ(callWith(PeerObject::KEEP, mPeer, &echoed), OK);
    EXPECT_EQ(echoed.readStrongBinder(), mPeer);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("peer")), mPeer);
    Parcel none;
    EXPECT_EQ(callWith(PeerObject::KEEP, nullptr, &none), OK);
    sp<IBinder> read = mPeer;
    EXPECT_EQ(none.readNullableStrongBinder(&read), OK);
    EXPECT_EQ(read, nullptr);
}

TEST_F(BinderTest, DescriptorsTravelAndTooManyAreRefused) {
    start();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(callWith(PeerObject::WRITE, ends[1]), OK);
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
    EXPECT_EQ(readAll(ends[0]), "written");
    close(ends[0]);
}

TEST_F(BinderTest, ATransactionIsAtMostOneMebibyte) {
    start();
    struct {
        size_t request;
        size_t reply;
        status_t status;
    } const cases[] = {
        {kLimit, 4, OK},
        {kLimit + 4, 4, FAILED_TRANSACTION},
        {4, kLimit, OK},
        {4, kLimit + 4, FAILED_TRANSACTION},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.request << " " << c.reply);
        Parcel request;
        Parcel reply;
        request.writeInt32(static_cast<int32_t>(c.reply));
        request.setDataSize(c.request);
        EXPECT_EQ(mPeer->transact(PeerObject::LARGE, request, &reply), c.status);
        EXPECT_EQ(reply.dataSize(), c.status == OK ? c.reply : 0);
    }
    EXPECT_EQ(mPeer->pingBinder(), OK);
}

TEST_F(BinderTest, AForkedChildHasNoPartInItsParentsConnections) {
    start();
    const pid_t child = fork();
    if (child == 0) {
        const bool dead = mPeer->pingBinder() == DEAD_OBJECT && !mPeer->isBinderAlive();
        // It is a process like any other, and may find the service for itself.
        mPeer = defaultServiceManager()->checkService(String16("peer"));
        Parcel caller;
        const bool own = mPeer != nullptr &&
                         mPeer->transact(PeerObject::CALLER, Parcel(), &caller) == OK &&
                         caller.readInt32() == getpid();
        _exit(dead && own ? 0 : 1);
    }
    int result = -1;
    EXPECT_EQ(waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(mPeer->pingBinder(), OK) << "the child has disturbed its parent";

    // A child that lives on must not make its dead parent look alive.
    Parcel reply;
    EXPECT_EQ(mPeer->transact(PeerObject::FORK, Parcel(), &reply), OK);
    const pid_t orphan = reply.readInt32();
    ASSERT_GT(orphan, 0);
    mProgram->kill();
    mProgram->wait();
    EXPECT_EQ(mPeer->pingBinder(), DEAD_OBJECT);
    EXPECT_EQ(defaultServiceManager()->checkService(String16("peer")), nullptr);
    EXPECT_EQ(kill(orphan, SIGKILL), 0);
}

TEST_F(BinderTest, ExitWaitsForRunningCallsAndOutgoingCallsStillWork) {
    start();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ProcessState::self()->startThreadPool();
    Parcel reply;
    EXPECT_EQ(callWith(PeerObject::KEEP, new PeerObject(), &reply), OK);
    auto running =
        std::async(std::launch::async, [&] { return callWith(PeerObject::WAIT, ends[0]); });
    EXPECT_TRUE(mProgram->waitForLine("waiting"));
    mProgram->writeLine("exit");
    EXPECT_TRUE(mProgram->waitForLine("exiting"));
    waitUntilAsleep(mProgram->pid());
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(mProgram->readLine(), "done");
    EXPECT_EQ(mProgram->readLine(), "stopped 0");
    EXPECT_EQ(running.get(), OK);
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
            << "the socket has to go with it";
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
