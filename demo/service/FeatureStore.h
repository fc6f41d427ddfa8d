// SPDX-License-Identifier: Apache-2.0
// The display features of the sample service, and the values that clients set.
#pragma once

#include <binder/PersistableBundle.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

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
    static constexpr int32_t kRefused = -22;

    /**
     * `supported` is the answer for video enhancement. `missing` are features that the display is
     * to lack: they are not supported, and their effects are unknown.
     */
    FeatureStore(int32_t supported, std::string panelName, std::set<int32_t> missing);

    /** 1 for each display feature of the interface, 0 for an unknown or missing one. */
    int32_t getSupported(int32_t feature) const;

    /**
     * Keeps `value` as the scene's value. Brightness levels are not negative, and no more than 256
     * scenes are kept, so that no client can fill the memory.
     */
    int32_t setScene(int32_t scene, int32_t value);

    /** Keeps a setting: the frame rate ("FPS", text) or the CWB switch ("forceEnable", 0 or 1). */
    int32_t setData(int32_t type, const android::os::PersistableBundle& data);

    /** Sets a numeric effect from the int "Value": an alpha of 0 to 1023, or a switch of 0 or 1. */
    int32_t setEffect(int32_t feature, int32_t type, const android::os::PersistableBundle& data);

    /**
     * Fills the first `length` bytes of `buffer`: the panel name padded with zeros, or a number in
     * little-endian order. Refuses a length that the value or the buffer does not cover.
     */
    int32_t getEffect(int32_t feature, int32_t type, int32_t length,
                      std::vector<uint8_t>* buffer) const;

    /** A numeric effect as the first of `length` values. */
    int32_t getEffectEx(int32_t feature, int32_t type, int32_t length,
                        std::vector<int32_t>* status) const;

    /** What the display has, and what clients have set. */
    Json describe() const;

private:
    struct Number {
        int32_t value;
        int32_t max;
        size_t size; /**< Bytes on the wire. */
    };

    const int32_t mSupported;
    const std::string mPanelName;
    const std::set<int32_t> mMissing;

    mutable DeMutex mMutex;
    std::map<std::pair<int32_t, int32_t>, Number> mNumbers
        DE_GUARDED_BY(mMutex); /**< By feature and type. */
    std::map<int32_t, int32_t> mScenes DE_GUARDED_BY(mMutex);
    std::string mFrameRate DE_GUARDED_BY(mMutex);
    int32_t mCwbForced DE_GUARDED_BY(mMutex) = 0;
};

}  // namespace sample
