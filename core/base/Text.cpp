#include "core/base/Text.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>

#include <fmt/format.h>

#include <memory>
#include <stdexcept>
#include <unicode/normalizer2.h>
#include <unicode/translit.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace vorlen {

std::string repairUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    int32_t length = static_cast<int32_t>(bytes.size());
    int32_t at = 0;
    while (at < length) {
        int32_t start = at;
        UChar32 scalar;
        U8_NEXT(data, at, length, scalar);
        if (scalar < 0)
            out += "\xEF\xBF\xBD";
        else
            out.append(bytes.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(at - start)));
    }
    return out;
}

bool isValidUtf8(std::string_view bytes) {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    int32_t length = static_cast<int32_t>(bytes.size());
    int32_t at = 0;
    while (at < length) {
        UChar32 scalar;
        U8_NEXT(data, at, length, scalar);
        if (scalar < 0) return false;
    }
    return true;
}

std::u32string toUtf32(std::string_view utf8) {
    std::u32string out;
    const auto* data = reinterpret_cast<const uint8_t*>(utf8.data());
    int32_t length = static_cast<int32_t>(utf8.size());
    int32_t at = 0;
    while (at < length) {
        UChar32 scalar;
        U8_NEXT(data, at, length, scalar);
        out.push_back(scalar < 0 ? U'\uFFFD' : static_cast<char32_t>(scalar));
    }
    return out;
}

std::string toUtf8(std::u32string_view scalars) {
    std::string out;
    for (char32_t scalar : scalars) {
        uint8_t buffer[4];
        int32_t at = 0;
        UBool error = false;
        U8_APPEND(buffer, at, 4, static_cast<UChar32>(scalar), error);
        if (error) {
            out += "\xEF\xBF\xBD";
        } else {
            out.append(reinterpret_cast<char*>(buffer), static_cast<std::size_t>(at));
        }
    }
    return out;
}

namespace {

std::string fromUnicode(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

icu::UnicodeString toUnicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

// ICU transliterators are not thread-safe; each thread keeps its own.
icu::Transliterator& comparisonFolder() {
    thread_local std::unique_ptr<icu::Transliterator> folder = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::Transliterator> made(icu::Transliterator::createInstance(
            "NFD; [:Nonspacing Mark:] Remove; Fullwidth-Halfwidth; NFC", UTRANS_FORWARD, status));
        if (U_FAILURE(status)) throw std::runtime_error("ICU has no folding transliterator");
        return made;
    }();
    return *folder;
}

}  // namespace

std::string nfc(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status)) return std::string(text);
    icu::UnicodeString result = normalizer->normalize(toUnicode(text), status);
    return U_FAILURE(status) ? std::string(text) : fromUnicode(result);
}

std::string trimmed(std::string_view text) {
    std::u32string scalars = toUtf32(text);
    auto isSpace = [](char32_t c) { return u_isUWhiteSpace(static_cast<UChar32>(c)) || c == U'\u0085'; };
    std::size_t begin = 0, end = scalars.size();
    while (begin < end && isSpace(scalars[begin])) ++begin;
    while (end > begin && isSpace(scalars[end - 1])) --end;
    return toUtf8(std::u32string_view(scalars).substr(begin, end - begin));
}

bool isDescriptionWhitespace(char32_t c) {
    switch (c) {
        case U'\t': case U'\n': case U'\v': case U'\f': case U'\r': case U' ':
        case U'\u00A0': case U'\u1680': case U'\u2028': case U'\u2029': case U'\u202F':
        case U'\u205F': case U'\u3000': case U'\uFEFF':
            return true;
        default:
            return c >= U'\u2000' && c <= U'\u200A';
    }
}

std::string asciiLowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

std::string trimmedAsciiWhitespace(std::string_view value) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!value.empty() && isSpace(value.front())) value.remove_prefix(1);
    while (!value.empty() && isSpace(value.back())) value.remove_suffix(1);
    return std::string(value);
}

std::string caseFolded(std::string_view text) {
    icu::UnicodeString unicode = toUnicode(text);
    unicode.foldCase();
    return fromUnicode(unicode);
}

std::string foldedForComparison(std::string_view text) {
    icu::UnicodeString unicode = toUnicode(text);
    comparisonFolder().transliterate(unicode);
    unicode.foldCase();
    return fromUnicode(unicode);
}

std::string lettersAndDigits(std::string_view text) {
    std::u32string kept;
    for (char32_t scalar : toUtf32(text))
        if (u_isalnum(static_cast<UChar32>(scalar))) kept.push_back(scalar);
    return toUtf8(kept);
}

std::string percentEncoded(std::string_view bytes) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size());
    for (unsigned char c : bytes) {
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
            c == '_' || c == '~') {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 0x0F]);
        }
    }
    return out;
}

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

namespace {

// Windows-1252 from 0x80 to 0x9F.
constexpr char32_t windows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

}  // namespace

std::string fromWindows1252(std::string_view bytes) {
    std::u32string scalars;
    scalars.reserve(bytes.size());
    for (unsigned char byte : bytes) scalars.push_back(byte >= 0x80 && byte < 0xA0 ? windows1252High[byte - 0x80] : char32_t(byte));
    return toUtf8(scalars);
}

std::string toWindows1252(std::string_view text) {
    std::string out;
    for (char32_t scalar : toUtf32(nfc(text))) {
        if (scalar < 0x80 || (scalar >= 0xA0 && scalar <= 0xFF)) {
            out += static_cast<char>(scalar);
            continue;
        }
        const auto* found = std::find(std::begin(windows1252High), std::end(windows1252High), scalar);
        out += found == std::end(windows1252High) ? '?' : static_cast<char>(0x80 + (found - std::begin(windows1252High)));
    }
    return out;
}

bool isRelativeAddress(std::string_view address) {
    if (address.empty() || address.front() == '/') return false;
    // A scheme is a letter, then letters, digits, "+", "-" or ".", then ":" before any "/", "?" or "#".
    for (char c : address) {
        if (c == ':') return !std::isalpha(static_cast<unsigned char>(address.front()));
        if (c == '/' || c == '?' || c == '#') return true;
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.') return true;
    }
    return true;
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '%' && at + 2 < text.size() && hexValue(text[at + 1]) >= 0 && hexValue(text[at + 2]) >= 0) {
            out.push_back(static_cast<char>(hexValue(text[at + 1]) * 16 + hexValue(text[at + 2])));
            at += 2;
        } else {
            out.push_back(text[at]);
        }
    }
    return out;
}

std::string joinedWithAnd(const std::vector<std::string>& items) {
    std::string out;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index > 0) out += index + 1 == items.size() ? " and " : ", ";
        out += items[index];
    }
    return out;
}

std::string fileSizeText(std::uint64_t bytes) {
    if (bytes < 1000) return fmt::format("{} bytes", bytes);
    static constexpr const char* units[] = {"kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (value /= 1000; value >= 1000 && unit + 1 < std::size(units); value /= 1000) ++unit;
    return fmt::format("{:.{}f} {}", value, value < 10 ? 2 : 1, units[unit]);
}

std::string clockText(double seconds) {
    auto total = static_cast<long long>(std::llround(std::max(0.0, seconds)));
    if (total >= 3600) return fmt::format("{}:{:02}:{:02}", total / 3600, total / 60 % 60, total % 60);
    return fmt::format("{}:{:02}", total / 60, total % 60);
}

}  // namespace vorlen
