#pragma once

#include <exception>
#include <string>

namespace vorlen {

// What a failed write means: with a condition, a 412 is `conflict(key)`; a 400
// about a digest is `integrity(key, body)`, the bytes damaged on the way (and so
// worth sending again). Anything else stays as it was.
std::exception_ptr mappedWriteFailure(const std::exception_ptr& error, const std::string& key, bool hadCondition);

}  // namespace vorlen
