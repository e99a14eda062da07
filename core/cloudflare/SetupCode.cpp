#include "core/cloudflare/SetupCode.hpp"

#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/Json.hpp"
#include "core/base/Text.hpp"
#include "core/cloudflare/CloudflareResources.hpp"

namespace vorlen {

namespace {

constexpr std::string_view prefix = "vorlen";
constexpr int formatVersion = 1;

std::string errorText(SetupCode::ParseError::Kind kind, const std::string& detail) {
    using Kind = SetupCode::ParseError::Kind;
    switch (kind) {
        case Kind::notASetupCode: return "This is not a Vorlen setup code. A setup code starts with \u201cvorlen1:\u201d.";
        case Kind::newerVersion:
            return fmt::format("This setup code (\u201c{}\u201d) is from a newer version of Vorlen. Update the app.", detail);
        case Kind::notReadable: return "The setup code is damaged. Copy the whole code again.";
        case Kind::missingValue: return fmt::format("The setup code has no {}. Ask for a new code.", detail);
        case Kind::invalidAccount: return "The setup code has an account ID that is not valid. Ask for a new code.";
        case Kind::invalidBucket: return "The setup code has a bucket name that is not valid. Ask for a new code.";
    }
    return {};
}

bool isDecimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

SetupCode::ParseError::ParseError(Kind kind, std::string detail) : kind_(kind), text_(errorText(kind, detail)) {}

std::string SetupCode::text() const {
    const Json payload = {{"account", accountID}, {"bucket", bucket}, {"token", token.value}};
    return fmt::format("{}{}:{}", prefix, formatVersion, base64Url(encodeJson(payload)));
}

SetupCode SetupCode::parse(std::string_view pasted) {
    using Kind = ParseError::Kind;
    const std::string text = trimmed(pasted);
    const auto colon = text.find(':');
    if (!std::string_view(text).starts_with(prefix) || colon == std::string::npos)
        throw ParseError(Kind::notASetupCode);
    const std::string version = text.substr(prefix.size(), colon - prefix.size());
    if (!isDecimal(version)) throw ParseError(Kind::notASetupCode);
    if (version != std::to_string(formatVersion)) throw ParseError(Kind::newerVersion, text.substr(0, colon));

    Json payload;
    try {
        const auto decoded = base64UrlDecode(std::string_view(text).substr(colon + 1));
        if (!decoded) throw ParseError(Kind::notReadable);
        payload = decodeJson(*decoded);
    } catch (const nlohmann::json::exception&) {
        throw ParseError(Kind::notReadable);
    }
    if (!payload.is_object()) throw ParseError(Kind::notReadable);
    SetupCode code;
    for (const char* key : {"account", "bucket", "token"}) {
        auto found = payload.find(key);
        if (found == payload.end() || !found->is_string() || found->get<std::string>().empty())
            throw ParseError(Kind::missingValue, key);
    }
    code.accountID = payload["account"].get<std::string>();
    code.bucket = payload["bucket"].get<std::string>();
    code.token = APIToken{payload["token"].get<std::string>()};
    if (code.accountID.find_first_not_of("0123456789abcdef") != std::string::npos) throw ParseError(Kind::invalidAccount);
    if (!isValidBucketName(code.bucket)) throw ParseError(Kind::invalidBucket);
    return code;
}

}  // namespace vorlen
