// SPDX-License-Identifier: Apache-2.0
// What grows with the frames.
#include "Check.h"
#include "Library.h"
#include "Report.h"
#include "Usage.h"

namespace checker {

void checkGrowth(const Settings& settings) {
    Library library(settings);
    library.start();
    // Small frames, for what is leaked is seldom a matter of their size.
    Frame frame({514, 514, 576});
    const auto run = [&](int frames) {
        for (int i = 0; i < frames; ++i) {
            library.mustEnhance(frame);
            frame.next();
        }
    };
    const int half = settings.count(300, 200);
    run(half / 2);
    const Usage start = measureUsage();
    run(half);
    const Usage middle = measureUsage();
    run(half);
    const Usage end = measureUsage();
    if (!reportGrowth(start, middle, end, 2 * half, "frame", true)) {
        note(std::to_string(2 * half) + " frames: the heap grew by " +
             std::to_string(end[kHeap] - start[kHeap]) + " bytes, descriptors by " +
             std::to_string(end[kDescriptors] - start[kDescriptors]));
    }
    library.end();
}

}  // namespace checker
