#pragma once

#include <string>

namespace vorlen::app {

// The setup screens' own words for what they find before asking Cloudflare, or
// in its answers; the setup service's failures carry their own.
namespace SetupWords {
std::string notActive(const std::string& status);
inline constexpr const char* notAToken =
    "This is not the token. On the Cloudflare page, copy the value of Your API Token. It starts with \u201ccfat_\u201d.";
inline constexpr const char* noAccount =
    "Cloudflare accepted the token, but the token cannot access an account. Make a Cloudflare Account API Token with "
    "the permissions above.";
inline constexpr const char* bucketExists =
    "A bucket with this name exists. To use it, choose \u201cUse an existing bucket\u201d.";
inline constexpr const char* sameHost = "Use a hostname that is different from the media hostname.";
}  // namespace SetupWords

// The name of this computer for its R2 API Token, until the person gives another: the host name.
std::string defaultComputerName();

}  // namespace vorlen::app
