#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace vorlen {

// The name that tells our tokens apart from the account's others, and their kind:
// "Vorlen – {computer}" for a computer, "Vorlen – invite {name}" for an invite.
struct VorlenTokenName {
    struct Computer {
        std::string name;
        bool operator==(const Computer&) const = default;
    };
    struct Invite {
        std::string name;
        bool operator==(const Invite&) const = default;
    };
    std::variant<Computer, Invite> kind;

    static VorlenTokenName computer(std::string_view name);
    static VorlenTokenName invite(std::string_view name);
    // Absent for a name that is not one of ours.
    static std::optional<VorlenTokenName> parse(std::string_view text);

    // Cut to its first 120 characters, as Cloudflare keeps it.
    std::string text() const;
    bool isInvite() const { return std::holds_alternative<Invite>(kind); }
    const std::string& name() const;
    bool operator==(const VorlenTokenName&) const = default;
};

// One of our tokens as the account lists it.
struct VorlenToken {
    std::string id;
    VorlenTokenName name;
    std::optional<std::string> status;
    std::optional<std::string> issuedOn;
};

}  // namespace vorlen
