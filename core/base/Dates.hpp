#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

using SystemTime = std::chrono::sys_seconds;

// 2026-01-15T09:30:00Z
std::string formatIso8601(SystemTime time);
// Accepts the extended form in UTC with "Z" (fractions of a second are dropped).
std::optional<SystemTime> parseIso8601(std::string_view text);

// 20260115T093000Z, as SigV4 signs it.
std::string formatIso8601Basic(SystemTime time);

// Thu, 15 Jan 2026 09:30:00 GMT
std::string formatHttpDate(SystemTime time);
std::optional<SystemTime> parseHttpDate(std::string_view text);

// A Retry-After value, as a number of seconds or an HTTP date (then relative to now).
// A date in the past gives zero.
std::optional<std::chrono::duration<double>> parseRetryAfter(std::string_view text, SystemTime now);

}  // namespace vorlen
