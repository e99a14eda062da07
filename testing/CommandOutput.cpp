#include "testing/CommandOutput.hpp"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace vorlen::testing {

std::string commandOutput(const std::string& command, const std::string& failure) {
    std::FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) throw std::runtime_error(failure);
    std::string output;
    std::array<char, 4096> buffer{};
    while (std::size_t got = std::fread(buffer.data(), 1, buffer.size(), pipe)) output.append(buffer.data(), got);
    if (::pclose(pipe) != 0) throw std::runtime_error(failure);
    return output;
}

}  // namespace vorlen::testing
