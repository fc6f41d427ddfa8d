// SPDX-License-Identifier: Apache-2.0
#include "FeatureStore.h"

#include <utils/String16.h>
#include <utils/String8.h>

#include <algorithm>
#include <iterator>

#include "aidl/IDisplayEngineService.h"

using android::String16;
using android::os::PersistableBundle;
using Service = com::tivora::displayengine::IDisplayEngineService;

namespace sample {
namespace {

constexpr int32_t kPanelNameType = 0;
constexpr int32_t kLargestAlpha = 1023;
constexpr int32_t kUsualAlpha = 528;
constexpr size_t kMostScenes = 256;

}  // namespace

FeatureStore::FeatureStore(int32_t supported, std::string panelName, std::set<int32_t> missing)
    : mSupported(supported),
      mPanelName(std::move(panelName)),
      mMissing(std::move(missing)),
      mNumbers{{{Service::DE_FEATURE_FOLDINGCOMPENSATION, Service::DE_DATA_TYPE_ALPHA},
                {kUsualAlpha, kLargestAlpha, 4}},
               {{Service::DE_FEATURE_LOCAL_HBM, Service::DE_DATA_TYPE_LOCAL_HBM}, {1, 1, 1}}} {
    for (auto number = mNumbers.begin(); number != mNumbers.end();) {
        number = mMissing.count(number->first.first) != 0 ? mNumbers.erase(number) : ++number;
    }
}

int32_t FeatureStore::getSupported(int32_t feature) const {
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

int32_t FeatureStore::setScene(int32_t scene, int32_t value) {
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

int32_t FeatureStore::setData(int32_t type, const PersistableBundle& data) {
    const DeMutexLock lock(mMutex);
    if (type == Service::DE_DATA_TYPE_FRAMERATE) {
        String16 rate;
        if (!data.getString(String16("FPS"), &rate)) {
            return kRefused;
        }
        mFrameRate = android::String8(rate).string();
        return 0;
    }
    int32_t force = 0;
    if (type != Service::DE_DATA_TYPE_CWB_FORCE_ENABLE ||
        !data.getInt(String16("forceEnable"), &force) || (force != 0 && force != 1)) {
        return kRefused;
    }
    mCwbForced = force;
    return 0;
}

int32_t FeatureStore::setEffect(int32_t feature, int32_t type, const PersistableBundle& data) {
    const DeMutexLock lock(mMutex);
    const auto number = mNumbers.find({feature, type});
    int32_t value = 0;
    if (number == mNumbers.end() || !data.getInt(String16("Value"), &value) || value < 0 ||
        value > number->second.max) {
        return kRefused;
    }
    number->second.value = value;
    return 0;
}

int32_t FeatureStore::getEffect(int32_t feature, int32_t type, int32_t length,
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

int32_t FeatureStore::getEffectEx(int32_t feature, int32_t type, int32_t length,
                                  std::vector<int32_t>* status) const {
    const DeMutexLock lock(mMutex);
    const auto number = mNumbers.find({feature, type});
    if (number == mNumbers.end() || length < 1 || static_cast<size_t>(length) > status->size()) {
        return kRefused;
    }
    std::fill(status->begin(), status->begin() + length, 0);
    status->front() = number->second.value;
    return 0;
}

Json FeatureStore::describe() const {
    const DeMutexLock lock(mMutex);
    Json json = {{"panel_name", mPanelName}, {"video_enhancement", mSupported},
                 {"missing", mMissing},      {"frame_rate", mFrameRate},
                 {"cwb_forced", mCwbForced}, {"scenes", Json::array()},
                 {"effects", Json::array()}};
    for (const auto& [scene, value] : mScenes) {
        json["scenes"].push_back(Json{{"scene", scene}, {"value", value}});
    }
    for (const auto& [feature, number] : mNumbers) {
        json["effects"].push_back(
            Json{{"feature", feature.first}, {"type", feature.second}, {"value", number.value}});
    }
    return json;
}

}  // namespace sample
