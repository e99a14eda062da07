#include "core/site/SiteFontChoice.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "core/base/Files.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/ToolRunner.hpp"
#include "core/publish/Tools.hpp"
#include "core/site/FontFacts.hpp"

namespace vorlen {

namespace fs = std::filesystem;

namespace {

std::string readFontFile(const fs::path& file) {
    try {
        return readFile(file);
    } catch (const std::exception&) {
        throw VorlenError::config(fmt::format("Vorlen cannot read \u201c{}\u201d.", file.filename().string()));
    }
}

fs::path woff2Compress() {
    const char* path = std::getenv("PATH");
    for (const auto& folder : Tools::searchDirectories(Tools::defaultHelpersDir(), path ? path : ""))
        if (fs::is_regular_file(folder / "woff2_compress")) return folder / "woff2_compress";
    throw VorlenError::tool("woff2_compress", "cannot find woff2_compress (Debian's package woff2)");
}

std::string toWoff2(const std::string& data) {
    const auto folder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-font-");
    const DirectoryRemover remover(folder);
    writeFileAtomically(folder / "font.ttf", data);
    ToolRunner::run("woff2_compress", woff2Compress(), {(folder / "font.ttf").string()});
    return readFile(folder / "font.woff2");
}

void deleteFolder(Bucket& bucket, const std::string& folder) {
    std::vector<std::string> keys = bucket.listKeys(folder + "/");
    bucket.deleteObjects(keys);
}

}  // namespace

FontPackage fontPackageFromFiles(const std::vector<fs::path>& files) {
    std::vector<FontFace> faces;
    std::string family;
    for (const auto& path : files) {
        const auto name = path.filename().string();
        auto data = readFontFile(path);
        const auto facts = FontFacts::read(data, name);
        if (family.empty()) family = facts.family;
        if (facts.family != family)
            throw VorlenError::config(fmt::format("\u201c{}\u201d is of the family \u201c{}\u201d, and \u201c{}\u201d of "
                                                  "\u201c{}\u201d. Add the files of one family.",
                                                  files.front().filename().string(), family, name, facts.family));
        auto format = *fontFormatOf(data);
        if (format == FontFormat::truetype || format == FontFormat::opentype) {
            data = toWoff2(data);
            format = FontFormat::woff2;
        }
        const auto weight = facts.weight.lower == facts.weight.upper
                                ? std::to_string(facts.weight.lower)
                                : fmt::format("{}-{}", facts.weight.lower, facts.weight.upper);
        const auto fileName = fmt::format("{}-{}{}.{}", Naming::folderName(family), weight, facts.isItalic ? "-italic" : "",
                                          format == FontFormat::woff2 ? "woff2" : "woff");
        faces.push_back(FontFace{FontFile{fileName, std::move(data), format}, facts.weight, facts.isItalic, std::nullopt, name});
    }
    return FontPackage::make(family, FontPackage::folderFor(family, faces), faces);
}

void hostFont(Bucket& bucket, const FontPackage& package) {
    auto settings = SiteSettings::readRequired(bucket);
    for (const auto& file : package.files) {
        const auto type = file.format == FontFormat::woff2 ? "font/woff2" : "font/woff";
        bucket.put(package.font.folder + "/" + file.name, RequestBody::bytes(file.data), {type, FontPackage::cacheControl, {}});
    }
    bucket.put(package.font.folder + "/" + FontPackage::stylesheetName, RequestBody::bytes(package.stylesheet),
               {FontPackage::stylesheetType, FontPackage::cacheControl, {}});
    const auto replaced = settings.fonts.hosted;
    settings.fonts.hosted = package.font;
    settings.fonts.text = package.font.family;
    settings.fonts.headings = package.font.family;
    settings.write(bucket);
    if (replaced && replaced->folder != package.font.folder) deleteFolder(bucket, replaced->folder);
}

void linkStylesheet(Bucket& bucket, const SiteStylesheet& stylesheet) {
    auto settings = SiteSettings::readRequired(bucket);
    auto& sheets = settings.stylesheets;
    std::erase_if(sheets, [&](const SiteStylesheet& sheet) { return sheet.url == stylesheet.url; });
    sheets.push_back(stylesheet);
    settings.write(bucket);
}

void removeFonts(Bucket& bucket) {
    auto settings = SiteSettings::readRequired(bucket);
    const auto replaced = settings.fonts.hosted;
    settings.fonts = SiteFonts{};
    settings.stylesheets.clear();
    settings.write(bucket);
    if (replaced) deleteFolder(bucket, replaced->folder);
}

}  // namespace vorlen
