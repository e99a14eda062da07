#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

// A DNS name in normal form: lower case, labels of a-z, 0-9 and inner hyphens.
struct Hostname {
    std::string name;

    static std::optional<Hostname> normalised(std::string_view text);
    // Throws VorlenError::config("“text” is not a hostname").
    static Hostname parse(std::string_view text);
    bool operator==(const Hostname&) const = default;
};

// An origin as files hold it: scheme "://" host [":" port], lower case, nothing after.
struct WebOrigin {
    std::string text;

    static std::optional<WebOrigin> strict(std::string_view text);
    // What a person types: trimmed, parsed as a URL; a default port, path, query and fragment drop away.
    static std::optional<WebOrigin> fromInput(std::string_view text);
    // Throws VorlenError::config("“text” is not a web origin").
    static WebOrigin parse(std::string_view text);
    bool operator==(const WebOrigin&) const = default;
};

// The media folder of a site inside its bucket ("" is the top of the bucket).
struct SiteFolder {
    // Throws VorlenError::config with the folder rule's words.
    static std::string normalisedPath(std::string_view text);
};

}  // namespace vorlen
