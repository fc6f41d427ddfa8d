// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/DisplayEnhance.h"

#include <exception>
#include <functional>
#include <utility>

#include "gstreamer/EngineLog.h"
#include "gstreamer/Enhancement.h"

using displayengine::gst::Enhancement;

struct _GstDisplayEnhance {
    GstVideoFilter parent;
    Enhancement* enhancement; /**< Owned. */
};

// The macro's name for the parent's class.
G_DEFINE_TYPE(GstDisplayEnhance, gst_display_enhance, GST_TYPE_VIDEO_FILTER)

namespace {

GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
    "sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE("NV12")));
GstStaticPadTemplate srcTemplate = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS(GST_VIDEO_CAPS_MAKE("NV12")));

enum Property : guint { kEnable = 1, kActive, kInactiveReason, kStats, kLimits, kPropertyEnd };
GParamSpec* properties[kPropertyEnd];

/** Does `work`; an exception of it ends here, in a log message, and gives FALSE. */
template <typename WORK>
gboolean guarded(gpointer element, WORK work) noexcept {
    try {
        std::invoke(work, *GST_DISPLAY_ENHANCE(element)->enhancement);
        return TRUE;
    } catch (const std::exception& error) {
        GST_ERROR_OBJECT(element, "%s", error.what());
        return FALSE;
    }
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* pspec) {
    if (id == kEnable) {
        GST_DISPLAY_ENHANCE(object)->enhancement->setEnabled(g_value_get_boolean(value) != FALSE);
    } else {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
    }
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* pspec) {
    guarded(object, [&](const Enhancement& enhancement) {
        switch (id) {
            case kEnable:
                g_value_set_boolean(value, enhancement.isEnabled());
                break;
            case kActive:
                g_value_set_boolean(value, enhancement.state().reason.empty());
                break;
            case kInactiveReason:
                g_value_set_string(value, enhancement.state().reason.c_str());
                break;
            case kStats:
                g_value_take_boxed(value, enhancement.statistics());
                break;
            case kLimits:
                g_value_take_boxed(value, enhancement.limits());
                break;
            default:
                G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, pspec);
        }
    });
}

void finalize(GObject* object) {
    delete GST_DISPLAY_ENHANCE(object)->enhancement;
    G_OBJECT_CLASS(gst_display_enhance_parent_class)->finalize(object);
}

gboolean start(GstBaseTransform* element) {
    return guarded(element, &Enhancement::start);
}

gboolean stop(GstBaseTransform* element) {
    return guarded(element, &Enhancement::stop);
}

gboolean setInfo(GstVideoFilter* element, GstCaps* /*sinkCaps*/, GstVideoInfo* info,
                 GstCaps* /*srcCaps*/, GstVideoInfo* /*srcInfo*/) {
    bool isSet = false;
    guarded(element, [&](Enhancement& enhancement) { isSet = enhancement.setFormat(*info); });
    return isSet;
}

gboolean sinkEvent(GstBaseTransform* element, GstEvent* event) {
    const GstEventType type = GST_EVENT_TYPE(event);
    if (type == GST_EVENT_STREAM_START || type == GST_EVENT_SEGMENT ||
        type == GST_EVENT_FLUSH_STOP) {
        guarded(element, [type](Enhancement& enhancement) {
            enhancement.beginStream(type == GST_EVENT_STREAM_START);
        });
    }
    return GST_BASE_TRANSFORM_CLASS(gst_display_enhance_parent_class)->sink_event(element, event);
}

gboolean query(GstBaseTransform* element, GstPadDirection direction, GstQuery* query) {
    const gboolean isAnswered = GST_BASE_TRANSFORM_CLASS(gst_display_enhance_parent_class)
                                    ->query(element, direction, query);
    if (isAnswered && direction == GST_PAD_SRC && GST_QUERY_TYPE(query) == GST_QUERY_LATENCY) {
        const GstClockTime own = GST_DISPLAY_ENHANCE(element)->enhancement->latency();
        gboolean isLive = FALSE;
        GstClockTime min = 0;
        GstClockTime max = GST_CLOCK_TIME_NONE;
        gst_query_parse_latency(query, &isLive, &min, &max);
        gst_query_set_latency(query, isLive, min + own,
                              GST_CLOCK_TIME_IS_VALID(max) ? max + own : max);
    }
    return isAnswered;
}

GstFlowReturn generateOutput(GstBaseTransform* element, GstBuffer** output) {
    // None a second time, or when the base class has dropped the buffer.
    GstBuffer* const input = std::exchange(element->queued_buf, nullptr);
    *output = input;
    if (input != nullptr) {
        guarded(element, [&](Enhancement& enhancement) { *output = enhancement.process(input); });
    }
    return GST_FLOW_OK;
}

void installProperties(GObjectClass* object) {
    const auto readOnly = static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
    const auto readWrite = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                    GST_PARAM_MUTABLE_PLAYING);
    properties[kEnable] = g_param_spec_boolean(
        "enable", "Enable", "Offer frames to the display engine; takes effect at the next frame",
        TRUE, readWrite);
    properties[kActive] = g_param_spec_boolean("active", "Active",
                                               "Whether frames are being offered", FALSE, readOnly);
    properties[kInactiveReason] = g_param_spec_string(
        "inactive-reason", "Inactive reason",
        "Why frames are not being offered, as a word; empty while they are", "no-stream", readOnly);
    properties[kStats] = g_param_spec_boxed(
        "stats", "Statistics", "Frames by what became of them, and the engine's time for one in ms",
        GST_TYPE_STRUCTURE, readOnly);
    properties[kLimits] = g_param_spec_boxed(
        "limits", "Limits", "The display engine service's limits; none until they are known",
        GST_TYPE_STRUCTURE, readOnly);
    g_object_class_install_properties(object, kPropertyEnd, properties);
}

}  // namespace

static void gst_display_enhance_class_init(GstDisplayEnhanceClass* klass) {
    auto* const object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    installProperties(object);

    auto* const element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(
        element, "Display engine enhancement", "Filter/Effect/Video",
        "Enhances video by the processing library of the display engine", "displayengine");
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    gst_element_class_add_static_pad_template(element, &srcTemplate);

    auto* const transform = GST_BASE_TRANSFORM_CLASS(klass);
    transform->start = start;
    transform->stop = stop;
    transform->sink_event = sinkEvent;
    transform->query = query;
    transform->generate_output = generateOutput;
    GST_VIDEO_FILTER_CLASS(klass)->set_info = setInfo;
}

static void gst_display_enhance_init(GstDisplayEnhance* self) {
    auto* const transform = GST_BASE_TRANSFORM(self);
    self->enhancement =
        new Enhancement(transform, properties[kActive], properties[kInactiveReason]);
    // To the base class this is a passthrough: both sides have one format, upstream and downstream
    // agree on the memory between themselves, and a processed copy takes a frame's place.
    gst_base_transform_set_passthrough(transform, TRUE);
    // A late frame passes unenhanced at worst; it is never dropped here.
    gst_base_transform_set_qos_enabled(transform, FALSE);
}
