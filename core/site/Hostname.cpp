#include "core/site/Hostname.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

bool isAlphanumeric(char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); }

bool isValidPort(std::string_view port) {
    if (port.empty() || port.size() > 5 || port.front() == '0') return false;
    if (!std::all_of(port.begin(), port.end(), [](char c) { return c >= '0' && c <= '9'; })) return false;
    int value = 0;
    std::from_chars(port.data(), port.data() + port.size(), value);
    return value <= 65535;
}

}  // namespace

std::optional<Hostname> Hostname::normalised(std::string_view text) {
    std::string name = asciiLowercased(text);
    if (name.empty() || name.size() > 253) return std::nullopt;
    std::size_t start = 0;
    for (;;) {
        std::size_t end = name.find('.', start);
        std::string_view label = std::string_view(name).substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (label.empty() || label.size() > 63 || !isAlphanumeric(label.front()) || !isAlphanumeric(label.back()))
            return std::nullopt;
        if (!std::all_of(label.begin(), label.end(), [](char c) { return isAlphanumeric(c) || c == '-'; }))
            return std::nullopt;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return Hostname{name};
}

Hostname Hostname::parse(std::string_view text) {
    if (auto host = normalised(text)) return *host;
    throw VorlenError::config(fmt::format("\u201c{}\u201d is not a hostname", text));
}

std::optional<WebOrigin> WebOrigin::strict(std::string_view text) {
    std::string origin = asciiLowercased(text);
    std::string_view rest;
    if (origin.starts_with("https://"))
        rest = std::string_view(origin).substr(8);
    else if (origin.starts_with("http://"))
        rest = std::string_view(origin).substr(7);
    else
        return std::nullopt;
    std::size_t colon = rest.find(':');
    if (!Hostname::normalised(rest.substr(0, colon))) return std::nullopt;
    if (colon != std::string_view::npos && !isValidPort(rest.substr(colon + 1))) return std::nullopt;
    return WebOrigin{origin};
}

std::optional<WebOrigin> WebOrigin::fromInput(std::string_view input) {
    std::string text = trimmed(input);
    std::size_t schemeEnd = text.find("://");
    if (schemeEnd == std::string::npos || schemeEnd == 0) return std::nullopt;
    std::string scheme = asciiLowercased(std::string_view(text).substr(0, schemeEnd));
    std::string_view rest = std::string_view(text).substr(schemeEnd + 3);
    std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (authority.find('@') != std::string_view::npos || authority.empty()) return std::nullopt;
    std::size_t colon = authority.rfind(':');
    std::string host = asciiLowercased(authority.substr(0, colon));
    std::string port = colon == std::string_view::npos ? "" : std::string(authority.substr(colon + 1));
    if (host.empty()) return std::nullopt;
    if ((scheme == "https" && port == "443") || (scheme == "http" && port == "80")) port.clear();
    if (colon != std::string_view::npos && port.empty() && authority.substr(colon + 1).empty()) return std::nullopt;
    return strict(scheme + "://" + host + (port.empty() ? "" : ":" + port));
}

WebOrigin WebOrigin::parse(std::string_view text) {
    if (auto origin = strict(text)) return *origin;
    throw VorlenError::config(fmt::format("\u201c{}\u201d is not a web origin", text));
}

std::string SiteFolder::normalisedPath(std::string_view input) {
    auto refuse = [&] {
        return VorlenError::config(fmt::format(
            "\u201c{}\u201d is not a valid folder path: use letters, digits, \u201c.\u201d, \u201c_\u201d and "
            "\u201c-\u201d between the \u201c/\u201d, and do not start it with \u201c_\u201d",
            input));
    };
    std::string text = trimmed(input);
    std::size_t begin = text.find_first_not_of('/');
    if (begin == std::string::npos) return "";
    std::string path = text.substr(begin, text.find_last_not_of('/') - begin + 1);
    std::size_t start = 0;
    for (;;) {
        std::size_t end = path.find('/', start);
        std::string_view part = std::string_view(path).substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (part.empty() || part == "." || part == "..") throw refuse();
        for (char c : part)
            if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_' || c == '-')) throw refuse();
        if (end == std::string::npos) break;
        start = end + 1;
    }
    if (path.front() == '_') throw refuse();
    return path;
}

}  // namespace vorlen
