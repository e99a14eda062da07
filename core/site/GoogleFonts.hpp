#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/net/HttpClient.hpp"
#include "core/site/FontPackage.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen {

// Copies a Google Fonts family into a font package, so that the pages load it from
// the site's own bucket and never from Google. It asks the stylesheet service for the
// regular, bold, italic and bold italic styles, reads the rules it sends, and downloads
// the WOFF2 files that they name, only from the service's file host.
struct GoogleFonts {
    static constexpr const char* defaultFileHost = "fonts.gstatic.com";
    // The service chooses its font format by the User-Agent: a desktop Safari's yields WOFF2.
    static constexpr const char* userAgent =
        "Mozilla/5.0 (Macintosh; Intel Mac OS X 10_15_7) AppleWebKit/605.1.15 (KHTML, like Gecko) Version/18.0 "
        "Safari/605.1.15";
    // Far above any face of one script; a file larger than this is no font of the service.
    static constexpr std::size_t maxFileBytes = 16 * 1024 * 1024;

    // One rule of the stylesheet that the service sends.
    struct DeclaredFace {
        std::string family;
        int weight = 400;
        bool isItalic = false;
        std::string url;
        std::optional<std::string> unicodeRange;
        bool operator==(const DeclaredFace&) const = default;
    };
    // A face chosen for the package: the rules that share one file become one face
    // over their weights (a variable font serves every weight from one file).
    struct SelectedFace {
        FontWeight weight;
        bool isItalic = false;
        std::string url;
        std::optional<std::string> unicodeRange;
        bool operator==(const SelectedFace&) const = default;
    };

    std::shared_ptr<HttpClient> session;
    std::string baseURL;
    std::string fileHost = defaultFileHost;
    UploadOptions options;

    // The rules of `css`. Fails when a rule lacks its family, its weight or an https
    // address on `fileHost`.
    static std::vector<DeclaredFace> parse(std::string_view css, std::string_view fileHost);
    // The faces of `family` among the rules, in their order; rules of other families are left out.
    static std::vector<SelectedFace> select(std::string_view family, const std::vector<DeclaredFace>& declared);

    // The family's package, its files downloaded and checked. Fails with the words for
    // a person: no name, no such family, no files, a file that is not WOFF2.
    FontPackage copy(const std::string& family) const;

private:
    // The stylesheet of the styles that the family has; absent when the service has no such family.
    std::optional<std::string> stylesheetOf(const std::string& family) const;
    std::string fontFile(const std::string& url) const;
};

}  // namespace vorlen
