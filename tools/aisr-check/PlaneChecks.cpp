// SPDX-License-Identifier: Apache-2.0
// What the library reads and writes of the planes, and around them.
#include <algorithm>
#include <memory>

#include "Check.h"
#include "Library.h"
#include "Report.h"

namespace checker {
namespace {

/**
 * All strides are multiples of 64, so that the first byte of a plane has that alignment as well
 * when its last byte lies at the end of a page.
 */
constexpr FrameShape kShapes[] = {
    {1280, 720, 1344},  {1280, 720, 1280}, {720, 1280, 768}, {768, 576, 832},
    {768, 576, 2048},   {514, 514, 576},   {513, 513, 576},  {1279, 719, 1280},
    {1920, 1080, 1920}, {2, 2, 64},        {1, 1, 64},       {66, 2, 128},
};

/** What the service lets be enhanced, with its usual configuration, and has pairs of pixels. */
bool isUsual(const FrameShape& shape) {
    return shape.width % 2 == 0 && shape.height % 2 == 0 &&
           std::min(shape.width, shape.height) > 512 && std::max(shape.width, shape.height) <= 1280;
}

/** Whether the library processed the frame. */
bool isEnhanced(Library& library, const Frame& frame) {
    return library.enhance(frame) == AISR_SUCCESS;
}

std::string firstDifference(const Frame& frame, const std::vector<uint8_t>& a,
                            const std::vector<uint8_t>& b) {
    const auto at =
        static_cast<size_t>(std::mismatch(a.begin(), a.end(), b.begin()).first - a.begin());
    const auto width = static_cast<size_t>(frame.shape().width);
    const size_t luma = width * static_cast<size_t>(frame.shape().height);
    const size_t inPlane = at < luma ? at : at - luma;
    return std::string(at < luma ? "luma" : "chroma") + " row " + std::to_string(inPlane / width) +
           ", column " + std::to_string(inPlane % width);
}

/** The frames of one guarded layout; a breach ends the process by a signal. */
void enhanceGuarded(Library& library, Surroundings surroundings) {
    for (const FrameShape& shape : kShapes) {
        Frame frame(shape, surroundings);
        isEnhanced(library, frame);
    }
}

}  // namespace

void checkSizes(const Settings& settings) {
    Library library(settings);
    library.start();
    std::vector<std::unique_ptr<Frame>> frames;
    int refused = 0;
    // Each size at the start of a stream, and then all of them in one stream.
    uint64_t stream = 100;
    for (const FrameShape& shape : kShapes) {
        frames.push_back(std::make_unique<Frame>(shape, Surroundings::kMargins, ++stream));
        const int32_t status = library.enhance(*frames.back());
        if (status != AISR_SUCCESS && isUsual(shape)) {
            fail(text(shape) + " is refused with " + statusText(status));
        }
        refused += status == AISR_SUCCESS ? 0 : 1;
        if (status != AISR_SUCCESS) {
            frames.pop_back();
        }
    }
    uint64_t index = 0;
    for (int round = 0; round < 2; ++round) {
        for (const auto& frame : frames) {
            frame->next();
            frame->buffer().id = 1;
            frame->buffer().idx = index++;
            library.mustEnhance(*frame, "in a stream whose size changes");
        }
        std::reverse(frames.begin(), frames.end());
    }
    note(std::to_string(std::size(kShapes) - static_cast<size_t>(refused)) + " of " +
         std::to_string(std::size(kShapes)) + " sizes are processed");
    library.end();
}

void checkSameOutput(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({768, 576, 832});
    std::vector<uint8_t> first;
    for (int run = 0; run < 3; ++run) {
        // A stream of its own each time: a library may look at the frames before.
        frame.next();
        frame.buffer().id = static_cast<uint64_t>(run) + 1;
        frame.buffer().idx = 0;
        library.mustEnhance(frame);
        const std::vector<uint8_t> picture = frame.picture();
        if (run == 0) {
            first = picture;
        } else if (picture != first) {
            warn("the same first frame of another stream comes out differently, " +
                 text(frame.shape()) + ": " + firstDifference(frame, picture, first));
            break;
        }
    }
    library.end();
}

void checkBounds(const Settings& settings) {
    Library library(settings);
    library.start();
    for (const FrameShape& shape : kShapes) {
        Frame frame(shape);
        // Twice, for a byte written may be the one that was there.
        for (const uint32_t seed : {1U, 2U}) {
            frame.draw(seed);
            if (isEnhanced(library, frame) && !frame.overrun().empty()) {
                failAndStop("AisrProcess wrote " + frame.overrun() + ", " + text(shape) +
                            ", frame " + std::to_string(frame.index()));
            }
            frame.next();
        }
    }
    enhanceGuarded(library, Surroundings::kGuardBehind);
    enhanceGuarded(library, Surroundings::kGuardInFront);
    library.end();
}

void checkPadding(const Settings& settings) {
    Library library(settings);
    library.start();
    for (const FrameShape& shape : kShapes) {
        Frame frame(shape);
        for (const uint32_t seed : {3U, 4U}) {
            frame.draw(seed);
            if (isEnhanced(library, frame) && !frame.paddingWritten().empty()) {
                failAndStop("AisrProcess wrote padding: " + frame.paddingWritten() + ", " +
                            frame.text());
            }
            frame.next();
        }
    }
    library.end();
}

void checkPlanesAfterReturn(const Settings& settings) {
    Library library(settings);
    library.start();
    const int frames = settings.count(8, 3);
    for (int i = 0; i < frames; ++i) {
        Frame frame({1280, 720, 1344});
        frame.buffer().idx = static_cast<uint64_t>(i);
        const Stopwatch stopwatch;
        library.mustEnhance(frame);
        const double frameMs = stopwatch.milliseconds();
        frame.takeAway();
        pause(std::clamp(2 * frameMs, 15.0, 200.0));
    }
    library.end();
}

}  // namespace checker
