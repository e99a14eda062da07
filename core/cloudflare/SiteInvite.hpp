#pragma once

#include <string>

#include "core/cloudflare/DailyTokens.hpp"
#include "core/cloudflare/IssuedToken.hpp"
#include "core/cloudflare/SetupCode.hpp"

namespace vorlen {

// A collaborator's own token and the setup code that carries it to them.
struct SiteInvite {
    IssuedToken token;
    SetupCode code;

    static SiteInvite make(const DailyTokens& tokens, const std::string& name) {
        IssuedToken token = tokens.makeInvite(name);
        SetupCode code{tokens.accountID, tokens.bucket, token.value};
        return SiteInvite{std::move(token), std::move(code)};
    }
};

}  // namespace vorlen
