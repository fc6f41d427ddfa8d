// SPDX-License-Identifier: Apache-2.0
#include "Check.h"

namespace checker {

const std::vector<Check>& allChecks() {
    // One row per check, in columns of their own length.
    // clang-format off
    static const std::vector<Check> checks = {
        {"loading.open", "loads with all symbols bound", "how-it-is-found", checkOpen},
        {"loading.entries", "has the six entries, and they are functions", "entry-points",
         checkEntries, "loading.open"},
        {"loading.exports", "exports nothing else", "entry-points", checkExports, "loading.open"},
        {"init.first", "takes the log level, then initialises and de-initialises", "entry-points",
         checkInit, "loading.entries"},
        {"init.repeat", "initialises and de-initialises 50 times", "what-may-overlap",
         checkInitRepeated, "init.first"},
        {"frames.first", "processes a frame", "status", checkFirstFrame, "init.first"},
        {"init.level", "initialises at log level 3 as well", "parameters", checkLogLevel,
         "frames.first"},
        {"frames.context", "ties the calls together by the context, not by the thread",
         "what-may-overlap", checkContext, "frames.first"},
        {"init.threads", "is initialised and de-initialised on different threads",
         "what-may-overlap", checkInitThreads, "frames.context init.repeat"},
        {"records.kept", "leaves the records as they are, and lets go of them", "records",
         checkRecordsKept, "frames.first"},
        {"records.unknown", "answers unknown tags and sizes, and does not obey them",
         "parameters", checkUnknownParameters, "frames.first"},
        {"status.names", "returns statuses that have a name", "status", checkStatuses,
         "frames.first"},
        {"frames.sizes", "takes all sizes and strides, also in turn", "planes", checkSizes,
         "frames.first"},
        {"frames.same", "makes the same output of the same input", "planes", checkSameOutput,
         "frames.first"},
        {"planes.bounds", "stays within the planes", "planes", checkBounds, "frames.sizes"},
        {"planes.padding", "leaves the bytes between width and stride alone", "planes",
         checkPadding, "frames.sizes"},
        {"planes.return", "does not touch the planes after the return", "what-an-entry-must-not-do",
         checkPlanesAfterReturn, "frames.first"},
        {"cancel.returns", "returns from a cancel at once", "what-may-overlap",
         checkCancelReturns, "frames.context"},
        {"cancel.ends", "ends a cancelled frame early, with AISR_ERR_TIMEOUT", "status",
         checkCancelEnds, "frames.context"},
        {"cancel.names", "cancels the frame that is named, and no other", "what-may-overlap",
         checkCancelNames, "frames.context"},
        {"cancel.deinit", "de-initialises right after a cancel", "what-may-overlap",
         checkDeinitAfterCancel, "frames.context init.repeat"},
        {"unload.threads", "ends its own threads when it is de-initialised", "what-may-overlap",
         checkThreadsGone, "frames.first"},
        {"unload.really", "goes when it is closed", "entry-points", checkUnload, "unload.threads"},
        {"growth.frames", "grows by nothing per frame", "time", checkGrowth, "frames.first"},
        {"times.sizes", "keeps the limits at each size", "time", checkTimes, "frames.sizes"},
        {"engine.adapter", "works behind the engine's adapter", "entry-points", checkAdapter,
         "frames.context init.repeat cancel.deinit"},
        {"engine.stream", "keeps up with a stream in the engine", "time", checkStream,
         "engine.adapter"},
        {"engine.expiry", "survives frames that the engine gives up", "time", checkExpiry,
         "engine.adapter"},
        {"engine.exit", "survives the end of the process", "what-may-overlap", checkProcessExit,
         "engine.adapter unload.really", true},
        {"soak.busy", "keeps up with a stream while the other cores are busy", "time", checkSoak,
         "engine.adapter"},
    };
    // clang-format on
    return checks;
}

}  // namespace checker
