// SPDX-License-Identifier: Apache-2.0
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstdint>
#include <cstring>

namespace android {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isSurrogate(char32_t code) {
    return code >= 0xD800 && code <= 0xDFFF;
}

/** A sequence of UTF-8 by its length: the bits of its first byte, and the codes that need it. */
struct Utf8Form {
    uint8_t mask;
    uint8_t lead;
    char32_t first;
    char32_t last;
};
constexpr Utf8Form kForms[] = {{0x80, 0x00, 0, 0x7F},
                               {0xE0, 0xC0, 0x80, 0x7FF},
                               {0xF0, 0xE0, 0x800, 0xFFFF},
                               {0xF8, 0xF0, 0x10000, 0x10FFFF}};

/**
 * Decodes the code point at `position` and moves past it. Gives U+FFFD for a sequence that is
 * broken (past the bytes that are there), overlong, a surrogate or beyond the last code point.
 */
char32_t decodeUtf8(const char* text, size_t size, size_t* position) {
    const auto byteAt = [text](size_t index) { return static_cast<uint8_t>(text[index]); };
    const uint8_t lead = byteAt((*position)++);
    size_t following = 0;
    while (following < 4 && (lead & kForms[following].mask) != kForms[following].lead) {
        ++following;
    }
    if (following == 4) {
        return kReplacement;
    }
    const Utf8Form& form = kForms[following];
    char32_t code = lead & ~form.mask & 0xFFu;
    for (; following > 0; --following) {
        if (*position >= size || (byteAt(*position) & 0xC0) != 0x80) {
            return kReplacement;
        }
        code = (code << 6) | (byteAt((*position)++) & 0x3Fu);
    }
    return code < form.first || code > form.last || isSurrogate(code) ? kReplacement : code;
}

char32_t decodeUtf16(const char16_t* text, size_t size, size_t* position) {
    const char32_t unit = text[(*position)++];
    if (!isSurrogate(unit)) {
        return unit;
    }
    const bool high = unit < 0xDC00;
    const char32_t next = high && *position < size ? char32_t{text[*position]} : 0;
    if (next < 0xDC00 || next > 0xDFFF) {
        return kReplacement;
    }
    ++*position;
    return 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
}

std::u16string toUtf16(const char* text, size_t size) {
    std::u16string result;
    result.reserve(size);
    for (size_t position = 0; position < size;) {
        const char32_t code = decodeUtf8(text, size, &position);
        if (code < 0x10000) {
            result.push_back(static_cast<char16_t>(code));
        } else {
            result.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
            result.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        }
    }
    return result;
}

std::string toUtf8(const char16_t* text, size_t size) {
    std::string result;
    result.reserve(size);
    for (size_t position = 0; position < size;) {
        const char32_t code = decodeUtf16(text, size, &position);
        unsigned following = 0;
        while (code > kForms[following].last) {
            ++following;
        }
        result.push_back(static_cast<char>(kForms[following].lead | (code >> (6 * following))));
        for (; following > 0; --following) {
            result.push_back(static_cast<char>(0x80 | ((code >> (6 * (following - 1))) & 0x3F)));
        }
    }
    return result;
}

}  // namespace

String16::String16(const String8& text) : String16(text.c_str(), text.size()) {}

String16::String16(const char* utf8) : String16(utf8, utf8 != nullptr ? std::strlen(utf8) : 0) {}

String16::String16(const char* utf8, size_t bytes) : mText(toUtf16(utf8, bytes)) {}

String8::String8(const String16& text) : mText(toUtf8(text.c_str(), text.size())) {}

}  // namespace android
