#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/site/SiteSettings.hpp"

namespace vorlen {

enum class FontFormat { woff2, woff, truetype, opentype };

// "woff2", "woff", "truetype", "opentype": the text of a CSS format().
std::string_view cssFormat(FontFormat format);
// The format that a font file's first bytes tell; absent for anything else.
std::optional<FontFormat> fontFormatOf(std::string_view bytes);

struct FontFile {
    std::string name;
    std::string data;
    FontFormat format = FontFormat::woff2;
    bool operator==(const FontFile&) const = default;
};

struct FontWeight {
    int lower = 400;
    int upper = 400;
    bool operator==(const FontWeight&) const = default;
};

struct FontFace {
    FontFile file;
    FontWeight weight;
    bool isItalic = false;
    std::optional<std::string> unicodeRange;
    std::optional<std::string> sourceName;  // the file that the person chose, for the words of a refusal
};

// A font hosted in the site's bucket: its files and the stylesheet "font.css"
// that declares them, in a folder under "_fonts/".
struct FontPackage {
    static constexpr const char* fontsFolder = "_fonts/";
    static constexpr const char* stylesheetName = "font.css";
    static constexpr const char* stylesheetType = "text/css; charset=utf-8";
    static constexpr const char* cacheControl = "public, max-age=31536000, immutable";

    HostedFont font;
    std::string stylesheet;
    std::vector<FontFile> files;

    // Checks the family and each face, then writes the stylesheet. Fails with the
    // words for a person: no files, two files for one face, a family name or a
    // character range that cannot go into a stylesheet.
    static FontPackage make(const std::string& family, const std::string& folder, const std::vector<FontFace>& faces);
    static std::string stylesheetOf(const std::string& family, const std::vector<FontFace>& faces);
    // "_fonts/<family>-<hash of the files>": the files are cached as immutable, so
    // other files take another folder.
    static std::string folderFor(const std::string& family, const std::vector<FontFace>& faces);
    static void checkFamily(std::string_view family);
    static void checkUnicodeRange(std::string_view range);
};

}  // namespace vorlen
