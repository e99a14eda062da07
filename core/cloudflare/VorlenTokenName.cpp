#include "core/cloudflare/VorlenTokenName.hpp"

#include "core/base/Text.hpp"

namespace vorlen {

namespace {

constexpr std::string_view prefix = "Vorlen \u2013 ";
constexpr std::string_view invitePrefix = "invite ";
constexpr std::size_t nameLimit = 120;

// The first `count` characters of UTF-8 text, never cutting one in two.
std::string firstCharacters(const std::string& text, std::size_t count) {
    const std::u32string scalars = toUtf32(text);
    return scalars.size() <= count ? text : toUtf8(std::u32string_view(scalars).substr(0, count));
}

}  // namespace

VorlenTokenName VorlenTokenName::computer(std::string_view name) { return {Computer{trimmed(name)}}; }
VorlenTokenName VorlenTokenName::invite(std::string_view name) { return {Invite{std::string(name)}}; }

std::optional<VorlenTokenName> VorlenTokenName::parse(std::string_view text) {
    if (!text.starts_with(prefix)) return std::nullopt;
    const std::string_view rest = text.substr(prefix.size());
    if (rest.starts_with(invitePrefix)) return VorlenTokenName{Invite{std::string(rest.substr(invitePrefix.size()))}};
    return VorlenTokenName{Computer{std::string(rest)}};
}

std::string VorlenTokenName::text() const {
    const std::string full = std::string(prefix) + (isInvite() ? std::string(invitePrefix) : "") + name();
    return firstCharacters(full, nameLimit);
}

const std::string& VorlenTokenName::name() const {
    return std::visit([](const auto& named) -> const std::string& { return named.name; }, kind);
}

}  // namespace vorlen
