#include <cstdint>
#include <iostream>

#include <fmt/format.h>

#include "app/SitePageFonts.hpp"
#include "cli/AppContext.hpp"
#include "cli/Commands.hpp"
#include "core/base/Text.hpp"

namespace vorlen::cli {

namespace {

struct FontsOptions {
    std::optional<std::string> site;
    std::vector<std::string> files;
    std::string stylesheet;
    std::string family;
};

app::SitePageFonts fontsOf(AppContext& context, const std::optional<std::string>& site) {
    return app::SitePageFonts::open(context.chosenSite(site), context.secrets, context.model->endpoints());
}

void showFonts(const app::SitePageFonts::Current& current) {
    const auto& fonts = current.fonts;
    if (fonts.isEmpty() && current.stylesheets.empty()) {
        std::cout << "The pages use their own fonts.\n";
        return;
    }
    if (fonts.hosted)
        std::cout << fmt::format("Hosted font: \u201c{}\u201d in {}/\n", fonts.hosted->family, fonts.hosted->folder);
    const std::pair<const char*, const std::optional<std::string>*> uses[] = {
        {"Text", &fonts.text}, {"Headings", &fonts.headings}, {"Tooltips", &fonts.tooltips}};
    for (const auto& [label, family] : uses)
        if (*family) std::cout << fmt::format("{}: \u201c{}\u201d\n", label, **family);
    for (const auto& sheet : current.stylesheets)
        std::cout << fmt::format("Stylesheet: {}\n  loads from {}\n  families: {}\n", sheet.url,
                                 joinedWithAnd(sheet.origins),
                                 sheet.families.empty() ? std::string("none") : joinedWithAnd(sheet.families));
}

}  // namespace

void registerFontsCommand(CommandRegistry& registry) {
    auto options = std::make_shared<FontsOptions>();
    auto* fonts = registry.app.add_subcommand(
        "fonts", "The fonts of the site's pages: a font hosted in the bucket (from font files or a Google Fonts family), "
                 "and stylesheets linked from elsewhere. "
                 "Without a subcommand, shows them. The pages use a change on their next load.");
    fonts->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
    registry.add(fonts, [options] {
        AppContext context;
        showFonts(fontsOf(context, options->site).current());
        return 0;
    });
    const auto withSite = [&](CLI::App* command) {
        command->add_option("--site", options->site, "the site's ID (see `vorlen sites`)");
        return command;
    };

    auto* add = withSite(fonts->add_subcommand(
        "add", "Host a font from its files (WOFF2 as they are, WOFF, and TTF or OTF converted to WOFF2), one file for "
               "each weight and style of one family, and use it for the text and the headings. It replaces the hosted "
               "font that the site had."));
    add->add_option("FILE", options->files, "the font files")->required()->check(CLI::ExistingFile);
    registry.add(add, [options] {
        AppContext context;
        const auto font = fontsOf(context, options->site).addFiles({options->files.begin(), options->files.end()});
        std::cout << fmt::format("The pages use \u201c{}\u201d, hosted in {}/.\n", font.family, font.folder);
        return 0;
    });

    auto* google = withSite(fonts->add_subcommand(
        "google", "Copy a Google Fonts family into the bucket, its regular, bold, italic and bold italic styles as "
                  "WOFF2, and use it for the text and the headings. The pages load it from the site, never from Google. "
                  "It replaces the hosted font that the site had."));
    google->add_option("FAMILY", options->family, "the family's name as Google Fonts writes it, for example \"Source Serif 4\"")
        ->required();
    registry.add(google, [options] {
        AppContext context;
        const auto package = fontsOf(context, options->site).addGoogleFamily(options->family);
        std::uint64_t bytes = 0;
        for (const auto& file : package.files) bytes += file.data.size();
        std::cout << fmt::format("Copied \u201c{}\u201d from Google Fonts: {} {}, {}, into {}/.\n", package.font.family,
                                 package.files.size(), package.files.size() == 1 ? "face" : "faces", fileSizeText(bytes),
                                 package.font.folder);
        std::cout << "The pages use it for the text and the headings on their next load.\n";
        return 0;
    });

    auto* stylesheet = withSite(fonts->add_subcommand(
        "stylesheet", "Link a stylesheet after the pages' own styles, for example a font service's: give its address "
                      "or paste its <link> element. Vorlen reads it first: it must be https, and it may load only https "
                      "addresses, whose origins join the pages' content policy."));
    stylesheet->add_option("URL", options->stylesheet, "the stylesheet's address, or its <link> element")->required();
    registry.add(stylesheet, [options] {
        AppContext context;
        const auto sheet = fontsOf(context, options->site).linkStylesheet(options->stylesheet);
        std::cout << fmt::format("Linked {}. It declares {}.\n", sheet.url,
                                 sheet.families.empty() ? std::string("no font family")
                                                        : "the families " + joinedWithAnd(sheet.families));
        return 0;
    });

    auto* remove = withSite(fonts->add_subcommand(
        "remove", "Back to the pages' own fonts: the hosted font is deleted and the stylesheets are unlinked."));
    registry.add(remove, [options] {
        AppContext context;
        fontsOf(context, options->site).remove();
        std::cout << "The pages use their own fonts.\n";
        return 0;
    });
}

}  // namespace vorlen::cli
