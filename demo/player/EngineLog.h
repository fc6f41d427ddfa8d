// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Outcome.h"
#include "common/DeMutex.h"

namespace player {

/**
 * What the engine's log says about the frames. The facade answers a frame with nothing at all, so
 * the log is the only place that tells an expired frame from a refused one, and why.
 *
 * Messages come from the player's thread, the worker and the binder threads; all operations may be
 * called on any of them.
 */
class EngineLog {
public:
    /** Time limits of the service's configuration, in milliseconds. */
    struct Limits {
        int abortMs;
        int overloadMs;
    };

    /**
     * Takes one message in. `isWarning` is true from warning priority on; `fromPlayer` when the
     * player's own thread logged it, as it does while it is inside the call for a frame.
     */
    void note(const std::string& tag, const std::string& message, bool isWarning, bool fromPlayer);

    /** Forgets what was said about the previous frame. */
    void beginFrame();

    /** Whether the call for this frame gave up waiting: the planes must then not be read. */
    bool isExpired() const;

    /** What became of the frame; `isChanged` is whether the call changed the luma plane. */
    Outcome outcome(bool isChanged) const;

    /** Highest index of a frame that the worker reported as done, if any. */
    std::optional<uint64_t> lastCompleted() const;

    /** The limits, once the engine has reported its configuration. */
    std::optional<Limits> limits() const;

    /** Why enhancement is not needed just now, while the engine is in use. */
    std::string whyNotNeeded() const;

    /** Why no service can be looked up at all; empty when that is possible. */
    std::string transportTrouble() const;

    /** The first warning since the start, without its place in the source; empty if none. */
    std::string firstWarning() const;

    /** The latest warning, likewise. */
    std::string lastWarning() const;

private:
    void noteCall(const std::string& function, const std::string& text) DE_REQUIRES(mMutex);
    void noteMonitor(const std::string& text) DE_REQUIRES(mMutex);
    void noteWorker(const std::string& text) DE_REQUIRES(mMutex);
    void noteCondition(const std::string& text) DE_REQUIRES(mMutex);
    void noteConfiguration(const std::string& text) DE_REQUIRES(mMutex);

    mutable DeMutex mMutex;
    std::optional<Outcome> mVerdict DE_GUARDED_BY(mMutex);
    bool mIsUnhealthy DE_GUARDED_BY(mMutex) = false;
    std::optional<uint64_t> mLastCompleted DE_GUARDED_BY(mMutex);
    std::optional<Limits> mLimits DE_GUARDED_BY(mMutex);
    // The reasons when the size or the frame rate is not accepted.
    std::string mRefusedRect DE_GUARDED_BY(mMutex);
    std::string mRefusedRate DE_GUARDED_BY(mMutex);
    std::string mTransportTrouble DE_GUARDED_BY(mMutex);
    std::string mFirstWarning DE_GUARDED_BY(mMutex);
    std::string mLastWarning DE_GUARDED_BY(mMutex);
};

/**
 * Makes the engine's log the receiver of every message of the process; `isVerbose` also writes them
 * to standard error. Called once, on the player's thread. The result is never destroyed, since the
 * engine still logs while the process exits.
 */
EngineLog& collectEngineLog(bool isVerbose);

}  // namespace player
