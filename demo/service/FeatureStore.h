// SPDX-License-Identifier: Apache-2.0
// The display features of the sample service, and the values that clients set.
#pragma once

#include <binder/PersistableBundle.h>
#include <utils/String8.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "common/DeMutex.h"
#include "tools/support/JsonText.h"

namespace sample {

/**
 * Answers the display features and keeps the values that clients set. Results are 0 for success and
 * -22 for a request that the service does not know or whose contents it refuses; a refused request
 * changes nothing. All operations may be called from any thread.
 */
class FeatureStore {
public:
    using Bundle = android::os::PersistableBundle;
    using Service = com::tivora::displayengine::IDisplayEngineService;

    static constexpr int32_t kRefused = -22;

    /**
     * `supported` is the answer for video enhancement. `missing` are features that the display is
     * to lack: they are not supported, and their effects are unknown.
     */
    FeatureStore(int32_t supported, std::string panelName, std::set<int32_t> missing)
        : mSupported(supported), mPanelName(std::move(panelName)), mMissing(std::move(missing)) {
        for (auto number = mNumbers.begin(); number != mNumbers.end();) {
            const bool isMissing = mMissing.count(number->first.first) != 0;
            number = isMissing ? mNumbers.erase(number) : std::next(number);
        }
    }

    /** 1 for each display feature of the interface, 0 for an unknown or missing one. */
    int32_t getSupported(int32_t feature) const {
        static constexpr int32_t kPresent[] = {
            Service::DE_FEATURE_PANEL_NAME,          Service::DE_FEATURE_RGLED,
            Service::DE_FEATURE_LOCAL_HBM,           Service::DE_FEATURE_READING,
            Service::DE_FEATURE_FOLDINGCOMPENSATION, Service::DE_FEATURE_GLOBAL_READING};
        if (mMissing.count(feature) != 0) {
            return 0;
        }
        const bool isPresent = std::count(std::begin(kPresent), std::end(kPresent), feature) != 0;
        return feature == Service::DE_FEATURE_AISR ? mSupported : isPresent;
    }

    /**
     * Keeps `value` as the scene's value. Brightness levels are not negative, and no more than 256
     * scenes are kept, so that no client can fill the memory.
     */
    int32_t setScene(int32_t scene, int32_t value) {
        if (scene == Service::DE_SCENE_BRIGHTNESS && value < 0) {
            return kRefused;
        }
        const DeMutexLock lock(mMutex);
        if (mScenes.size() >= kMostScenes && mScenes.count(scene) == 0) {
            return kRefused;
        }
        mScenes[scene] = value;
        return 0;
    }

    /** Keeps a setting: the frame rate ("FPS", text) or the CWB switch ("forceEnable", 0 or 1). */
    int32_t setData(int32_t type, const Bundle& data) {
        const DeMutexLock lock(mMutex);
        android::String16 rate;
        int32_t force = 0;
        if (type == Service::DE_DATA_TYPE_FRAMERATE &&
            data.getString(android::String16("FPS"), &rate)) {
            mFrameRate = android::String8(rate).string();
            return 0;
        }
        if (type == Service::DE_DATA_TYPE_CWB_FORCE_ENABLE &&
            data.getInt(android::String16("forceEnable"), &force) && (force == 0 || force == 1)) {
            mCwbForced = force;
            return 0;
        }
        return kRefused;
    }

    /** Sets a numeric effect from the int "Value": an alpha of 0 to 1023, or a switch of 0 or 1. */
    int32_t setEffect(int32_t feature, int32_t type, const Bundle& data) {
        const DeMutexLock lock(mMutex);
        const auto number = mNumbers.find({feature, type});
        int32_t value = 0;
        if (number == mNumbers.end() || !data.getInt(android::String16("Value"), &value) ||
            value < 0 || value > number->second.max) {
            return kRefused;
        }
        number->second.value = value;
        return 0;
    }

    /**
     * Fills the first `length` bytes of `buffer`: the panel name padded with zeros, or a number in
     * little-endian order. Refuses a length that the value or the buffer does not cover.
     */
    int32_t getEffect(int32_t feature, int32_t type, int32_t length,
                      std::vector<uint8_t>* buffer) const {
        std::vector<uint8_t> content;
        if (feature == Service::DE_FEATURE_PANEL_NAME && type == kPanelNameType &&
            mMissing.count(feature) == 0) {
            content.assign(mPanelName.begin(), mPanelName.end());
        } else {
            const DeMutexLock lock(mMutex);
            const auto number = mNumbers.find({feature, type});
            if (number == mNumbers.end()) {
                return kRefused;
            }
            for (size_t i = 0; i < number->second.size; ++i) {
                content.push_back(static_cast<uint8_t>(number->second.value >> (8 * i)));
            }
        }
        if (length < 0 || static_cast<size_t>(length) < content.size() ||
            static_cast<size_t>(length) > buffer->size()) {
            return kRefused;
        }
        const auto end = std::copy(content.begin(), content.end(), buffer->begin());
        std::fill(end, buffer->begin() + length, uint8_t{0});
        return 0;
    }

    /** A numeric effect as the first of `length` values. */
    int32_t getEffectEx(int32_t feature, int32_t type, int32_t length,
                        std::vector<int32_t>* status) const {
        const DeMutexLock lock(mMutex);
        const auto number = mNumbers.find({feature, type});
        if (number == mNumbers.end() || length < 1 ||
            static_cast<size_t>(length) > status->size()) {
            return kRefused;
        }
        std::fill(status->begin(), status->begin() + length, 0);
        status->front() = number->second.value;
        return 0;
    }

    /** What the display has, and what clients have set. */
    Json describe() const {
        const DeMutexLock lock(mMutex);
        Json json = {{"panel_name", mPanelName}, {"video_enhancement", mSupported},
                     {"missing", mMissing},      {"frame_rate", mFrameRate},
                     {"cwb_forced", mCwbForced}, {"scenes", Json::array()},
                     {"effects", Json::array()}};
        for (const auto& [scene, value] : mScenes) {
            json["scenes"].push_back(Json{{"scene", scene}, {"value", value}});
        }
        for (const auto& [feature, number] : mNumbers) {
            json["effects"].push_back(Json{
                {"feature", feature.first}, {"type", feature.second}, {"value", number.value}});
        }
        return json;
    }

private:
    static constexpr int32_t kPanelNameType = 0;
    static constexpr int32_t kLargestAlpha = 1023;
    static constexpr int32_t kUsualAlpha = 528;
    static constexpr size_t kMostScenes = 256;

    struct Number {
        int32_t value;
        int32_t max;
        size_t size; /**< Bytes on the wire. */
    };

    const int32_t mSupported;
    const std::string mPanelName;
    const std::set<int32_t> mMissing;

    mutable DeMutex mMutex;
    /** By feature and type. */
    std::map<std::pair<int32_t, int32_t>, Number> mNumbers DE_GUARDED_BY(mMutex) = {
        {{Service::DE_FEATURE_FOLDINGCOMPENSATION, Service::DE_DATA_TYPE_ALPHA},
         {kUsualAlpha, kLargestAlpha, 4}},
        {{Service::DE_FEATURE_LOCAL_HBM, Service::DE_DATA_TYPE_LOCAL_HBM}, {1, 1, 1}}};
    std::map<int32_t, int32_t> mScenes DE_GUARDED_BY(mMutex);
    std::string mFrameRate DE_GUARDED_BY(mMutex);
    int32_t mCwbForced DE_GUARDED_BY(mMutex) = 0;
};

}  // namespace sample
