// SPDX-License-Identifier: Apache-2.0
#include "tools/support/EngineConfiguration.h"

#include <algorithm>
#include <climits>

namespace {

/** Holds a configuration against the engine's rules. */
class Check {
public:
    explicit Check(const Json& sent) : mSent(sent), mEngine{sent, {}} {}

    /** The value of that name, as it was sent. */
    int32_t operator[](const char* name) const { return mSent.at(name); }

    /**
     * Notes what the engine does when `isKept` is false: it puts in the `replacements`, or refuses
     * the whole configuration when there are none.
     */
    void keep(bool isKept, const std::vector<const char*>& concerned, const std::string& rule,
              const Json& replacements = nullptr) {
        if (isKept) {
            return;
        }
        Json broken;
        for (const char* name : concerned) {
            broken[name] = mSent.at(name);
        }
        const bool isRefused = replacements.is_null();
        if (isRefused) {
            mEngine.values = nullptr;
        } else {
            mEngine.values.update(replacements);
        }
        mEngine.findings.push_back(
            wordsOf(broken) + " breaks the rule " + rule + ": the engine " +
            (isRefused ? "refuses the configuration" : "takes " + wordsOf(replacements)));
    }

    const EngineConfiguration& engine() const { return mEngine; }

private:
    const Json& mSent;
    EngineConfiguration mEngine;
};

}  // namespace

Json namedConfiguration(const std::vector<int32_t>& values) {
    Json named = Json::object();
    for (size_t i = 0; i < std::min(values.size(), kConfigurationSize); ++i) {
        named[kConfigurationValues[i].name] = values[i];
    }
    return named;
}

EngineConfiguration engineConfiguration(const std::vector<int32_t>& sent) {
    if (sent.size() < kConfigurationSize) {
        return {
            nullptr,
            {std::to_string(sent.size()) +
             " values break the rule length (13 values): the engine refuses the configuration"}};
    }
    const Json named = namedConfiguration(sent);
    Check v(named);
    v.keep(0 <= v["min_width"] && v["min_width"] < v["max_width"], {"min_width", "max_width"},
           "width-range (0 <= min_width < max_width)");
    v.keep(0 <= v["min_height"] && v["min_height"] < v["max_height"], {"min_height", "max_height"},
           "height-range (0 <= min_height < max_height)");
    const int32_t fps = v["max_fps"];
    v.keep(2 <= fps, {"max_fps"}, "frame-rate (2 <= max_fps)");
    if (v.engine().values.is_null()) {
        return v.engine();
    }
    v.keep(v["enable"] == 0 || v["enable"] == 1, {"enable"}, "switch (1 for on, 0 for off)",
           {{"enable", 0}});
    v.keep(fps < v["monitor_frames"], {"max_fps", "monitor_frames"},
           "monitor-rate (max_fps < monitor_frames)",
           {{"monitor_frames", std::min(fps, INT_MAX - 10) + 10}});
    v.keep(0 <= v["monitor_tolerance"], {"monitor_tolerance"},
           "monitor-tolerance (0 <= monitor_tolerance)", {{"monitor_tolerance", 1}});
    v.keep(2 <= v["overload_ms"] && v["overload_ms"] <= v["abort_ms"], {"overload_ms", "abort_ms"},
           "time-limits (2 <= overload_ms <= abort_ms)",
           {{"overload_ms", 1000 / fps}, {"abort_ms", 1000 / fps + 1}});
    v.keep(2 <= v["overload_count"], {"overload_count"}, "overload-count (2 <= overload_count)",
           {{"overload_count", 5}});
    v.keep(2 <= v["overload_period_ms"], {"overload_period_ms"},
           "overload-period (2 <= overload_period_ms)", {{"overload_period_ms", 10000}});
    return v.engine();
}
