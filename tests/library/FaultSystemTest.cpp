// SPDX-License-Identifier: Apache-2.0
// What goes wrong below the process, one fault at a time: transfers that are interrupted, no more
// descriptors, a log that nobody takes.
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>
#include <memory>

#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProtocolPeer.h"
#include "support/ProtocolPeerObjects.h"
#include "support/ServiceOperations.h"

using android::FAILED_TRANSACTION;
using android::GraphicBuffer;
using android::IInterface;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using com::tivora::displayengine::IDisplayEngineService;
using protocol::kOperations;
using protocol::kUntouched;
using protocol::Peer;
using protocol::RecordingCallback;
using protocol::Results;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kSinkArgument[] = "--sink";
constexpr uint32_t kFillDescriptorTable = 2000;
constexpr uint32_t kBufferCode = 12; /**< Its request and its reply carry descriptors. */

/** Can also be asked to fill its process's descriptor table, for one call. */
class CrowdedService : public protocol::RecordingService {
public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code == kFillDescriptorTable) {
            mTable.reset(data.readInt32() != 0 ? new fault::FullDescriptorTable : nullptr);
            return OK;
        }
        return RecordingService::onTransact(code, data, reply, flags);
    }

private:
    std::unique_ptr<fault::FullDescriptorTable> mTable;
};

class FaultySystem : public testing::Test {
protected:
    /** Starts a service whose transfers have this fault. */
    void start(fault::Io io = fault::Io::USUAL) {
        program = std::make_unique<ChildProcess>(
            ChildProcess::ownPath(), Texts{kServiceArgument, std::to_string(static_cast<int>(io))});
        ASSERT_TRUE(program->waitForLine("ready"));
    }
    void connect() {
        service = checkDisplayEngineService();
        ASSERT_NE(service, nullptr);
    }
    /** The outcome of the operation with a buffer for its input, and whether the service saw it. */
    void expectBufferCall(status_t error, const Texts& calls) {
        Results out;
        out.input.setGraphicBuffer(new GraphicBuffer(3, 2, android::PIXEL_FORMAT_RGBA_8888, 1, 0));
        EXPECT_EQ(callOperation(*service, kBufferCode, &out).transactionError(), error);
        EXPECT_EQ(out.text(), error == OK ? kOperations[kBufferCode - 1].results : kUntouched);
        void* pixels = nullptr;
        ASSERT_EQ(out.input.getGraphicBuffer()->lock(0, &pixels), OK);
        EXPECT_EQ(*static_cast<uint8_t*>(pixels), calls.empty() || error != OK ? 0 : 1);
        EXPECT_EQ(Peer::takeCalls(IInterface::asBinder(service), 0), calls);
    }

    LogCapture log;
    std::unique_ptr<ChildProcess> program;
    sp<IDisplayEngineService> service;
};

class FaultyTransfer : public FaultySystem, public testing::WithParamInterface<fault::Io> {};

TEST_P(FaultyTransfer, ChangesNoCallAndNoReply) {
    start(GetParam());
    fault::setIo(GetParam());
    connect();
    android::ProcessState::self()->startThreadPool();
    const sp<RecordingCallback> callback = new RecordingCallback;
    for (const auto& operation : kOperations) {
        Results out;
        EXPECT_TRUE(callOperation(*service, operation.code, &out, callback).isOk());
        EXPECT_EQ(out.text(), operation.results);
        EXPECT_EQ(Peer::takeCalls(IInterface::asBinder(service), 1), Texts{operation.call});
    }
    EXPECT_EQ(callback->take(2), (Texts{"onEvent 11 -12", "onEventWithData 3 { Enable=true }"}));
    expectBufferCall(OK, {"processGraphicBuffer 1 2 3x2 none"});
    // More than one frame is under way at a time, and a frame is more than the socket takes.
    std::vector<uint8_t> bytes(4000, 1);
    int32_t result = 0;
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(service->registerCallback(callback).isOk());
    }
    EXPECT_TRUE(service->getEffect(1, 2, &bytes, 3, &result).isOk());
    EXPECT_EQ(bytes.size(), 4001U);
    EXPECT_EQ(callback->take(40).size(), 40U);
}

INSTANTIATE_TEST_SUITE_P(All, FaultyTransfer, testing::Values(fault::Io::INTERRUPTED));

#ifndef FAULT_NO_FULL_TABLE
TEST_F(FaultySystem, HasNoDescriptorForALookup) {
    start();
    android::ProcessState::self()->startThreadPool();
    const std::string directory =
        std::string("6 binder the runtime directory ") + getenv("DISPLAYENGINE_RUNTIME_DIR") +
        " cannot be used (-24 (Too many open files)); it must belong to user " +
        std::to_string(geteuid()) + " and be open to nobody else";
    const size_t before = fault::descriptors();
    for (int spare = 0; service == nullptr; ++spare) {
        SCOPED_TRACE(spare);
        const sp<DisplayEngineManager> manager = new DisplayEngineManager;
        log.take();
        {
            const fault::FullDescriptorTable full(spare);
            service = checkDisplayEngineService();
            EXPECT_EQ(spare == 0 ? manager->setScene(1, 2) : -22, -22);
        }
        if (service == nullptr) {
            EXPECT_EQ(log.lines()[spare == 0 ? 1 : 0],
                      "6 DE N DEM checkDisplayEngineService:#: binder is nullptr!");
            EXPECT_EQ(log.lines()[0], spare == 0 ? directory : log.lines()[0]);
            EXPECT_LE(fault::descriptors(), before + 2) << "the thread pool's, once";
        }
    }
    expectBufferCall(OK, {"processGraphicBuffer 1 2 3x2 none"});
    // The thread pool has got what it needs meanwhile.
    const sp<RecordingCallback> callback = new RecordingCallback;
    EXPECT_TRUE(service->registerCallback(callback).isOk());
    EXPECT_EQ(callback->take(2).size(), 2U);
}

TEST_F(FaultySystem, HasNoDescriptorsForATransaction) {
    start();
    connect();
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    expectBufferCall(OK, {"processGraphicBuffer 1 2 3x2 none"});
    const std::string before = fault::holdings();
    const auto fillService = [this](bool on) {
        Parcel data;
        Parcel reply;
        data.writeInt32(on ? 1 : 0);
        EXPECT_EQ(IInterface::asBinder(service)->transact(kFillDescriptorTable, data, &reply), OK);
    };
    fillService(true);
    expectBufferCall(FAILED_TRANSACTION, {});
    fillService(false);
    {
        Results out;
        const fault::FullDescriptorTable full;
        EXPECT_EQ(callOperation(*service, kBufferCode, &out).transactionError(),
                  FAILED_TRANSACTION);
        EXPECT_EQ(out.text(), kUntouched);
        EXPECT_EQ(Peer::takeCalls(IInterface::asBinder(service), 1),
                  Texts{"processGraphicBuffer 1 2 none none"});
    }
    EXPECT_EQ(log.lines().back(), "6 binder a reply of process " + std::to_string(program->pid()) +
                                      " is lost: too many open files");
    expectBufferCall(OK, {"processGraphicBuffer 1 2 3x2 none"});
    EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
}
#endif

/** Makes every call and tells what came of it, while nobody takes its log. */
int runWithSink(const std::string& sink) {
    if (sink == "full") {
        dup2(open(("/dev/" + sink).c_str(), O_WRONLY | O_CLOEXEC), STDERR_FILENO);
    } else {
        close(STDERR_FILENO);
    }
    // The image's memory takes the number that standard error has left.
    const sp<GraphicBuffer> image = new GraphicBuffer(3, 2, android::PIXEL_FORMAT_RGBA_8888, 1, 0);
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    g_delogdEnable = g_delogiEnable = g_delogvEnable = true;
    const sp<IDisplayEngineService> service = getDisplayEngineService();
    for (const auto& operation : kOperations) {
        Results out;
        std::cout << manager->setFrameRate("60") << manager->displayengineSetBrightness(-1) << " "
                  << callOperation(*service, operation.code, &out, new RecordingCallback).isOk()
                  << out.text() << std::endl;
    }
    void* pixels = nullptr;
    return image->lock(0, &pixels) == OK ? *static_cast<uint8_t*>(pixels) : 1;
}

TEST_F(FaultySystem, HasNoRoomForTheLogOrNoLog) {
    start();
    for (const char* sink : {"full", "closed"}) {
        SCOPED_TRACE(sink);
        ChildProcess client(ChildProcess::ownPath(), {kSinkArgument, sink});
        for (const auto& operation : kOperations) {
            EXPECT_EQ(client.readLine(), std::string("1003-1 1") + operation.results);
        }
        EXPECT_EQ(client.wait(), 0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto serve = [](const std::string& io) {
        fault::setIo(static_cast<fault::Io>(std::stoi(io)));
        return protocol::serve({{"DisplayEngineService", new CrowdedService}});
    };
    return protocol::testMain(argc, argv,
                              {{kServiceArgument, serve}, {kSinkArgument, runWithSink}});
}
