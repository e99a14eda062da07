#pragma once

#include <ostream>
#include <string>

namespace vorlen {

struct S3Credentials {
    std::string accessKeyID;
    std::string secretAccessKey;

    // The form for logs: the secret never appears.
    std::string redacted() const { return "S3Credentials(accessKeyID: " + accessKeyID + ", \u2026)"; }
    bool operator==(const S3Credentials&) const = default;
};

inline std::ostream& operator<<(std::ostream& stream, const S3Credentials& credentials) {
    return stream << credentials.redacted();
}

}  // namespace vorlen
