// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/String16.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <variant>

namespace android::os {

/**
 * Keys with values of a few plain types. A put replaces the value of its key, also one of another
 * type, and throws std::bad_alloc without memory; the bundle is then as before. A get answers only
 * for a value of its own type; otherwise, and without memory, it returns false and leaves the
 * out-value unchanged. Used by one thread at a time.
 */
class PersistableBundle : public Parcelable {
public:
    /** Deepest nesting that is written or read. */
    static constexpr int kMaxDepth = 16;

    status_t writeToParcel(Parcel* parcel) const override;
    /**
     * Replaces the content. A malformed bundle is refused whole with BAD_VALUE and changes
     * nothing. So is one with a value of another type than those below.
     */
    status_t readFromParcel(const Parcel* parcel) override;

    bool empty() const { return mEntries.empty(); }
    size_t size() const { return mEntries.size(); }

    void putBoolean(const String16& key, bool value) { put(key, value); }
    void putInt(const String16& key, int32_t value) { put(key, value); }
    void putLong(const String16& key, int64_t value) { put(key, value); }
    void putDouble(const String16& key, double value) { put(key, value); }
    void putString(const String16& key, const String16& value) { put(key, value); }
    void putPersistableBundle(const String16& key, const PersistableBundle& value);

    bool getBoolean(const String16& key, bool* out) const { return get(key, out); }
    bool getInt(const String16& key, int32_t* out) const { return get(key, out); }
    bool getLong(const String16& key, int64_t* out) const { return get(key, out); }
    bool getDouble(const String16& key, double* out) const { return get(key, out); }
    bool getString(const String16& key, String16* out) const { return get(key, out); }
    bool getPersistableBundle(const String16& key, PersistableBundle* out) const;

private:
    // A nested bundle is never changed once it is in, so copies may share it.
    using Nested = std::shared_ptr<const PersistableBundle>;
    using Value = std::variant<String16, int32_t, int64_t, double, bool, Nested>;
    struct Entry {
        size_t place; /**< in the order of insertion */
        Value value;
    };
    using Entries = std::map<String16, Entry>;

    void put(const String16& key, Value value);
    template <typename T>
    bool get(const String16& key, T* out) const;
    status_t writeNested(Parcel* parcel, int depth) const;
    status_t readNested(const Parcel* parcel, int depth);
    static status_t writeValue(Parcel* parcel, const Value& value, int depth);
    static status_t readValue(const Parcel* parcel, Value* value, int depth);

    Entries mEntries;
};

}  // namespace android::os
