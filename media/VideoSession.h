// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "media/Export.h"

/** What a media client puts round the facade. */
namespace displayengine::media {

/** What became of one frame that was offered. */
enum class Outcome {
    kProcessed,        /**< The processing library reports success: the planes are enhanced. */
    kFailed,           /**< The processing library reports a failure. */
    kExpired,          /**< Not done within the abort limit; the library may still write it. */
    kRefusedOverload,  /**< Too many slow frames of this stream. */
    kRefusedUnhealthy, /**< Offered faster than the health monitor allows. */
    kRefusedBusy,      /**< An earlier frame was still queued. */
    kRefusedNotReady,  /**< The processing library or the worker could not be started. */
    kRefusedInvalid,   /**< The engine did not accept the frame's description. */
    kNotOffered,       /**< Not wanted, or closed, or no memory: the engine was not called. */
    kUnknown,          /**< Not learnt; the planes are held like an expired frame's. */
};
/** How many there are. */
inline constexpr size_t kOutcomes = static_cast<size_t>(Outcome::kUnknown) + 1;
/** A word of lower-case letters and hyphens: "processed", "refused-overload". Never null. */
DE_MEDIA_EXPORT const char* outcomeName(Outcome outcome);

/** Why frames are not wanted. */
enum class Reason {
    kNone,         /**< They are wanted. */
    kSwitchedOff,  /**< The service or a client has switched enhancement off. */
    kSize,         /**< The size is outside the service's range, or not reported yet. */
    kRate,         /**< The rate is above the service's ceiling, or not reported yet. */
    kNoService,    /**< No display engine service was found when the process first asked. */
    kNotSupported, /**< The service does not offer enhancement, or did not answer. */
    kNotStarted,   /**< The engine could not be brought up, as by an invalid configuration. */
    kClosed,       /**< The session is closed. */
};
/** How many there are. */
inline constexpr size_t kReasons = static_cast<size_t>(Reason::kClosed) + 1;
/** "none", "switched-off", "no-service" ... Never null. */
DE_MEDIA_EXPORT const char* reasonName(Reason reason);

/** Whether the next frame should be offered. */
struct Wanted {
    Reason reason = Reason::kNone; /**< kNone if it should. */
    std::string text; /**< The reason in words, with the numbers that decided; empty if wanted. */
    /** Whether it should. */
    explicit operator bool() const { return reason == Reason::kNone; }
};

/** One frame, in memory that the caller keeps until its release. */
struct Frame {
    uint8_t* y;     /**< Luma plane. */
    uint8_t* uv;    /**< Chroma plane. */
    int32_t width;  /**< Pixels, at least 1. */
    int32_t height; /**< Rows, at least 1. */
    int32_t stride; /**< Of both planes, at least 1, as the processing library takes it. */
};

/** What an offer came to. */
struct Result {
    Outcome outcome = Outcome::kUnknown; /**< What became of the frame. */
    float milliseconds = 0; /**< Length of the engine's call; 0 when it was not made. */
    std::string text;       /**< The engine's own words, or the status the library gave; empty on
                               success, and possibly when memory is short. */
};

/** The service's configuration as the engine uses it. Sizes in pixels, times in milliseconds. */
struct Limits {
    int32_t minWidth;   /**< With minHeight: a video has a larger area and a longer shorter side. */
    int32_t minHeight;  /**< See minWidth. */
    int32_t maxWidth;   /**< With maxHeight: a video has no larger area and no longer side. */
    int32_t maxHeight;  /**< See maxWidth. */
    int32_t maxFps;     /**< The highest rate that may be announced. */
    int32_t monitorFps; /**< Offered faster than this for long, frames are refused. */
    int32_t overloadMs; /**< A frame that takes as long counts as slow. */
    int32_t abortMs;    /**< An offer waits so long for the frame. */
};

/** The inside of a session. */
struct SessionState;

/**
 * One video, offered frame by frame. The engine answers a frame with nothing but messages in the
 * log; a session reads them there, tells what became of each frame, and hands its planes back when
 * nothing writes them any more.
 *
 * The engine and its size, rate and stream belong to the process, hence one session may be open at
 * a time, and no other client should offer frames beside it. Any thread may call any operation;
 * offers, restartStream() and close() wait for an offer that is under way. No operation throws.
 *
 * From the first session on the process's messages pass the session's logger, which stays in place
 * after the session: do not put another in its place, or outcomes are unknown. While a session is
 * open, and until the last frame is handed back, the log switches for debug and info messages are
 * on; the next logger still gets the library's only if one of the two switches was on without that.
 */
class DE_MEDIA_EXPORT VideoSession {
public:
    /**
     * Called once for each frame that was offered, and then destroyed, when nothing touches its
     * planes any more: before offer() returns, unless the frame expired or its outcome is unknown;
     * then when a later frame has completed or the engine's worker names this one done, which may
     * be after close(). It runs on the thread that offers or on one of the engine's, with the
     * engine's locks held: it must not block, nor call the session or the facade. Its exceptions
     * are swallowed; it may be empty. Once the process exits, frames that are still held stay so.
     */
    using Release = std::function<void()>;

    /** What a session opens with. */
    struct Options {
        int32_t width = 0;  /**< Pixels; 0 for not known yet. */
        int32_t height = 0; /**< Rows; 0 for not known yet. */
        double fps = 0;     /**< Frames per second announced; 0 for not known yet. */
        /**
         * Gets every message of the process that would have been written without the session, on
         * the thread that logs; calls may overlap. It has to stay callable after the session. Null
         * is the default.
         */
        __android_logger_function nextLogger = __android_log_stderr_logger;
    };

    /**
     * Null, with the reason in `why`, while another session of this process is open, or without
     * memory. Everything else that is missing (service, library) is told by wanted(): what the
     * process's first session or video call found out holds until the process ends. May block for
     * calls of the service. Starts binder's thread pool, by which the service's events come.
     */
    static std::unique_ptr<VideoSession> open(const Options& options, std::string* why = nullptr);
    ~VideoSession(); /**< Closes. */
    VideoSession(const VideoSession&) = delete;
    VideoSession& operator=(const VideoSession&) = delete;

    /** Reports the size in pixels; sides below 1 are ignored. */
    void setSize(int32_t width, int32_t height);
    /** Reports the frames per second, rounded to a whole number from 1 on; 0 or less is ignored. */
    void setFrameRate(double fps);
    /** The frames from now on are another stream: a seek, another file. Ends an overload. */
    void restartStream();

    Wanted wanted() const; /**< Whether the next frame should be offered, with the reason. */
    bool isWanted() const; /**< The same without text, at the cost of needVideoEnhance(). */
    /** None unless a session of this process has seen the engine come up. */
    std::optional<Limits> limits() const;
    /** Frames of this process, of earlier sessions too, whose release is still to come. */
    size_t heldCount() const;

    /**
     * Offers one frame. Blocks as doVideoEnhance() does, for the abort limit at most; the planes
     * are the engine's until `release` is called, which may be before this returns.
     */
    Result offer(const Frame& frame, Release release);
    /**
     * Ends the video; waits for the frame that the library is processing, not for a queued one.
     * Frames still held are handed back later. A second call does nothing.
     */
    void close();

private:
    explicit VideoSession(std::unique_ptr<SessionState> state);
    void start(const Options& options);

    const std::unique_ptr<SessionState> mState;
};

}  // namespace displayengine::media
