#include "core/pages/DescriptionText.hpp"

#include "core/base/Text.hpp"

namespace vorlen::DescriptionText {

namespace {

// A found link in scalar indices, [begin, end).
struct Span {
    std::size_t begin = 0;
    std::size_t end = 0;
};

struct Found {
    Span range;
    Span text;
    Span address;
};

bool isSquareBracket(char32_t c) { return c == U'[' || c == U']'; }
bool isRoundBracket(char32_t c) { return c == U'(' || c == U')'; }
bool isLineBreak(char32_t c) { return c == U'\n' || c == U'\r' || c == U'\u2028' || c == U'\u2029'; }
bool isAsciiLetterOrDigit(char32_t c) {
    return (c >= U'a' && c <= U'z') || (c >= U'A' && c <= U'Z') || (c >= U'0' && c <= U'9');
}
bool isPrivateUse(char32_t c) {
    return (c >= 0xE000 && c <= 0xF8FF) || (c >= 0xF0000 && c <= 0xFFFFD) || (c >= 0x100000 && c <= 0x10FFFD);
}
bool isBareAddressCharacter(char32_t c) {
    return !isDescriptionWhitespace(c) && c != U'<' && c != U'>' && !isPrivateUse(c);
}
bool isTrailingPunctuation(char32_t c) {
    return std::u32string_view(U"?!.,:;*_~'\"\u2019\u201D").find(c) != std::u32string_view::npos;
}

// The length of the scheme that starts at `at`, in any case, or 0.
std::size_t schemeLength(const std::u32string& s, std::size_t at, bool allowMail) {
    auto startsWith = [&](std::u32string_view prefix) {
        if (s.size() - at < prefix.size()) return false;
        for (std::size_t i = 0; i < prefix.size(); ++i) {
            char32_t c = s[at + i];
            if (c >= U'A' && c <= U'Z') c += U'a' - U'A';
            if (c != prefix[i]) return false;
        }
        return true;
    };
    for (std::u32string_view scheme : {U"https://", U"http://", U"mailto:"}) {
        if ((allowMail || scheme != U"mailto:") && startsWith(scheme)) return scheme.size();
    }
    return 0;
}

std::vector<Found> findMarkdownLinks(const std::u32string& s) {
    std::vector<Found> found;
    for (std::size_t open = 0; open < s.size(); ++open) {
        if (s[open] != U'[') continue;
        std::size_t close = open + 1;
        while (close < s.size() && !isSquareBracket(s[close]) && !isLineBreak(s[close])) ++close;
        if (close >= s.size() || s[close] != U']' || close == open + 1) continue;
        if (isDescriptionWhitespace(s[open + 1]) || isDescriptionWhitespace(s[close - 1])) continue;
        if (close + 1 >= s.size() || s[close + 1] != U'(') continue;
        const std::size_t addressStart = close + 2;
        const std::size_t scheme = schemeLength(s, addressStart, true);
        if (scheme == 0) continue;
        std::size_t addressEnd = addressStart + scheme;
        while (addressEnd < s.size() && !isDescriptionWhitespace(s[addressEnd]) && !isRoundBracket(s[addressEnd])) {
            ++addressEnd;
        }
        if (addressEnd == addressStart + scheme || addressEnd >= s.size() || s[addressEnd] != U')') continue;
        found.push_back({{open, addressEnd + 1}, {open + 1, close}, {addressStart, addressEnd}});
        open = addressEnd;
    }
    return found;
}

// Bare addresses outside the given links; the links are closed to the scan, so an
// address stops where a link begins.
std::vector<Found> findBareAddresses(const std::u32string& s, const std::vector<Found>& links) {
    std::vector<Found> found;
    auto nextLink = links.begin();
    std::size_t at = 0;
    while (at < s.size()) {
        while (nextLink != links.end() && nextLink->range.end <= at) ++nextLink;
        if (nextLink != links.end() && at >= nextLink->range.begin) {
            at = nextLink->range.end;
            continue;
        }
        const std::size_t limit = nextLink != links.end() ? nextLink->range.begin : s.size();
        const std::size_t scheme = schemeLength(s, at, false);
        if (scheme == 0 || (at > 0 && isAsciiLetterOrDigit(s[at - 1]))) {
            ++at;
            continue;
        }
        std::size_t end = at + scheme;
        while (end < limit && isBareAddressCharacter(s[end])) ++end;
        std::size_t trimmedEnd = end;
        while (trimmedEnd > at + scheme && isTrailingPunctuation(s[trimmedEnd - 1])) --trimmedEnd;
        if (trimmedEnd == at + scheme) {
            ++at;
            continue;
        }
        found.push_back({{at, trimmedEnd}, {at, trimmedEnd}, {at, trimmedEnd}});
        at = end;
    }
    return found;
}

std::vector<Link> inUtf16Units(const std::u32string& s, const std::vector<Found>& found) {
    std::vector<std::size_t> offsets(s.size() + 1, 0);
    for (std::size_t i = 0; i < s.size(); ++i) offsets[i + 1] = offsets[i] + (s[i] >= 0x10000 ? 2 : 1);
    auto range = [&](Span span) { return TextRange{offsets[span.begin], offsets[span.end] - offsets[span.begin]}; };
    std::vector<Link> links;
    for (const Found& link : found) {
        const Span address = link.address;
        links.push_back({range(link.range), range(link.text),
                         toUtf8(std::u32string_view(s).substr(address.begin, address.end - address.begin))});
    }
    return links;
}

}  // namespace

std::vector<Link> markdownLinks(std::string_view text) {
    const std::u32string scalars = toUtf32(text);
    return inUtf16Units(scalars, findMarkdownLinks(scalars));
}

std::vector<Link> bareAddresses(std::string_view text) {
    const std::u32string scalars = toUtf32(text);
    return inUtf16Units(scalars, findBareAddresses(scalars, findMarkdownLinks(scalars)));
}

std::string linked(std::string_view text) {
    const std::u32string scalars = toUtf32(text);
    const std::vector<Found> addresses = findBareAddresses(scalars, findMarkdownLinks(scalars));
    if (addresses.empty()) return std::string(text);
    const std::u32string_view all(scalars);
    std::u32string result;
    std::size_t copied = 0;
    for (const Found& found : addresses) {
        const std::u32string_view address = all.substr(found.range.begin, found.range.end - found.range.begin);
        result += all.substr(copied, found.range.begin - copied);
        copied = found.range.end;
        // A bracket would end the link early, so such an address stays bare.
        if (address.find_first_of(U"()[]") != std::u32string_view::npos) {
            result += address;
        } else {
            result += U"[" + std::u32string(address) + U"](" + std::u32string(address) + U")";
        }
    }
    result += all.substr(copied);
    return toUtf8(result);
}

}  // namespace vorlen::DescriptionText
