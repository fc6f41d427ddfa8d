// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/String16.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

namespace android {
namespace os {

/**
 * Keys with values of a few plain types. A put replaces the value of its key, also one of another
 * type. A get answers only for a value of its own type; otherwise it returns false and leaves the
 * out-value alone. Used by one thread at a time.
 */
class PersistableBundle : public Parcelable {
public:
    /** Deepest nesting that is written or read. */
    static constexpr int kMaxDepth = 16;

    status_t writeToParcel(Parcel* parcel) const override;
    /**
     * Replaces the content. A malformed bundle is refused whole with BAD_VALUE and changes
     * nothing.
     */
    status_t readFromParcel(const Parcel* parcel) override;

    bool empty() const { return mEntries.empty(); }
    size_t size() const { return mEntries.size(); }

    void putBoolean(const String16& key, bool value) { put(key, value); }
    void putInt(const String16& key, int32_t value) { put(key, value); }
    void putLong(const String16& key, int64_t value) { put(key, value); }
    void putDouble(const String16& key, double value) { put(key, value); }
    void putString(const String16& key, const String16& value) { put(key, value); }
    void putBooleanVector(const String16& key, const std::vector<bool>& value) { put(key, value); }
    void putIntVector(const String16& key, const std::vector<int32_t>& value) { put(key, value); }
    void putLongVector(const String16& key, const std::vector<int64_t>& value) { put(key, value); }
    void putDoubleVector(const String16& key, const std::vector<double>& value) { put(key, value); }
    void putStringVector(const String16& key, const std::vector<String16>& value) {
        put(key, value);
    }
    void putPersistableBundle(const String16& key, const PersistableBundle& value);

    bool getBoolean(const String16& key, bool* out) const { return get(key, out); }
    bool getInt(const String16& key, int32_t* out) const { return get(key, out); }
    bool getLong(const String16& key, int64_t* out) const { return get(key, out); }
    bool getDouble(const String16& key, double* out) const { return get(key, out); }
    bool getString(const String16& key, String16* out) const { return get(key, out); }
    bool getBooleanVector(const String16& key, std::vector<bool>* out) const {
        return get(key, out);
    }
    bool getIntVector(const String16& key, std::vector<int32_t>* out) const {
        return get(key, out);
    }
    bool getLongVector(const String16& key, std::vector<int64_t>* out) const {
        return get(key, out);
    }
    bool getDoubleVector(const String16& key, std::vector<double>* out) const {
        return get(key, out);
    }
    bool getStringVector(const String16& key, std::vector<String16>* out) const {
        return get(key, out);
    }
    bool getPersistableBundle(const String16& key, PersistableBundle* out) const;

private:
    // A nested bundle is never changed once it is in, so copies may share it.
    using Nested = std::shared_ptr<const PersistableBundle>;
    using Value = std::variant<String16, int32_t, int64_t, double, bool, std::vector<String16>,
                               std::vector<int32_t>, std::vector<int64_t>, std::vector<bool>,
                               std::vector<double>, Nested>;

    void put(const String16& key, Value value);
    template <typename T>
    bool get(const String16& key, T* out) const {
        const auto place = mIndex.find(key);
        const T* value =
            place != mIndex.end() ? std::get_if<T>(&mEntries[place->second].second) : nullptr;
        if (value != nullptr) {
            *out = *value;
        }
        return value != nullptr;
    }
    status_t writeNested(Parcel* parcel, int depth) const;
    status_t readNested(const Parcel* parcel, int depth);
    static status_t writeValue(Parcel* parcel, const Value& value, int depth);
    static status_t readValue(const Parcel* parcel, Value* value, int depth);

    std::vector<std::pair<String16, Value>> mEntries;  // in the order of insertion
    std::map<String16, size_t> mIndex;                 // key to its place in mEntries
};

}  // namespace os
}  // namespace android
