#include "app/SetupWords.hpp"

#include <array>

#include <fmt/format.h>
#include <unistd.h>

namespace vorlen::app {

std::string SetupWords::notActive(const std::string& status) {
    return fmt::format("The Cloudflare Account API Token is {}, not active.", status);
}

std::string defaultComputerName() {
    std::array<char, 256> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0 || !name[0]) return "this computer";
    return name.data();
}

}  // namespace vorlen::app
