#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorlen {

// Cryptographically secure bytes from the operating system.
void secureRandomBytes(void* buffer, std::size_t count);

// A uniform number in 0..<bound by rejection sampling (no modulo bias).
std::uint32_t secureRandomBelow(std::uint32_t bound);

// `length` characters drawn uniformly from an ASCII alphabet.
std::string randomString(std::size_t length, std::string_view alphabet);

// A random (version 4) UUID in upper-case text form.
std::string randomUUID();

}  // namespace vorlen
