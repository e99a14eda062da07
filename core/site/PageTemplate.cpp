#include "core/site/PageTemplate.hpp"

#include <algorithm>

#include "core/base/Files.hpp"
#include "core/base/Text.hpp"
#include "core/site/PageTemplateError.hpp"

namespace vorlen {

namespace {

// The text between each "{{" (and any further "{" behind it) and the next "}}".
std::vector<std::string> unknownPlaceholdersOf(const std::string& text) {
    std::vector<std::string> unknown;
    for (auto open = text.find("{{"); open != std::string::npos; open = text.find("{{", open)) {
        auto start = text.find_first_not_of('{', open);
        auto close = start == std::string::npos ? std::string::npos : text.find("}}", start);
        if (close == std::string::npos) break;
        std::string inside = text.substr(start, close - start);
        if (!pagePlaceholderFromRawValue(inside) && std::find(unknown.begin(), unknown.end(), inside) == unknown.end())
            unknown.push_back(std::move(inside));
        open = close + 2;
    }
    return unknown;
}

}  // namespace

PageTemplate PageTemplate::inspected(std::string bytes) {
    if (static_cast<std::int64_t>(bytes.size()) > maxBytes)
        throw PageTemplateError::tooLarge(static_cast<std::int64_t>(bytes.size()));
    if (!isValidUtf8(bytes)) throw PageTemplateError::notText();
    PageTemplate page;
    for (auto placeholder : requiredPlaceholders)
        if (bytes.find(textForm(placeholder)) == std::string::npos) page.missingPlaceholders.push_back(placeholder);
    page.unknownPlaceholders = unknownPlaceholdersOf(bytes);
    page.text = std::move(bytes);
    return page;
}

PageTemplate PageTemplate::inspectedFile(const std::filesystem::path& file) {
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(file));
    if (size > maxBytes) throw PageTemplateError::tooLarge(size);
    return inspected(readFile(file));
}

void PageTemplate::requireComplete() const {
    if (!missingPlaceholders.empty()) throw PageTemplateError::incomplete(missingPlaceholders);
}

}  // namespace vorlen
