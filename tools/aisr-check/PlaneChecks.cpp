// SPDX-License-Identifier: Apache-2.0
// What the library reads and writes of the planes, and around them.
#include <algorithm>
#include <memory>

#include "Library.h"

namespace checker {
namespace {

/**
 * All strides are multiples of 64, so that a plane's first byte is aligned to that as well when its
 * last byte lies at the end of a page.
 */
constexpr FrameShape kShapes[] = {
    {1280, 720, 1344}, {1280, 720, 1280},  {720, 1280, 768}, {768, 576, 832},
    {768, 576, 2048},  {514, 514, 576},    {513, 513, 576},  {1279, 719, 1280},
    {66, 2, 128},      {1920, 1080, 1920}, {2, 2, 64},       {1, 1, 64},
};

/** What the service lets be enhanced, with its usual configuration, and has pairs of pixels. */
bool isUsual(const FrameShape& shape) {
    return shape.width % 2 == 0 && shape.height % 2 == 0 &&
           std::min(shape.width, shape.height) > 512 && std::max(shape.width, shape.height) <= 1280;
}

/** Calls `judge` for each frame that the library has processed. */
template <typename FUNC>
void enhanceAll(Library& library, Surroundings surroundings, FUNC judge) {
    for (const FrameShape& shape : kShapes) {
        Frame frame(shape, surroundings);
        // Twice, for a byte that is written may be the one that was there. Guards see it at once.
        for (uint32_t seed = surroundings == Surroundings::kMargins ? 1 : 2; seed <= 2; ++seed) {
            frame.draw(seed);
            if (library.enhance(frame) == AISR_SUCCESS) {
                judge(frame);
            }
            frame.next();
        }
    }
}

}  // namespace

void checkSizes(const Settings& settings) {
    Library library(settings);
    library.start();
    std::vector<std::unique_ptr<Frame>> frames;
    // Each size at the start of a stream of its own, and then all of them in one stream.
    for (const FrameShape& shape : kShapes) {
        auto frame = std::make_unique<Frame>(shape);
        frame->buffer().id = 100 + frames.size();
        const int32_t status = library.enhance(*frame);
        if (status == AISR_SUCCESS) {
            frames.push_back(std::move(frame));
        } else if (isUsual(shape)) {
            fail(text(shape) + " is refused with " + statusText(status));
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
    note(std::to_string(frames.size()) + " of " + std::to_string(std::size(kShapes)) +
         " are processed");
    library.end();
}

void checkSameOutput(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({768, 576, 832});
    std::string first;
    // A stream of its own each time: a library may look at the frames before.
    for (uint64_t stream = 1; stream <= 3; ++stream) {
        frame.next();
        frame.buffer().id = stream;
        frame.buffer().idx = 0;
        library.mustEnhance(frame);
        const std::string output = frame.planes();
        first = stream == 1 ? output : first;
        if (output != first) {
            const auto at = std::mismatch(output.begin(), output.end(), first.begin()).first;
            warn("the first frame of stream " + std::to_string(stream) +
                 " comes out differently from stream 1's, " + text(frame.shape()) + ", byte " +
                 std::to_string(at - output.begin()) + " of the planes");
        }
    }
    library.end();
}

void checkBounds(const Settings& settings) {
    Library library(settings);
    library.start();
    enhanceAll(library, Surroundings::kMargins, [](const Frame& frame) {
        if (const std::string overrun = frame.overrun(); !overrun.empty()) {
            failAndStop("AisrProcess wrote " + overrun + ", " + text(frame.shape()) + ", frame " +
                        std::to_string(frame.index()));
        }
    });
    for (const Surroundings guarded : {Surroundings::kGuardBehind, Surroundings::kGuardInFront}) {
        enhanceAll(library, guarded, [](const Frame&) {});  // A breach is a signal.
    }
    library.end();
}

void checkPadding(const Settings& settings) {
    Library library(settings);
    library.start();
    enhanceAll(library, Surroundings::kMargins, [](const Frame& frame) {
        if (const std::string written = frame.paddingWritten(); !written.empty()) {
            failAndStop("AisrProcess wrote padding: " + written + ", " + frame.text());
        }
    });
    library.end();
}

void checkPlanesAfterReturn(const Settings& settings) {
    Library library(settings);
    library.start();
    for (int i = 0; i < settings.count(8, 3); ++i) {
        Frame frame({1280, 720, 1344});
        frame.buffer().idx = static_cast<uint64_t>(i);
        const Stopwatch stopwatch;
        library.mustEnhance(frame);
        const double milliseconds = stopwatch.milliseconds();
        frame.takeAway();
        pause(std::clamp(2 * milliseconds, 15.0, 200.0));
    }
    library.end();
}

}  // namespace checker
