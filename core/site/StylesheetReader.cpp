#include "core/site/StylesheetReader.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <regex>

#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/Hostname.hpp"

namespace vorlen {

namespace {

const auto icase = std::regex::ECMAScript | std::regex::icase;

void addOnce(std::vector<std::string>& list, std::string item) {
    if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(std::move(item));
}

// The origin of what the stylesheet loads from `reference`; only https may reach the pages.
std::string originOfLoad(const std::string& stylesheet, std::string reference) {
    // Quotes go one by one: url('a)b') is cut at its first parenthesis.
    reference = trimmed(reference);
    if (!reference.empty() && (reference.front() == '"' || reference.front() == '\'')) reference.erase(0, 1);
    if (!reference.empty() && (reference.back() == '"' || reference.back() == '\'')) reference.pop_back();
    const auto resolved = resolvedURL(stylesheet, reference);
    if (!resolved || !asciiLowercased(*resolved).starts_with("https://"))
        throw VorlenError::config(fmt::format(
            "The stylesheet loads \u201c{}\u201d, which is not an https address. The pages load only https addresses.",
            reference));
    return WebOrigin::fromInput(*resolved).value().text;
}

}  // namespace

std::string StylesheetReader::addressOf(std::string_view pasted) {
    const std::string text = trimmed(pasted);
    static const std::regex script("<script\\b", icase);
    if (std::regex_search(text, script))
        throw VorlenError::config(
            "Vorlen does not load scripts on the pages. Paste the <link> element of a stylesheet, or its address.");
    std::string address = text;
    static const std::regex link("<link\\b[^>]*>", icase);
    static const std::regex href("\\bhref\\s*=\\s*(?:\"([^\"]*)\"|'([^']*)'|([^\\s>]+))", icase);
    std::smatch element;
    if (std::regex_search(text, element, link)) {
        const std::string tag = element.str(0);
        std::smatch attribute;
        address = std::regex_search(tag, attribute, href)
                      ? (attribute[1].matched ? attribute.str(1) : attribute[2].matched ? attribute.str(2) : attribute.str(3))
                      : std::string();
        address = trimmed(address);
    }
    if (!asciiLowercased(address).starts_with("https://") || !WebOrigin::fromInput(address))
        throw VorlenError::config(fmt::format(
            "\u201c{}\u201d is not the address of a stylesheet. Use an address that starts with https://.", address));
    return address;
}

SiteStylesheet StylesheetReader::parse(const std::string& url, std::string_view source) {
    SiteStylesheet stylesheet{url, {WebOrigin::fromInput(url).value().text}, {}};
    static const std::regex comments("\\/\\*[\\s\\S]*?\\*\\/");
    std::string css = std::regex_replace(std::string(source), comments, "");

    static const std::regex import("@import\\s+(?:url\\(\\s*)?[\"']?([^\"')\\s;]+)", icase);
    for (std::sregex_iterator found(css.begin(), css.end(), import), end; found != end; ++found)
        addOnce(stylesheet.origins, originOfLoad(url, found->str(1)));
    static const std::regex imports("@import[^;]*;", icase);
    css = std::regex_replace(css, imports, "");

    static const std::regex address("url\\(([^)]*)\\)", icase);
    for (std::sregex_iterator found(css.begin(), css.end(), address), end; found != end; ++found)
        addOnce(stylesheet.origins, originOfLoad(url, found->str(1)));

    static const std::regex family("@font-face\\s*\\{[^}]*?font-family\\s*:\\s*([^;}]+)", icase);
    for (std::sregex_iterator found(css.begin(), css.end(), family), end; found != end; ++found) {
        std::string name = trimmed(found->str(1));
        std::erase_if(name, [](char c) { return c == '"' || c == '\''; });
        addOnce(stylesheet.families, trimmed(name));
    }
    return stylesheet;
}

SiteStylesheet StylesheetReader::read(std::string_view pasted) const {
    const auto url = addressOf(pasted);
    const auto response = retryPolicy.run([&](std::int64_t) {
        HttpRequest request;
        request.url = url;
        auto answer = session->send(request);
        if (answer.status < 200 || answer.status > 299) throw VorlenError::status(answer.status, "");
        return answer;
    });
    const auto type = asciiLowercased(response.header("content-type").value_or(""));
    if (type.starts_with("text/html"))
        throw VorlenError::config(fmt::format("\u201c{}\u201d is a web page, not a stylesheet.", url));
    return parse(url, response.body);
}

}  // namespace vorlen
