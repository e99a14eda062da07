#include "core/cloudflare/DailyTokens.hpp"

#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

std::string groupID(const CloudflareAPI& api, const std::string& accountID, const std::string& name) {
    for (const auto& group : api.permissionGroups(accountID, name))
        if (group.name == name) return group.id;
    throw VorlenError::config(fmt::format("Cloudflare has no permission group \u201c{}\u201d", name));
}

}  // namespace

S3Credentials s3Credentials(const std::string& tokenID, const APIToken& value) {
    return S3Credentials{tokenID, sha256Hex(value.value)};
}

DailyTokenGroups DailyTokens::permissionGroups() const {
    DailyTokenGroups groups;
    for (const char* name : {"Workers R2 Storage Bucket Item Write", "Workers R2 Storage Bucket Item Read"})
        groups.bucket.push_back(groupID(api, accountID, name));
    if (mediaZoneID) groups.purge = groupID(api, accountID, "Cache Purge");
    return groups;
}

std::vector<TokenPolicy> DailyTokens::policies(const DailyTokenGroups& groups) const {
    std::vector<TokenPolicy> policies{
        {"allow", {{fmt::format("com.cloudflare.edge.r2.bucket.{}_default_{}", accountID, bucket), "*"}}, groups.bucket}};
    if (groups.purge && mediaZoneID)
        policies.push_back({"allow", {{"com.cloudflare.api.account.zone." + *mediaZoneID, "*"}}, {*groups.purge}});
    return policies;
}

IssuedToken DailyTokens::make(const VorlenTokenName& name) const {
    return api.createToken(accountID, name.text(), policies(permissionGroups()));
}

DailyToken DailyTokens::makeForComputer(const std::string& computerName) const {
    IssuedToken issued = make(VorlenTokenName::computer(computerName));
    return DailyToken{s3Credentials(issued.id, issued.value), issued.value};
}

IssuedToken DailyTokens::makeInvite(const std::string& name) const { return make(VorlenTokenName::invite(name)); }

std::vector<VorlenToken> DailyTokens::vorlenTokens() const {
    std::vector<VorlenToken> ours;
    for (const auto& token : api.tokens(accountID))
        if (auto name = VorlenTokenName::parse(token.name)) ours.push_back({token.id, *name, token.status, token.issuedOn});
    return ours;
}

void DailyTokens::revoke(const std::string& tokenID) const { api.revokeToken(accountID, tokenID); }

}  // namespace vorlen
