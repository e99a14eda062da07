#pragma once

#include <string>

#include "core/cloudflare/APIToken.hpp"

namespace vorlen {

// A token just made: the only moment its value is known.
struct IssuedToken {
    std::string id;
    std::string name;
    APIToken value;

    std::string description() const { return "IssuedToken(id: " + id + ", name: " + name + ")"; }
};

}  // namespace vorlen
