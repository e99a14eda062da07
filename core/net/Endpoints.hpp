#pragma once

#include <string>

namespace vorlen {

// Where the services live. One value handed to every client, so that tests and
// local sites point them at loopback servers.
struct Endpoints {
    // The S3 interface of R2; "{account}" is replaced by the account ID.
    std::string r2Storage = "https://{account}.r2.cloudflarestorage.com";
    std::string cloudflareAPI = "https://api.cloudflare.com/client/v4";
    std::string cloudflareDashboard = "https://dash.cloudflare.com";
    std::string vimeoAPI = "https://api.vimeo.com";
    std::string googleFonts = "https://fonts.googleapis.com";

    // The defaults, each replaced by its variable when set (VORLEN_R2_STORAGE,
    // VORLEN_CLOUDFLARE_API, VORLEN_CLOUDFLARE_DASHBOARD, VORLEN_VIMEO_API,
    // VORLEN_GOOGLE_FONTS): tests and local stand-ins only.
    static Endpoints fromEnvironment();
};

}  // namespace vorlen
