#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

using Digest256 = std::array<unsigned char, 32>;
using Digest128 = std::array<unsigned char, 16>;

Digest256 sha256(std::string_view bytes);
std::string sha256Hex(std::string_view bytes);
Digest256 hmacSha256(std::string_view key, std::string_view message);
Digest128 md5(std::string_view bytes);

// MD5 of a byte range of a file, read in pieces (for content-md5 of large parts).
Digest128 md5OfFileRange(const std::filesystem::path& path, std::uint64_t offset, std::uint64_t length);
// SHA-256 of a byte range of a file, read in pieces.
Digest256 sha256OfFileRange(const std::filesystem::path& path, std::uint64_t offset, std::uint64_t length);

// Incremental digests for streamed data.
class Md5Stream {
public:
    Md5Stream();
    ~Md5Stream();
    Md5Stream(const Md5Stream&) = delete;
    Md5Stream& operator=(const Md5Stream&) = delete;
    void update(std::string_view bytes);
    Digest128 finish();

private:
    void* context_;
};

class Sha256Stream {
public:
    Sha256Stream();
    ~Sha256Stream();
    Sha256Stream(const Sha256Stream&) = delete;
    Sha256Stream& operator=(const Sha256Stream&) = delete;
    void update(std::string_view bytes);
    Digest256 finish();

private:
    void* context_;
};

std::string hex(std::string_view bytes);
template <std::size_t N>
std::string hex(const std::array<unsigned char, N>& digest) {
    return hex(std::string_view(reinterpret_cast<const char*>(digest.data()), N));
}

std::string base64(std::string_view bytes);
template <std::size_t N>
std::string base64(const std::array<unsigned char, N>& digest) {
    return base64(std::string_view(reinterpret_cast<const char*>(digest.data()), N));
}
std::optional<std::string> base64Decode(std::string_view text);

// RFC 4648 URL-safe alphabet without padding.
std::string base64Url(std::string_view bytes);
std::optional<std::string> base64UrlDecode(std::string_view text);

}  // namespace vorlen
