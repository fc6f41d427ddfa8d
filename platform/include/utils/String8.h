// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include <utils/String16.h>

namespace android {

/**
 * UTF-8 text. Conversions from UTF-16 join surrogate pairs and replace an unpaired surrogate by
 * U+FFFD. Bytes given directly are kept as they are. Constructors and copies throw std::bad_alloc
 * without memory.
 */
class String8 {
public:
    String8() = default;
    /** A null pointer gives the empty text. */
    explicit String8(const char* text) : mText(text != nullptr ? text : "") {}
    explicit String8(const String16& text);

    /** NUL-terminated; valid until the text changes. */
    const char* c_str() const { return mText.c_str(); }
    const char* string() const { return mText.c_str(); }
    /** Number of bytes. */
    size_t size() const { return mText.size(); }

    bool operator==(const String8& other) const { return mText == other.mText; }
    bool operator!=(const String8& other) const { return mText != other.mText; }

private:
    std::string mText;
};

}  // namespace android
