#include "core/site/FontPackage.hpp"

#include <fmt/format.h>

#include <map>
#include <regex>

#include "core/base/Crypto.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Naming.hpp"

namespace vorlen {

std::string_view cssFormat(FontFormat format) {
    switch (format) {
        case FontFormat::woff2: return "woff2";
        case FontFormat::woff: return "woff";
        case FontFormat::truetype: return "truetype";
        case FontFormat::opentype: return "opentype";
    }
    return "woff2";
}

std::optional<FontFormat> fontFormatOf(std::string_view bytes) {
    const auto head = bytes.substr(0, 4);
    if (head == "wOF2") return FontFormat::woff2;
    if (head == "wOFF") return FontFormat::woff;
    if (head == "OTTO") return FontFormat::opentype;
    if (head == std::string_view("\x00\x01\x00\x00", 4) || head == "true") return FontFormat::truetype;
    return std::nullopt;
}

void FontPackage::checkFamily(std::string_view family) {
    // Letters, digits, blanks, hyphens, underscores and dots: nothing that could end a CSS string or an HTML attribute.
    std::string rest = trimmed(family);
    const bool fits = !rest.empty() && rest.size() <= 100;
    std::erase_if(rest, [](char c) { return c == ' ' || c == '-' || c == '_' || c == '.'; });
    if (!fits || rest.empty() || lettersAndDigits(rest) != rest)
        throw VorlenError::config(fmt::format("\u201c{}\u201d is not a font name that Vorlen can use.", family));
}

void FontPackage::checkUnicodeRange(std::string_view range) {
    static const std::regex pattern(
        "U\\+[0-9A-Fa-f?]{1,6}(-[0-9A-Fa-f]{1,6})?(, *U\\+[0-9A-Fa-f?]{1,6}(-[0-9A-Fa-f]{1,6})?)*");
    if (!std::regex_match(range.begin(), range.end(), pattern))
        throw VorlenError::config(fmt::format("\u201c{}\u201d is not a valid character range for a font.", range));
}

std::string FontPackage::stylesheetOf(const std::string& family, const std::vector<FontFace>& faces) {
    std::string css;
    for (const auto& face : faces) {
        const auto weight = face.weight.lower == face.weight.upper
                                ? std::to_string(face.weight.lower)
                                : fmt::format("{} {}", face.weight.lower, face.weight.upper);
        css += fmt::format("@font-face {{\n  font-family: \"{}\";\n  font-style: {};\n  font-weight: {};\n"
                           "  font-display: swap;\n  src: url({}) format(\"{}\");\n",
                           family, face.isItalic ? "italic" : "normal", weight, face.file.name, cssFormat(face.file.format));
        if (face.unicodeRange) css += fmt::format("  unicode-range: {};\n", *face.unicodeRange);
        css += "}\n";
    }
    return css;
}

std::string FontPackage::folderFor(const std::string& family, const std::vector<FontFace>& faces) {
    std::string identity;
    for (const auto& face : faces) identity += sha256Hex(face.file.data);
    return fmt::format("{}{}-{}", fontsFolder, Naming::folderName(family), sha256Hex(identity).substr(0, 8));
}

FontPackage FontPackage::make(const std::string& family, const std::string& folder, const std::vector<FontFace>& faces) {
    checkFamily(family);
    if (faces.empty()) throw VorlenError::config("The font has no font files.");
    std::map<std::tuple<int, int, bool, std::string>, std::vector<std::string>> byFace;
    for (const auto& face : faces) {
        if (face.unicodeRange) checkUnicodeRange(*face.unicodeRange);
        byFace[{face.weight.lower, face.weight.upper, face.isItalic, face.unicodeRange.value_or("")}].push_back(
            "\u201c" + face.sourceName.value_or(face.file.name) + "\u201d");
    }
    for (const auto& [face, names] : byFace)
        if (names.size() > 1)
            throw VorlenError::config(fmt::format("{} give the same weight and style. Choose one of them.", joinedWithAnd(names)));
    FontPackage package{HostedFont{trimmed(family), folder}, stylesheetOf(trimmed(family), faces), {}};
    for (const auto& face : faces) package.files.push_back(face.file);
    return package;
}

}  // namespace vorlen
