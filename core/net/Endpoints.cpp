#include "core/net/Endpoints.hpp"

#include <cstdlib>
#include <sstream>

#include "core/base/Text.hpp"

namespace vorlen {

Endpoints Endpoints::fromEnvironment() {
    Endpoints endpoints;
    auto take = [](const char* name, auto& field) {
        if (const char* value = std::getenv(name); value && *value) field = value;
    };
    take("VORLEN_R2_STORAGE", endpoints.r2Storage);
    take("VORLEN_CLOUDFLARE_API", endpoints.cloudflareAPI);
    take("VORLEN_CLOUDFLARE_DASHBOARD", endpoints.cloudflareDashboard);
    take("VORLEN_VIMEO_API", endpoints.vimeoAPI);
    take("VORLEN_GOOGLE_FONTS", endpoints.googleFonts);
    take("VORLEN_CA_FILE", endpoints.extraCertificateAuthority);
    std::string connectTo;
    take("VORLEN_CONNECT_TO", connectTo);
    std::istringstream entries(connectTo);
    for (std::string entry; std::getline(entries, entry, ',');)
        if (auto trimmedEntry = trimmedAsciiWhitespace(entry); !trimmedEntry.empty())
            endpoints.connectTo.push_back(std::move(trimmedEntry));
    return endpoints;
}

HttpClientOptions Endpoints::httpOptions() const {
    HttpClientOptions options;
    options.connectTo = connectTo;
    options.extraCertificateAuthority = extraCertificateAuthority;
    return options;
}

std::shared_ptr<HttpClient> Endpoints::session() const { return std::make_shared<HttpClient>(httpOptions()); }

}  // namespace vorlen
