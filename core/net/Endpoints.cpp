#include "core/net/Endpoints.hpp"

#include <cstdlib>

namespace vorlen {

Endpoints Endpoints::fromEnvironment() {
    Endpoints endpoints;
    auto take = [](const char* name, std::string& field) {
        if (const char* value = std::getenv(name); value && *value) field = value;
    };
    take("VORLEN_R2_STORAGE", endpoints.r2Storage);
    take("VORLEN_CLOUDFLARE_API", endpoints.cloudflareAPI);
    take("VORLEN_CLOUDFLARE_DASHBOARD", endpoints.cloudflareDashboard);
    take("VORLEN_VIMEO_API", endpoints.vimeoAPI);
    take("VORLEN_GOOGLE_FONTS", endpoints.googleFonts);
    return endpoints;
}

}  // namespace vorlen
