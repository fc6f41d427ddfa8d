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

    /** What the messages say about more than one frame. Warnings are without their place. */
    struct State {
        std::optional<uint64_t> lastCompleted; /**< Highest index that the worker is done with. */
        std::optional<Limits> limits;          /**< None until the configuration is reported. */
        std::string refusedRect;               /**< Why the size is not accepted; empty if it is. */
        std::string refusedRate;               /**< Likewise, the frame rate. */
        std::string transportTrouble; /**< Why no service can be looked up; empty if none. */
        std::string firstWarning;     /**< Of the engine. Empty if none. */
        std::string lastWarning;      /**< Of the engine. Empty if none. */
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

    /** Why enhancement is not needed just now, while the engine is in use. */
    std::string whyNotNeeded() const;

    /** What is known since the start. */
    State state() const;

private:
    void noteCall(const std::string& function, const std::string& text) DE_REQUIRES(mMutex);
    void noteMonitor(const std::string& text) DE_REQUIRES(mMutex);
    void noteCondition(const std::string& text) DE_REQUIRES(mMutex);
    void noteConfiguration(const std::string& text) DE_REQUIRES(mMutex);

    mutable DeMutex mMutex;
    std::optional<Outcome> mVerdict DE_GUARDED_BY(mMutex);
    bool mIsUnhealthy DE_GUARDED_BY(mMutex) = false;
    State mState DE_GUARDED_BY(mMutex);
};

/**
 * Makes the engine's log the receiver of every message of the process; `isVerbose` also writes them
 * to standard error. Called once, on the player's thread. The result is never destroyed, since the
 * engine still logs while the process exits.
 */
EngineLog& collectEngineLog(bool isVerbose);

}  // namespace player
