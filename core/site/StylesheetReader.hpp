#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/net/HttpClient.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/site/SiteSettings.hpp"

namespace vorlen {

// Reads a stylesheet that a person links to the pages (a font service's, for
// example): the origins that it loads from, which join the pages' content
// policy, and the font families that it declares. It refuses what the pages
// must never load: scripts, web pages, and addresses that are not https.
struct StylesheetReader {
    std::shared_ptr<HttpClient> session;
    RetryPolicy retryPolicy;

    // The address in a pasted <link> element, or the pasted address itself.
    static std::string addressOf(std::string_view pasted);
    // What the stylesheet at `url` loads and declares.
    static SiteStylesheet parse(const std::string& url, std::string_view css);

    SiteStylesheet read(std::string_view pasted) const;
};

}  // namespace vorlen
