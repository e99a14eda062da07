#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorlen {

// MAJOR.MINOR.PATCH with optional dot-separated prerelease identifiers.
struct SemanticVersion {
    std::int64_t major = 0;
    std::int64_t minor = 0;
    std::int64_t patch = 0;
    std::vector<std::string> prerelease;

    // Throws VorlenError::config("“text” is not a semantic version").
    static SemanticVersion parse(std::string_view text);
    std::string text() const;

    std::strong_ordering operator<=>(const SemanticVersion& other) const;
    bool operator==(const SemanticVersion& other) const { return (*this <=> other) == 0; }
};

}  // namespace vorlen
