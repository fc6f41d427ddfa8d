// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/DeMutex.h"
#include "media/LogTap.h"
#include "media/VideoSession.h"

namespace displayengine::media {

/** What the messages of one call for a frame say; for the thread that makes the call. */
struct Call {
    std::optional<Outcome> verdict; /**< None if they do not tell. */
    std::string text;               /**< Empty on success, and without memory. */
};

/**
 * What the engine's messages say: what became of a frame, why none is wanted, what the service has
 * configured. The worker's messages go on to HeldFrames.
 *
 * Any thread may call any operation. note() throws when memory is short, after it has told
 * HeldFrames; what a text was for is known all the same.
 */
class EngineNotes {
public:
    /** The conditions that a session reports values for. */
    enum Condition { kSizeCondition, kRateCondition, kConditions };

    /** Never destroyed: messages come while the process exits. The first call may throw. */
    static EngineNotes& get();

    void note(const logtap::Message& message) DE_EXCLUDES(mMutex);

    /** What this thread's messages are about from now on; null for no call. */
    static void setCall(Call* call);
    /** The verdict between two messages of the health monitor, with its last words. */
    std::optional<std::string> unhealthy() const DE_EXCLUDES(mMutex);

    /** Forgets what was said about the conditions. */
    void forgetConditions() DE_EXCLUDES(mMutex);
    bool isKnown(Condition condition) const DE_EXCLUDES(mMutex);

    // These set the reason first, and may then throw.
    /** The condition that does not hold, of an engine that is switched on. */
    void explainConditions(Wanted& wanted) const DE_EXCLUDES(mMutex);
    /** Why the engine did not come up. */
    void explainBringUp(Wanted& wanted) const DE_EXCLUDES(mMutex);

    std::optional<Limits> limits() const DE_EXCLUDES(mMutex);

private:
    struct ConditionNote {
        bool isKnown = false;
        bool isMet = false;
        std::string text;
    };

    EngineNotes() = default;

    void noteEngine(const logtap::Message& message) DE_REQUIRES(mMutex);
    void noteFacade(std::string_view text) DE_REQUIRES(mMutex);
    void noteAdapter(const logtap::Message& message) DE_REQUIRES(mMutex);
    void noteWorker(std::string_view text) DE_REQUIRES(mMutex);
    void noteCondition(std::string_view text) DE_REQUIRES(mMutex);
    void noteConfiguration(std::string_view text) DE_REQUIRES(mMutex);
    void noteMonitor(std::string_view text) DE_REQUIRES(mMutex);
    void noteCall(const logtap::Message& message) DE_REQUIRES(mMutex);

    mutable DeMutex mMutex;
    std::array<ConditionNote, kConditions> mConditions DE_GUARDED_BY(mMutex);
    std::optional<Limits> mLimits DE_GUARDED_BY(mMutex);
    bool mIsUnhealthy DE_GUARDED_BY(mMutex) = false;
    std::string mMonitor DE_GUARDED_BY(mMutex); /**< Its words when it found the stream so. */
    Reason mBringUp DE_GUARDED_BY(mMutex) = Reason::kNone;
    std::string mBringUpText DE_GUARDED_BY(mMutex);
    std::string mTransport DE_GUARDED_BY(mMutex); /**< Binder's last complaint. */
    std::string mTrouble DE_GUARDED_BY(mMutex);   /**< The engine's last complaint. */
    std::string mNotReady DE_GUARDED_BY(mMutex);  /**< Why library or worker did not start last. */
    std::string mStatus DE_GUARDED_BY(mMutex);    /**< The adapter's words on the worker's frame. */
    std::string mFailure DE_GUARDED_BY(mMutex);   /**< The same of the last frame that failed. */
};

}  // namespace displayengine::media
