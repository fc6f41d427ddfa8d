// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace android {

class String8;

/**
 * UTF-16 text. Conversions from UTF-8 replace each malformed sequence by U+FFFD and read only the
 * bytes given. Constructors and copies throw std::bad_alloc without memory. Copies may be used from
 * different threads.
 */
class String16 {
public:
    String16() = default;
    String16(const char16_t* text, size_t units) : mText(text, units) {}
    explicit String16(const String8& text);
    /** A null pointer gives the empty text. */
    explicit String16(const char* utf8);
    String16(const char* utf8, size_t bytes);

    /** NUL-terminated; valid until the text changes. */
    const char16_t* c_str() const { return mText.c_str(); }
    const char16_t* string() const { return mText.c_str(); }
    /** Number of UTF-16 units. */
    size_t size() const { return mText.size(); }
    bool empty() const { return mText.empty(); }

    bool operator==(const String16& other) const { return mText == other.mText; }
    bool operator!=(const String16& other) const { return mText != other.mText; }
    bool operator<(const String16& other) const { return mText < other.mText; }

private:
    std::u16string mText;
};

}  // namespace android
