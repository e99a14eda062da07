#pragma once

#include <exception>
#include <functional>
#include <string>

namespace vorlen::testing {

// The words a piece of work fails with, or "no failure".
inline std::string failureOf(const std::function<void()>& work) {
    try {
        work();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no failure";
}

}  // namespace vorlen::testing
