#pragma once

#include <string>

#include "core/base/Files.hpp"
#include "core/base/Json.hpp"

namespace vorlen::testing {

// A file of testing/contract/: cases that the core's tests and the page Worker's
// tests both check, so that the two sides keep one rule. Only test binaries know
// the folder.
inline Json contractCases(const std::string& file) {
    return decodeJson(readFile(std::filesystem::path(VORLEN_SOURCE_DIR) / "testing" / "contract" / file));
}

}  // namespace vorlen::testing
