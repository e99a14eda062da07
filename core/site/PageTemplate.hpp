#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "core/site/PagePlaceholder.hpp"

namespace vorlen {

// A page template as a person brings it: the page's text, and what its placeholders lack or get wrong.
struct PageTemplate {
    // 256 KiB: the Worker reads the whole template on every page load.
    static constexpr std::int64_t maxBytes = 262144;
    // Without these a page has no player; the others may be left out.
    static constexpr std::array<PagePlaceholder, 2> requiredPlaceholders = {PagePlaceholder::head, PagePlaceholder::player};

    std::string text;
    std::vector<PagePlaceholder> missingPlaceholders;
    // Texts between "{{" and "}}" that are no placeholder, each once: they stay in the pages as they are.
    std::vector<std::string> unknownPlaceholders;

    // Bytes too many, or not UTF-8, fail with PageTemplateError; the lists are filled for a review.
    static PageTemplate inspected(std::string bytes);
    // A file too large fails by its size, before it is read.
    static PageTemplate inspectedFile(const std::filesystem::path& file);
    // Fails with `incomplete` when a required placeholder is missing: such a page has no player.
    void requireComplete() const;
};

}  // namespace vorlen
