#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "core/net/RateLimiter.hpp"
#include "core/net/RequestTransport.hpp"

namespace vorlen {

struct ByteRange {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    bool operator==(const ByteRange&) const = default;
};

// The body of a request: bytes in memory, or a range of a file that is read in
// pieces of at most 256 KiB as the transfer pulls it, so a part is never held whole.
struct RequestBody {
    struct FileRange {
        std::filesystem::path path;
        ByteRange range;
    };
    std::variant<std::string, FileRange> content;
    std::shared_ptr<RateLimiter> limiter;                       // consulted before each piece
    std::function<void(std::uint64_t)> onSend;                  // bytes handed over, as they go
    std::function<void(const RequestTransport&)> onTransport;   // at the end of the request

    static RequestBody bytes(std::string data) { return RequestBody{std::move(data), nullptr, nullptr, nullptr}; }
    static RequestBody file(std::filesystem::path path, ByteRange range) {
        return RequestBody{FileRange{std::move(path), range}, nullptr, nullptr, nullptr};
    }
    std::uint64_t size() const {
        if (auto* data = std::get_if<std::string>(&content)) return data->size();
        return std::get<FileRange>(content).range.length;
    }
};

}  // namespace vorlen
