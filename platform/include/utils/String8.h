// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include <utils/String16.h>

namespace android {

/**
 * UTF-8 text. Conversions from UTF-16 join surrogate pairs and replace an unpaired surrogate by
 * U+FFFD. Bytes given directly are kept as they are.
 */
class String8 {
public:
    String8() = default;
    /** A null pointer gives the empty text, here and below. */
    explicit String8(const char* text);
    String8(const char* text, size_t bytes);
    explicit String8(const String16& text);
    explicit String8(const char16_t* text);
    String8(const char16_t* text, size_t units);

    /** NUL-terminated; valid until the text changes. */
    const char* c_str() const { return mText.c_str(); }
    const char* string() const { return mText.c_str(); }
    /** Number of bytes. */
    size_t size() const { return mText.size(); }
    size_t length() const { return mText.size(); }
    bool empty() const { return mText.empty(); }
    bool isEmpty() const { return mText.empty(); }

    bool operator==(const String8& other) const { return mText == other.mText; }
    bool operator!=(const String8& other) const { return mText != other.mText; }
    bool operator<(const String8& other) const { return mText < other.mText; }

private:
    std::string mText;
};

}  // namespace android
