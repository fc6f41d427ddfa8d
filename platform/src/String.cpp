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

/** Bytes of the sequence that `lead` opens, 0 when it opens none. */
size_t sequenceLength(uint8_t lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

/**
 * Whether `next` may follow `lead` directly; rules out overlong forms, surrogates and codes past
 * the last plane, which the lead byte alone lets through.
 */
bool isSecondByte(uint8_t lead, uint8_t next) {
    switch (lead) {
        case 0xE0:
            return next >= 0xA0 && next <= 0xBF;
        case 0xED:
            return next >= 0x80 && next <= 0x9F;
        case 0xF0:
            return next >= 0x90 && next <= 0xBF;
        case 0xF4:
            return next >= 0x80 && next <= 0x8F;
        default:
            return next >= 0x80 && next <= 0xBF;
    }
}

/**
 * Decodes the code point at `position` and moves past it, or past the malformed bytes that can
 * start no character, for which it answers U+FFFD.
 */
char32_t decodeUtf8(const char* text, size_t size, size_t* position) {
    const auto byteAt = [text](size_t index) { return static_cast<uint8_t>(text[index]); };
    const uint8_t lead = byteAt((*position)++);
    const size_t length = sequenceLength(lead);
    if (length <= 1) {
        return length == 1 ? lead : kReplacement;
    }
    char32_t code = lead & (0xFFu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if (*position >= size) {
            return kReplacement;
        }
        const uint8_t next = byteAt(*position);
        if (i == 1 ? !isSecondByte(lead, next) : (next & 0xC0) != 0x80) {
            return kReplacement;
        }
        code = (code << 6) | (next & 0x3Fu);
        ++*position;
    }
    return code;
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

void appendUtf8(std::string* result, char32_t code) {
    const auto continuation = [code](int shift) {
        return static_cast<char>(0x80 | ((code >> shift) & 0x3F));
    };
    if (code < 0x80) {
        result->push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        result->push_back(static_cast<char>(0xC0 | (code >> 6)));
        result->push_back(continuation(0));
    } else if (code < 0x10000) {
        result->push_back(static_cast<char>(0xE0 | (code >> 12)));
        result->push_back(continuation(6));
        result->push_back(continuation(0));
    } else {
        result->push_back(static_cast<char>(0xF0 | (code >> 18)));
        result->push_back(continuation(12));
        result->push_back(continuation(6));
        result->push_back(continuation(0));
    }
}

std::string toUtf8(const char16_t* text, size_t size) {
    std::string result;
    result.reserve(size);
    for (size_t position = 0; position < size;) {
        appendUtf8(&result, decodeUtf16(text, size, &position));
    }
    return result;
}

}  // namespace

String16::String16(const char16_t* text) : mText(text != nullptr ? text : u"") {}

String16::String16(const char16_t* text, size_t units)
    : mText(text != nullptr ? std::u16string(text, units) : std::u16string()) {}

String16::String16(const String8& text) : mText(toUtf16(text.c_str(), text.size())) {}

String16::String16(const char* utf8) : String16(utf8, utf8 != nullptr ? std::strlen(utf8) : 0) {}

String16::String16(const char* utf8, size_t bytes)
    : mText(utf8 != nullptr ? toUtf16(utf8, bytes) : std::u16string()) {}

String8::String8(const char* text) : mText(text != nullptr ? text : "") {}

String8::String8(const char* text, size_t bytes)
    : mText(text != nullptr ? std::string(text, bytes) : std::string()) {}

String8::String8(const String16& text) : mText(toUtf8(text.c_str(), text.size())) {}

String8::String8(const char16_t* text)
    : String8(text, text != nullptr ? std::char_traits<char16_t>::length(text) : 0) {}

String8::String8(const char16_t* text, size_t units)
    : mText(text != nullptr ? toUtf8(text, units) : std::string()) {}

}  // namespace android
