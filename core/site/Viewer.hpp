#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/base/Dates.hpp"

namespace vorlen {

// A viewer's name in the bucket: 16 random bytes as 32 lowercase hex digits.
struct ViewerID {
    std::string text;

    static ViewerID make();
    // Fails with "“text” is not a viewer ID." for any other form.
    static ViewerID parse(std::string_view text);
    bool operator==(const ViewerID&) const = default;
    auto operator<=>(const ViewerID&) const = default;
};

// A one-time invite: only the hash of the link's secret is stored.
struct ViewerInvite {
    std::string hash;  // lowercase hex SHA-256 of the secret's text
    SystemTime expires;
    bool operator==(const ViewerInvite&) const = default;
};

struct ViewerPasskey {
    std::string credentialID;
    std::string publicKey;
    std::vector<std::string> transports;
    SystemTime created;
    bool operator==(const ViewerPasskey&) const = default;
};

// A person who may watch a private site, as the file "_vorlen/viewers/ID.json"
// holds them. The page Worker writes the same file when it redeems the invite.
struct Viewer {
    static constexpr int version = 1;

    std::string name;
    SystemTime created;
    std::variant<ViewerInvite, ViewerPasskey> access;

    // Pretty-printed with sorted keys.
    std::string encoded() const;
    // Fails with a metadata failure in words: a newer version, a blank name, a bad
    // date or hash, or not exactly one of an invite and a passkey.
    static Viewer decoded(std::string_view json);
    // True when the bytes are a viewer file of a later version than this one reads.
    static bool isNewer(std::string_view json);
    bool operator==(const Viewer&) const = default;
};

}  // namespace vorlen
