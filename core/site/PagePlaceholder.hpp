#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlen {

// The values that the page Worker puts into a page template.
enum class PagePlaceholder { title, head, player, description, site, visibility };

inline constexpr std::array<PagePlaceholder, 6> allPagePlaceholders = {
    PagePlaceholder::title,       PagePlaceholder::head, PagePlaceholder::player,
    PagePlaceholder::description, PagePlaceholder::site, PagePlaceholder::visibility};

// "title", "head", ...
std::string rawValue(PagePlaceholder placeholder);
std::optional<PagePlaceholder> pagePlaceholderFromRawValue(std::string_view text);

// "{{title}}": the raw value between braces, with no spaces, as a template holds it.
std::string textForm(PagePlaceholder placeholder);
// "{{head}} and {{player}}"
std::string listedTextForms(const std::vector<PagePlaceholder>& placeholders);

}  // namespace vorlen
