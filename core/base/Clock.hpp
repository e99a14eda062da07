#pragma once

#include <chrono>
#include <ctime>

namespace vorlen {

// A monotonic clock that keeps counting while the machine sleeps, so that a
// lease's age stays true across a lid closed for an hour.
struct BootClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<BootClock>;
    static constexpr bool is_steady = true;

    static time_point now() noexcept {
        timespec spec{};
        clock_gettime(CLOCK_BOOTTIME, &spec);
        return time_point(std::chrono::seconds(spec.tv_sec) + std::chrono::nanoseconds(spec.tv_nsec));
    }
};

using WallTime = std::chrono::sys_seconds;

// The wall clock cut to whole seconds, as records store it.
inline WallTime wallNow() {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

inline double secondsBetween(BootClock::time_point from, BootClock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

}  // namespace vorlen
