#pragma once

#include <string>
#include <vector>

#include "core/site/PagePlaceholder.hpp"

namespace vorlen {

// The words of the review that a person sees when importing a page template.
namespace PageTemplateReview {
inline constexpr const char* failedTitle = "Vorlen Cannot Import This File";
inline constexpr const char* reviewTitle = "Check the Placeholders";
inline constexpr const char* unknownNotice =
    "These texts look like placeholders, but they are not. They stay in the pages as they are.";

// "The file does not contain {{player}}. A page cannot play its video without them."
std::string missingText(const std::vector<PagePlaceholder>& missing);
// "The placeholders are {{title}}, {{head}}, ... and {{visibility}}, with no spaces."
std::string placeholderRule();
// An unknown placeholder as the template holds it: "{{ title }}".
std::string shownAsWritten(const std::string& unknown);
}  // namespace PageTemplateReview

}  // namespace vorlen
