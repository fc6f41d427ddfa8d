// SPDX-License-Identifier: Apache-2.0
// What goes wrong below the process, one fault at a time: interrupted transfers, no more
// descriptors.
#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "support/ChildProcess.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/Recording.h"
#include "support/ServiceOperations.h"
#include "support/TestMain.h"

using android::GraphicBuffer;
using android::OK;
using android::sp;
using protocol::Operation;
using protocol::RecordingCallback;
using protocol::Results;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kInterrupted[] = "interrupted";
const Operation& kProcess = protocol::kOperations[11];

class FaultSystemTest : public testing::Test {
protected:
    void start(const std::string& fault = "") {
        program =
            std::make_unique<ChildProcess>(ChildProcess::ownPath(), Texts{kServiceArgument, fault});
        ASSERT_TRUE(program->waitForLine("ready"));
    }
    void connect() {
        service = checkDisplayEngineService();
        ASSERT_NE(service, nullptr);
    }
    /** Has an image processed: request and reply carry a descriptor each. */
    void expectImage() {
        Results out;
        out.input.setGraphicBuffer(new GraphicBuffer(3, 2, android::PIXEL_FORMAT_RGBA_8888, 1, 0));
        EXPECT_TRUE(kProcess.run(*service, &out, nullptr).isOk());
        EXPECT_EQ(out.text(), kProcess.results);
        void* pixels = nullptr;
        ASSERT_EQ(out.input.getGraphicBuffer()->lock(0, &pixels), OK);
        EXPECT_EQ(*static_cast<uint8_t*>(pixels), 1) << "the service's change";
    }
    /** Registers, and waits for the events that the service sends at once. */
    void expectEvents() {
        const sp<RecordingCallback> callback = new RecordingCallback;
        EXPECT_TRUE(service->registerCallback(callback).isOk());
        EXPECT_EQ(callback->take(2),
                  (Texts{"onEvent 11 -12", "onEventWithData 3 { Enable=true }"}));
    }

    LogCapture log;
    std::unique_ptr<ChildProcess> program;
    sp<protocol::IDisplayEngineService> service;
};

TEST_F(FaultSystemTest, AnInterruptedTransferChangesNoCallAndNoReply) {
    start(kInterrupted);
    fault::setInterrupting(true);
    connect();
    android::ProcessState::self()->startThreadPool();
    const sp<RecordingCallback> callback = new RecordingCallback;
    for (int round = 0; round < 5; ++round) {
        for (const Operation& operation : protocol::kOperations) {
            SCOPED_TRACE(operation.call);
            Results out;
            EXPECT_TRUE(operation.run(*service, &out, callback).isOk());
            EXPECT_EQ(out.text(), operation.results);
        }
        EXPECT_EQ(callback->take(2).size(), 2U);
        expectImage();
    }
    expectEvents();
}

#ifndef FAULT_NO_FULL_TABLE
TEST_F(FaultSystemTest, HasNoDescriptorForALookup) {
    start();
    android::ProcessState::self()->startThreadPool();
    const size_t before = fault::descriptors();
    for (int spare = 0; service == nullptr; ++spare) {
        SCOPED_TRACE(spare);
        const sp<DisplayEngineManager> manager = new DisplayEngineManager;
        log.take();
        {
            const fault::FullDescriptorTable full(spare);
            service = checkDisplayEngineService();
            if (spare == 0) {
                EXPECT_EQ(manager->setScene(1, 2), -22);
            }
        }
        if (service == nullptr) {
            EXPECT_TRUE(log.contains("6 DE N DEM checkDisplayEngineService:#: binder is nullptr!"));
            EXPECT_LE(fault::descriptors(), before + 2) << "the thread pool's, once";
        }
    }
    expectImage();
    expectEvents();  // The thread pool has got what it needs meanwhile.
}

TEST_F(FaultSystemTest, HasNoDescriptorForAReply) {
    start();
    connect();
    expectImage();
    const std::string before = fault::holdings();
    {
        Results out;
        const fault::FullDescriptorTable full;
        EXPECT_EQ(kProcess.run(*service, &out, nullptr).transactionError(),
                  android::FAILED_TRANSACTION);
        EXPECT_EQ(out.text(), protocol::kUntouched);
    }
    expectImage();
    EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
}
#endif

}  // namespace

int main(int argc, char** argv) {
    const auto run = [](const std::string& fault) {
        fault::setInterrupting(fault == kInterrupted);
        return serve(new protocol::RecordingService);
    };
    return testMain(argc, argv, {{kServiceArgument, run}});
}
