#include "core/site/GoogleFonts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <regex>

#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/publish/Naming.hpp"

namespace vorlen {

namespace {

constexpr const char* unreadableRule = "Google Fonts sent a font rule that Vorlen cannot read.";

// The styles asked one at a time, since the service refuses a whole request for one
// style that the family lacks.
constexpr const char* styleAxes[] = {":ital,wght@0,400", ":ital,wght@0,700", ":ital,wght@1,400", ":ital,wght@1,700"};

std::optional<std::string> property(const std::string& rule, const char* name) {
    const std::regex pattern(std::string("(?:^|;)\\s*") + name + "\\s*:\\s*([^;]*)", std::regex::icase);
    std::smatch found;
    if (!std::regex_search(rule, found, pattern)) return std::nullopt;
    return trimmed(found.str(1));
}

std::string unquoted(std::string text) {
    if (text.size() >= 2 && (text.front() == '\'' || text.front() == '"') && text.back() == text.front())
        text = text.substr(1, text.size() - 2);
    return text;
}

std::optional<int> weightOf(const std::string& text) {
    if (text.empty() || text.size() > 4 || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    return std::stoi(text);
}

RetryPolicy retryPolicyOf(const UploadOptions& options) { return RetryPolicy(options.maxRetries, options.retryDelay); }

}  // namespace

std::vector<GoogleFonts::DeclaredFace> GoogleFonts::parse(std::string_view css, std::string_view fileHost) {
    static const std::regex rulePattern("@font-face\\s*\\{([^}]*)\\}");
    static const std::regex urlPattern("url\\(([^)\\s]+)\\)");
    std::vector<DeclaredFace> faces;
    const std::string text(css);
    for (std::sregex_iterator rule(text.begin(), text.end(), rulePattern), end; rule != end; ++rule) {
        const std::string body = rule->str(1);
        const auto family = property(body, "font-family");
        const auto weight = weightOf(property(body, "font-weight").value_or(""));
        std::smatch address;
        if (!family || unquoted(*family).empty() || !weight || !std::regex_search(body, address, urlPattern))
            throw VorlenError::config(unreadableRule);
        const auto url = address.str(1);
        if (!asciiLowercased(url).starts_with("https://") || asciiLowercased(hostOfURL(url).value_or("")) != asciiLowercased(fileHost))
            throw VorlenError::config(unreadableRule);
        faces.push_back(DeclaredFace{unquoted(*family), *weight, asciiLowercased(property(body, "font-style").value_or("")) == "italic",
                                     url, property(body, "unicode-range")});
    }
    return faces;
}

std::vector<GoogleFonts::SelectedFace> GoogleFonts::select(std::string_view family, const std::vector<DeclaredFace>& declared) {
    std::vector<SelectedFace> selected;
    for (const auto& face : declared) {
        if (face.family != family) continue;
        const auto same = std::find_if(selected.begin(), selected.end(), [&](const SelectedFace& chosen) {
            return chosen.url == face.url && chosen.isItalic == face.isItalic && chosen.unicodeRange == face.unicodeRange;
        });
        if (same == selected.end()) {
            selected.push_back(SelectedFace{FontWeight{face.weight, face.weight}, face.isItalic, face.url, face.unicodeRange});
        } else {
            same->weight.lower = std::min(same->weight.lower, face.weight);
            same->weight.upper = std::max(same->weight.upper, face.weight);
        }
    }
    return selected;
}

std::optional<std::string> GoogleFonts::stylesheetOf(const std::string& family) const {
    const auto retryPolicy = retryPolicyOf(options);
    const auto ask = [&](std::string_view styles) -> std::optional<std::string> {
        auto response = retryPolicy.run([&](std::int64_t) {
            HttpRequest request;
            request.url = fmt::format("{}/css2?family={}&display=swap", baseURL, percentEncoded(family + std::string(styles)));
            request.headers.emplace_back("User-Agent", userAgent);
            auto answer = session->send(request);
            if (answer.status != 400 && (answer.status < 200 || answer.status > 299)) throw VorlenError::status(answer.status, "");
            return answer;
        });
        if (response.status == 400) return std::nullopt;
        return std::move(response.body);
    };
    std::optional<std::string> css;
    for (const auto* styles : styleAxes)
        if (auto part = ask(styles)) css = css.value_or("") + *part;
    // A family without the regular style still answers a request that names no style.
    return css ? css : ask("");
}

std::string GoogleFonts::fontFile(const std::string& url) const {
    const auto host = hostOfURL(url).value_or(fileHost);
    return retryPolicyOf(options).run([&](std::int64_t) {
        std::string data;
        HttpRequest request;
        request.url = url;
        request.headers.emplace_back("User-Agent", userAgent);
        request.onResponseData = [&](std::string_view bytes) {
            if (data.size() + bytes.size() > maxFileBytes)
                throw VorlenError::config(fmt::format("Google Fonts sent a font file larger than {}.", fileSizeText(maxFileBytes)));
            data.append(bytes);
        };
        const auto response = session->send(request);
        if (response.status < 200 || response.status > 299) throw VorlenError::download(host, response.status);
        if (fontFormatOf(data) != FontFormat::woff2) throw VorlenError::config("Google Fonts did not send a WOFF2 font file.");
        return data;
    });
}

FontPackage GoogleFonts::copy(const std::string& family) const {
    const auto name = trimmed(family);
    if (name.empty()) throw VorlenError::config("Enter the name of a family from Google Fonts.");
    FontPackage::checkFamily(name);
    const auto css = stylesheetOf(name);
    if (!css)
        throw VorlenError::config(fmt::format(
            "Google Fonts has no family with the name \u201c{}\u201d. Check its spelling and its capitals on fonts.google.com.",
            name));
    const auto selected = select(name, parse(*css, fileHost));
    if (selected.empty()) throw VorlenError::config(fmt::format("Google Fonts has no font files for \u201c{}\u201d.", name));

    // Each address is downloaded once, however many faces name it.
    std::vector<std::string> urls;
    for (const auto& face : selected)
        if (std::find(urls.begin(), urls.end(), face.url) == urls.end()) urls.push_back(face.url);
    std::vector<std::string> files(urls.size());
    forEachInWindow(urls.size(), static_cast<std::size_t>(std::max<std::int64_t>(1, options.concurrency)),
                    [&](std::size_t index) { files[index] = fontFile(urls[index]); });

    std::vector<FontFace> faces;
    for (const auto& face : selected) {
        const auto& data = files[std::find(urls.begin(), urls.end(), face.url) - urls.begin()];
        const auto weight = face.weight.lower == face.weight.upper ? std::to_string(face.weight.lower)
                                                                   : fmt::format("{}-{}", face.weight.lower, face.weight.upper);
        const auto fileName =
            fmt::format("{}-{}{}-{}.woff2", Naming::folderName(name), weight, face.isItalic ? "-italic" : "", faces.size() + 1);
        faces.push_back(FontFace{FontFile{fileName, data, FontFormat::woff2}, face.weight, face.isItalic, face.unicodeRange, std::nullopt});
    }
    return FontPackage::make(name, FontPackage::folderFor(name, faces), faces);
}

}  // namespace vorlen
