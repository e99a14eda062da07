#include "core/cloudflare/SemanticVersion.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

bool isNumeric(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (;;) {
        std::size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) return parts;
        start = end + 1;
    }
}

std::strong_ordering compareIdentifiers(const std::string& a, const std::string& b) {
    bool aNumeric = isNumeric(a), bNumeric = isNumeric(b);
    if (aNumeric && bNumeric) {
        // Compare as numbers of any length: shorter digit strings (without leading zeros) are smaller.
        std::string_view x = a, y = b;
        while (x.size() > 1 && x.front() == '0') x.remove_prefix(1);
        while (y.size() > 1 && y.front() == '0') y.remove_prefix(1);
        if (x.size() != y.size()) return x.size() <=> y.size();
        return x.compare(y) <=> 0;
    }
    if (aNumeric != bNumeric) return aNumeric ? std::strong_ordering::less : std::strong_ordering::greater;
    return a.compare(b) <=> 0;
}

}  // namespace

SemanticVersion SemanticVersion::parse(std::string_view text) {
    auto refuse = [&] { return VorlenError::config(fmt::format("\u201c{}\u201d is not a semantic version", text)); };
    std::size_t dash = text.find('-');
    std::string_view core = text.substr(0, dash);
    auto numbers = split(core, '.');
    if (numbers.size() != 3) throw refuse();
    SemanticVersion version;
    std::int64_t* fields[] = {&version.major, &version.minor, &version.patch};
    for (std::size_t i = 0; i < 3; ++i) {
        std::string_view number = numbers[i];
        if (!isNumeric(number) || (number.size() > 1 && number.front() == '0')) throw refuse();
        auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), *fields[i]);
        if (error != std::errc() || end != number.data() + number.size()) throw refuse();
    }
    if (dash != std::string_view::npos) {
        for (auto identifier : split(text.substr(dash + 1), '.')) {
            if (identifier.empty()) throw refuse();
            version.prerelease.emplace_back(identifier);
        }
    }
    return version;
}

std::string SemanticVersion::text() const {
    std::string out = fmt::format("{}.{}.{}", major, minor, patch);
    for (std::size_t i = 0; i < prerelease.size(); ++i) out += (i == 0 ? "-" : ".") + prerelease[i];
    return out;
}

std::strong_ordering SemanticVersion::operator<=>(const SemanticVersion& other) const {
    if (auto order = major <=> other.major; order != 0) return order;
    if (auto order = minor <=> other.minor; order != 0) return order;
    if (auto order = patch <=> other.patch; order != 0) return order;
    // A release ranks above its prereleases.
    if (prerelease.empty() || other.prerelease.empty()) return prerelease.empty() <=> other.prerelease.empty();
    std::size_t shared = std::min(prerelease.size(), other.prerelease.size());
    for (std::size_t i = 0; i < shared; ++i)
        if (auto order = compareIdentifiers(prerelease[i], other.prerelease[i]); order != 0) return order;
    return prerelease.size() <=> other.prerelease.size();
}

}  // namespace vorlen
