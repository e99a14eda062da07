#include "core/site/PagePlaceholder.hpp"

#include "core/base/Text.hpp"

namespace vorlen {

std::string rawValue(PagePlaceholder placeholder) {
    switch (placeholder) {
        case PagePlaceholder::title: return "title";
        case PagePlaceholder::head: return "head";
        case PagePlaceholder::player: return "player";
        case PagePlaceholder::description: return "description";
        case PagePlaceholder::site: return "site";
        case PagePlaceholder::visibility: return "visibility";
    }
    return "";
}

std::optional<PagePlaceholder> pagePlaceholderFromRawValue(std::string_view text) {
    for (auto placeholder : allPagePlaceholders)
        if (rawValue(placeholder) == text) return placeholder;
    return std::nullopt;
}

std::string textForm(PagePlaceholder placeholder) { return "{{" + rawValue(placeholder) + "}}"; }

std::string listedTextForms(const std::vector<PagePlaceholder>& placeholders) {
    std::vector<std::string> forms;
    for (auto placeholder : placeholders) forms.push_back(textForm(placeholder));
    return joinedWithAnd(forms);
}

}  // namespace vorlen
