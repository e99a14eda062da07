#pragma once

#include <atomic>
#include <cstdint>

namespace vorlen {

// A count of bytes updated from sending threads. Relaxed: only the total matters.
class ByteCounter {
public:
    void add(std::uint64_t bytes) { count_.fetch_add(bytes, std::memory_order_relaxed); }
    void subtract(std::uint64_t bytes) { count_.fetch_sub(bytes, std::memory_order_relaxed); }
    std::uint64_t value() const { return count_.load(std::memory_order_relaxed); }

private:
    std::atomic<std::uint64_t> count_{0};
};

}  // namespace vorlen
