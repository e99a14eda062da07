#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/net/HttpClient.hpp"

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
    // Where connections to named hosts go instead, in curl's --connect-to form
    // ("videos.example.com:443:127.0.0.1:8443"), and an authority trusted beside the
    // system's: a site's own hostnames served by a local edge. Addresses built from a
    // site's hostnames stay https://<host>/… whatever these say.
    std::vector<std::string> connectTo;
    std::filesystem::path extraCertificateAuthority;

    // The defaults, each replaced by its variable when set (VORLEN_R2_STORAGE,
    // VORLEN_CLOUDFLARE_API, VORLEN_CLOUDFLARE_DASHBOARD, VORLEN_VIMEO_API,
    // VORLEN_GOOGLE_FONTS; VORLEN_CONNECT_TO, comma-separated, and VORLEN_CA_FILE):
    // tests and local stand-ins only.
    static Endpoints fromEnvironment();

    // The options of a session that reaches these endpoints.
    HttpClientOptions httpOptions() const;
    // A new session with those options; fails when the extra authority cannot be read.
    std::shared_ptr<HttpClient> session() const;
};

}  // namespace vorlen
