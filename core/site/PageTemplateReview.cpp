#include "core/site/PageTemplateReview.hpp"

#include <fmt/format.h>

namespace vorlen::PageTemplateReview {

std::string missingText(const std::vector<PagePlaceholder>& missing) {
    return fmt::format("The file does not contain {}. A page cannot play its video without them.", listedTextForms(missing));
}

std::string placeholderRule() {
    return fmt::format("The placeholders are {}, with no spaces.",
                       listedTextForms({allPagePlaceholders.begin(), allPagePlaceholders.end()}));
}

std::string shownAsWritten(const std::string& unknown) { return "{{" + unknown + "}}"; }

}  // namespace vorlen::PageTemplateReview
