#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <variant>
#include <vector>

#include "core/site/PagePlaceholder.hpp"

namespace vorlen {

// Why a file cannot be a page template; what() is the text a person sees.
class PageTemplateError : public std::exception {
public:
    struct TooLarge { std::int64_t size = 0; };
    struct Incomplete { std::vector<PagePlaceholder> missing; };
    struct NotText {};
    using Case = std::variant<TooLarge, Incomplete, NotText>;

    static PageTemplateError tooLarge(std::int64_t size);
    static PageTemplateError incomplete(std::vector<PagePlaceholder> missing);
    static PageTemplateError notText();

    const Case& failureCase() const noexcept { return case_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    PageTemplateError(Case failureCase, std::string text) : case_(std::move(failureCase)), text_(std::move(text)) {}

    Case case_;
    std::string text_;
};

}  // namespace vorlen
