#include "core/site/PageTemplateError.hpp"

#include <fmt/format.h>

#include "core/base/Text.hpp"
#include "core/site/PageTemplate.hpp"

namespace vorlen {

PageTemplateError PageTemplateError::tooLarge(std::int64_t size) {
    return {TooLarge{size}, fmt::format("The file has {}. A page template can have {} at most.",
                                        fileSizeText(static_cast<std::uint64_t>(size)), fileSizeText(PageTemplate::maxBytes))};
}

PageTemplateError PageTemplateError::incomplete(std::vector<PagePlaceholder> missing) {
    auto text = fmt::format("The template does not contain {}. A page cannot play its video without them.", listedTextForms(missing));
    return {Incomplete{std::move(missing)}, std::move(text)};
}

PageTemplateError PageTemplateError::notText() {
    return {NotText{}, "The file is not UTF-8 text. Save the template as UTF-8 text, then try again."};
}

}  // namespace vorlen
