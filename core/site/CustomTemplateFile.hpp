#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/base/Dates.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

struct PageTemplate;

// The custom page template that a site keeps in "_vorlen/template.html", as a person sees it.
struct CustomTemplateFile {
    // A site cannot switch to a custom template that its bucket does not hold.
    static constexpr const char* missingMessage =
        "The bucket has no custom template in _vorlen/template.html. Import a template first.";

    std::int64_t size = 0;
    std::optional<SystemTime> imported;
    // The name of the file the person imported.
    std::optional<std::string> sourceName;

    bool operator==(const CustomTemplateFile&) const = default;

    struct Contents;

    // The bucket's custom template, or nothing when it has none.
    static std::optional<Contents> find(Bucket& bucket);
    // Whether the bucket holds one, without reading it.
    static bool exists(Bucket& bucket);
    // Never cached, so that the Worker renders the next page load from the new template.
    static void write(Bucket& bucket, const PageTemplate& page, const std::optional<std::string>& sourceName);
};

struct CustomTemplateFile::Contents {
    std::string bytes;
    CustomTemplateFile file;
};

}  // namespace vorlen
