// SPDX-License-Identifier: Apache-2.0
// The examples of the README, compiled from there, do what it says they do.
#include <gtest/gtest.h>

#include <iostream>

#include "client/DisplayEngineManager.h"
#include "support/ChildProcess.h"
#include "support/EngineService.h"
#include "support/ProcessingLibrary.h"
#include "support/TestMain.h"

using android::sp;

// Of the examples.
void play(int width, int height, int fps);
void playInSession(int width, int height, double fps);
struct Picture {
    std::vector<uint8_t> y, uv;
    int width, height, stride;
};
int serve();

namespace {

constexpr uint64_t kFrames = 3;
constexpr size_t kEdge = 5000;

processing::Frame* pictures = nullptr;
std::vector<uint64_t> shown;

}  // namespace

// What the examples leave to their reader.

bool decode(Aisr::BufferInfo* frame) {
    *frame = pictures->info(0x7b3f);
    return shown.size() < kFrames;
}

void show(const Aisr::BufferInfo& frame) {
    shown.push_back(frame.idx);
    // On a busy machine a frame may be late; the next one finds the queue empty all the same.
    processing::waitFor("AisrProcess", shown.size());
}

std::shared_ptr<Picture> decode() {
    constexpr int kWidth = 1280;
    constexpr int kHeight = 720;
    std::vector<uint8_t> luma(kWidth * kHeight, 100);
    luma[kEdge] = luma[kEdge + 1] = 7;
    const Picture picture{luma, std::vector<uint8_t>(kWidth * kHeight / 2), kWidth, kHeight,
                          kWidth};
    return shown.size() < kFrames ? std::make_shared<Picture>(picture) : nullptr;
}

void show(const Picture& picture) {
    shown.push_back(picture.y[kEdge]);
}

bool setBacklight(int32_t level) {
    std::cout << "backlight " << level << std::endl;
    return true;
}

TEST(ReadmeExamplesTest, MediaClientHasItsFramesEnhanced) {
    const sp<EngineService> service = EngineService::install();
    processing::use("without_nothing");
    processing::Frame frame;
    pictures = &frame;
    play(1280, 720, 30);

    EXPECT_EQ(shown, (std::vector<uint64_t>{0, 1, 2}));
    EXPECT_EQ(processing::count("AisrProcess"), kFrames);
    EXPECT_EQ(processing::takeTexts().back(), "AisrDeinit");
}

TEST(ReadmeExamplesTest, MediaClientShowsTheOriginalOfAFrameThatFails) {
    const sp<EngineService> service = EngineService::install();
    service->config.abortMs = EngineService::kPatientMs;
    processing::use("without_nothing");
    processing::setHook([](const processing::Call& call) {
        return call.entry == "AisrProcess" && shown.size() == 1 ? AISR_ERR_FATAL : AISR_SUCCESS;
    });
    playInSession(1280, 720, 30);
    EXPECT_EQ(shown, (std::vector<uint64_t>{0, 7, 0})) << "a dark edge, which sharpening blackens";
}

TEST(ReadmeExamplesTest, ServiceAnswersItsClients) {
    ChildProcess service(ChildProcess::ownPath(), {"--serve"});
    const sp<DisplayEngineManager> display = new DisplayEngineManager();
    EXPECT_EQ(display->displayengineSetBrightness(100), 1);
    EXPECT_EQ(service.readLine(), "backlight 100");
    EXPECT_EQ(display->setScene(21, 100), -22);
}

int main(int argc, char** argv) {
    return testMain(argc, argv, {{"--serve", [](const std::string&) { return serve(); }}});
}
