#pragma once

#include <string>
#include <string_view>

#include "core/cloudflare/APIToken.hpp"

namespace vorlen {

// All that a collaborator's computer needs to join a site: the account, the
// bucket and a token. Text form "vorlen1:" and the base64url of the JSON
// {"account", "bucket", "token"}. It holds a secret: shown once, never stored.
struct SetupCode {
    // A refusal of a pasted code, in the words the person sees.
    class ParseError : public std::exception {
    public:
        enum class Kind { notASetupCode, newerVersion, notReadable, missingValue, invalidAccount, invalidBucket };

        ParseError(Kind kind, std::string detail = {});
        Kind kind() const noexcept { return kind_; }
        const char* what() const noexcept override { return text_.c_str(); }

    private:
        Kind kind_;
        std::string text_;
    };

    std::string accountID;
    std::string bucket;
    APIToken token;

    std::string text() const;
    // Throws ParseError.
    static SetupCode parse(std::string_view text);

    std::string description() const { return "SetupCode(account: " + accountID + ", bucket: " + bucket + ")"; }
};

}  // namespace vorlen
