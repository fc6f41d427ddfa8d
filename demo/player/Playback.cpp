// SPDX-License-Identifier: Apache-2.0
#include "Playback.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace player {
namespace {

/** How often the stop signal is looked at. */
constexpr GstClockTime kPoll = 50 * GST_MSECOND;
/** The pace of a video without a constant rate, for a playback rate in frames per second. */
constexpr double kDefaultRate = 25;

/**
 * The frames pass the element one by one, each held back by the synchronised sink until it is due.
 * A file is written by a thread of its own, at whatever pace.
 */
std::string description(const Options& options) {
    std::string text =
        "filesrc name=file ! decodebin name=decode videoconvert name=convert ! "
        "video/x-raw,format=NV12 ! displayenhance name=enhance ! ";
    const std::string sink = options.fps == 0.0 ? "fakesink name=sink sync=false"
                                                : "fakesink name=sink sync=true qos=false";
    if (options.write.empty()) {
        return text + sink;
    }
    const bool isMp4 = std::filesystem::path(options.write).extension() == ".mp4";
    // The muxer for MP4 takes no stream without the chroma's format, which the encoder does not
    // say.
    return text + "tee name=both ! " + sink +
           " both. ! queue ! videoconvert ! vp9enc deadline=1 cpu-used=8 lag-in-frames=0 threads=2 "
           "end-usage=cq cq-level=16 target-bitrate=50000000 ! "
           "capssetter caps=video/x-vp9,chroma-format=4:2:0,bit-depth-luma=(uint)8 ! " +
           (isMp4 ? "mp4mux" : "matroskamux") + " ! filesink name=write async=false";
}

/** Whether a file of chunks is shorter than it states: its demuxer takes what there is for all. */
bool isCutRiff(const std::string& path) {
    char head[8] = {};
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<uint64_t>(file.tellg());
    file.seekg(0).read(head, sizeof(head));
    return file && std::memcmp(head, "RIFF", 4) == 0 && size < GST_READ_UINT32_LE(head + 4) + 8ULL;
}

}  // namespace

Playback::Playback(const Options& options, const StopSignal& stop, FrameLog& log)
    : mOptions(options), mStop(stop), mLog(log) {
    GError* error = nullptr;
    if (GstPlugin* const plugin = gst_plugin_load_file(PLAYER_PLUGIN, &error)) {
        gst_object_unref(plugin);
        mPipeline.reset(gst_parse_launch(description(options).c_str(), &error));
    }
    if (error != nullptr) {
        throw std::runtime_error(Ref<GError>(error)->message);
    }
    g_object_set(element("file").get(), "location", options.video.c_str(), nullptr);
    if (!options.write.empty()) {
        g_object_set(element("write").get(), "location", options.write.c_str(), nullptr);
    }
    g_signal_connect(element("decode").get(), "pad-added", G_CALLBACK(onPad), this);
    g_signal_connect(element("decode").get(), "no-more-pads", G_CALLBACK(onAllPads), this);
    watch("enhance", "sink", GST_PAD_PROBE_TYPE_BUFFER, onTurn);
    watch("enhance", "src", GST_PAD_PROBE_TYPE_BUFFER, onOutcome);
    watch("sink", "sink", GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, onSegment);
}

Playback::~Playback() {
    if (mPipeline != nullptr) {
        gst_element_set_state(mPipeline.get(), GST_STATE_NULL);
    }
}

Ref<GstElement> Playback::element(const char* name) const {
    return Ref<GstElement>(gst_bin_get_by_name(GST_BIN(mPipeline.get()), name));
}

void Playback::watch(const char* name, const char* pad, GstPadProbeType type,
                     GstPadProbeCallback callback) {
    const Ref<GstPad> watched(gst_element_get_static_pad(element(name).get(), pad));
    gst_pad_add_probe(watched.get(), type, callback, this, nullptr);
}

// On GStreamer's threads --------------------------------------------------------------------------

/** Takes the first video stream. Of the others nothing is used but how long they are. */
void Playback::onPad(GstElement* /*decoder*/, GstPad* pad, gpointer self) {
    auto* const playback = static_cast<Playback*>(self);
    const Ref<GstElement> convert = playback->element("convert");
    const Ref<GstPad> target(gst_element_get_static_pad(convert.get(), "sink"));
    if (!playback->mHasVideo) {
        playback->mHasVideo = gst_pad_link(pad, target.get()) == GST_PAD_LINK_OK;
    }
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onDecoded, self, nullptr);
}

void Playback::onAllPads(GstElement* decoder, gpointer self) {
    if (!static_cast<Playback*>(self)->mHasVideo) {
        GST_ELEMENT_ERROR(decoder, STREAM, WRONG_TYPE, ("there is no video in it"), (nullptr));
    }
}

GstPadProbeReturn Playback::onDecoded(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
    auto* const playback = static_cast<Playback*>(self);
    GstBuffer* const buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (GST_BUFFER_PTS_IS_VALID(buffer)) {
        const bool hasDuration = GST_BUFFER_DURATION_IS_VALID(buffer);
        const GstClockTime length = hasDuration ? GST_BUFFER_DURATION(buffer) : 0;
        playback->mEnd = std::max(playback->mEnd.load(), GST_BUFFER_PTS(buffer) + length);
    }
    if (gst_pad_is_linked(pad) == FALSE) {
        return GST_PAD_PROBE_DROP;
    }
    if (GST_BUFFER_DURATION_IS_VALID(buffer)) {
        playback->mFrameTime = GST_BUFFER_DURATION(buffer);
    }
    // The decoder goes on with the next frame that it can decode.
    const bool isGap = GST_BUFFER_IS_DISCONT(buffer) && !playback->mIsFirst.exchange(false);
    playback->mGaps += isGap || GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_CORRUPTED) ? 1 : 0;
    return GST_PAD_PROBE_OK;
}

/** A frame comes to the element: the last one is shown, so it is its turn. */
GstPadProbeReturn Playback::onTurn(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
    auto* const playback = static_cast<Playback*>(self);
    playback->mTurn = Clock::now();
    if (playback->mStart == Clock::time_point()) {
        playback->mStart = playback->mTurn;
    }
    const std::chrono::duration<double> elapsed = playback->mTurn - playback->mStart;
    if (elapsed.count() >= playback->mOptions.seconds.value_or(elapsed.count() + 1)) {
        playback->mStop.request();
    }
    if (playback->mStop.waitUntil(playback->mTurn)) {
        gst_pad_send_event(pad, gst_event_new_eos());
        return GST_PAD_PROBE_DROP;
    }
    playback->mBefore.reset(gst_buffer_ref(GST_PAD_PROBE_INFO_BUFFER(info)));
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn Playback::onOutcome(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
    auto* const playback = static_cast<Playback*>(self);
    const Ref<GstCaps> caps(gst_pad_get_current_caps(pad));
    playback->mLog.add(playback->mTurn, playback->mBefore.get(), GST_PAD_PROBE_INFO_BUFFER(info),
                       caps.get());
    playback->mBefore.reset();
    return GST_PAD_PROBE_OK;
}

/** Changes the pace by the rate of the segment, which nobody but the sink sees. */
GstPadProbeReturn Playback::onSegment(GstPad* pad, GstPadProbeInfo* info, gpointer self) {
    auto* const playback = static_cast<Playback*>(self);
    GstEvent* const event = GST_PAD_PROBE_INFO_EVENT(info);
    const double wanted = playback->mOptions.fps.value_or(0);
    if (GST_EVENT_TYPE(event) != GST_EVENT_SEGMENT || wanted <= 0) {
        return GST_PAD_PROBE_OK;
    }
    const Ref<GstCaps> caps(gst_pad_get_current_caps(pad));
    GstVideoInfo video;
    const bool isKnown = caps != nullptr && gst_video_info_from_caps(&video, caps.get()) != FALSE &&
                         GST_VIDEO_INFO_FPS_N(&video) > 0;
    const double rate =
        isKnown ? static_cast<double>(GST_VIDEO_INFO_FPS_N(&video)) / GST_VIDEO_INFO_FPS_D(&video)
                : kDefaultRate;
    GstSegment segment;
    gst_event_copy_segment(event, &segment);
    segment.rate *= wanted / rate;
    GstEvent* const changed = gst_event_new_segment(&segment);
    gst_event_set_seqnum(changed, gst_event_get_seqnum(event));
    gst_event_unref(event);
    GST_PAD_PROBE_INFO_DATA(info) = changed;
    return GST_PAD_PROBE_OK;
}

// On the caller's thread --------------------------------------------------------------------------

void Playback::run() {
    const Ref<GstBus> bus(gst_element_get_bus(mPipeline.get()));
    gst_element_set_state(mPipeline.get(), GST_STATE_PLAYING);
    constexpr auto kTypes =
        static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_ELEMENT);
    for (bool isPlaying = true; isPlaying;) {
        const Ref<GstMessage> message(gst_bus_timed_pop_filtered(bus.get(), kPoll, kTypes));
        isPlaying = message != nullptr ? !isOver(message.get())
                                       // A file that is written gets its end with the next frame.
                                       : !mOptions.write.empty() || !mStop.waitUntil(Clock::now());
    }
    gst_element_set_state(mPipeline.get(), GST_STATE_NULL);
    if (mDamage.empty() && mGaps > 0) {
        mDamage = "is damaged: places with missing frames: " + std::to_string(mGaps);
    }
}

bool Playback::isOver(GstMessage* message) {
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        noteError(message);
        return true;
    }
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        const bool isStopped = mStop.waitUntil(Clock::now());
        if (!isStopped) {
            noteEnd();
        }
        mIsFirst = true;
        return isStopped || !mOptions.isLooping || mLog.frames() == 0 ||
               gst_element_seek_simple(mPipeline.get(), GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH, 0) ==
                   FALSE;
    }
    const GstStructure* const fields = gst_message_get_structure(message);
    if (gst_structure_has_name(fields, "missing-plugin") != FALSE) {
        const char* const name = gst_structure_get_string(fields, "name");
        mMissing = name != nullptr ? name : "plugin for it";
    }
    return false;
}

/** Compares the length that the file states with what could be read of it. */
void Playback::noteEnd() {
    gint64 stated = -1;
    gst_element_query_duration(element("decode").get(), GST_FORMAT_TIME, &stated);
    // Less than a frame may be rounding.
    const auto last = static_cast<gint64>(mEnd + mFrameTime * 3 / 4);
    if (mDamage.empty() && (last < stated || isCutRiff(mOptions.video))) {
        mDamage = "is incomplete: it ends after " + std::to_string(mLog.frames()) +
                  " frames that could be read";
    }
}

/** Throws unless it is the video's fault, and some of it was played. */
void Playback::noteError(GstMessage* message) {
    GError* error = nullptr;
    char* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    const Ref<GError> errorHolder(error);
    const std::string details = debug != nullptr ? Ref<char>(debug).get() : "";
    // Which file is at fault is told by the details alone.
    const size_t last =
        error->domain == GST_RESOURCE_ERROR ? details.rfind('\n') : std::string::npos;
    const std::string text = last != std::string::npos ? details.substr(last + 1) : error->message;

    const Ref<GstElement> decoder = element("decode");
    GstObject* const source = GST_MESSAGE_SRC(message);
    const bool isVideo = source == GST_OBJECT(element("file").get()) ||
                         gst_object_has_as_ancestor(source, GST_OBJECT(decoder.get())) != FALSE;
    // A demuxer tells too that nobody takes what is decoded.
    const bool isRefused = details.find("not-negotiated") != std::string::npos;
    if (!mOptions.write.empty() && (!isVideo || isRefused)) {
        throw std::runtime_error("cannot write '" + mOptions.write + "': " + text);
    }
    const std::string why = mMissing.empty() ? text : "GStreamer has no " + mMissing;
    if (mLog.frames() == 0) {
        const bool isBroken = g_error_matches(error, GST_STREAM_ERROR, GST_STREAM_ERROR_DEMUX) ||
                              g_error_matches(error, GST_STREAM_ERROR, GST_STREAM_ERROR_DECODE);
        throw std::runtime_error("cannot play '" + mOptions.video + "'" +
                                 (isBroken ? ", which seems damaged or cut: " : ": ") + why);
    }
    mDamage = "is damaged: " + why;
}

void Playback::getLimits(RunResult& result) const {
    GstStructure* limits = nullptr;
    g_object_get(element("enhance").get(), "limits", &limits, nullptr);
    if (limits != nullptr) {
        gst_structure_get_int(limits, "abort-ms", &result.abortMs);
        gst_structure_get_int(limits, "overload-ms", &result.overloadMs);
        gst_structure_free(limits);
    }
}

}  // namespace player
