#pragma once

#include <string>

namespace vorlen {

// A Cloudflare API token. Its printable form never shows the value, so that a
// token reaching a log line or a failure's words shows nothing of the secret.
struct APIToken {
    std::string value;

    std::string description() const { return "APIToken(redacted)"; }
    bool operator==(const APIToken&) const = default;
};

}  // namespace vorlen
