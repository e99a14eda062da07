#include "core/base/Crypto.hpp"

#include <fstream>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <stdexcept>
#include <vector>

namespace vorlen {

namespace {

template <std::size_t N>
std::array<unsigned char, N> digestOf(const EVP_MD* type, std::string_view bytes) {
    std::array<unsigned char, N> out{};
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), out.data(), &length, type, nullptr) != 1 || length != N)
        throw std::runtime_error("digest failed");
    return out;
}

template <std::size_t N>
std::array<unsigned char, N> digestOfFileRange(const EVP_MD* type, const std::filesystem::path& path,
                                               std::uint64_t offset, std::uint64_t length) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot open " + path.string());
    in.seekg(static_cast<std::streamoff>(offset));
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, type, nullptr);
    std::vector<char> buffer(256 * 1024);
    std::uint64_t left = length;
    while (left > 0) {
        auto want = static_cast<std::streamsize>(std::min<std::uint64_t>(left, buffer.size()));
        in.read(buffer.data(), want);
        std::streamsize got = in.gcount();
        if (got <= 0) {
            EVP_MD_CTX_free(context);
            throw std::runtime_error(path.string() + " is shorter than expected");
        }
        EVP_DigestUpdate(context, buffer.data(), static_cast<std::size_t>(got));
        left -= static_cast<std::uint64_t>(got);
    }
    std::array<unsigned char, N> out{};
    EVP_DigestFinal_ex(context, out.data(), nullptr);
    EVP_MD_CTX_free(context);
    return out;
}

}  // namespace

Digest256 sha256(std::string_view bytes) { return digestOf<32>(EVP_sha256(), bytes); }
std::string sha256Hex(std::string_view bytes) { return hex(sha256(bytes)); }
Digest128 md5(std::string_view bytes) { return digestOf<16>(EVP_md5(), bytes); }

Digest128 md5OfFileRange(const std::filesystem::path& path, std::uint64_t offset, std::uint64_t length) {
    return digestOfFileRange<16>(EVP_md5(), path, offset, length);
}
Digest256 sha256OfFileRange(const std::filesystem::path& path, std::uint64_t offset, std::uint64_t length) {
    return digestOfFileRange<32>(EVP_sha256(), path, offset, length);
}

Digest256 hmacSha256(std::string_view key, std::string_view message) {
    Digest256 out{};
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(message.data()),
         message.size(), out.data(), &length);
    return out;
}

namespace {

void* newDigestContext(const EVP_MD* type) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    if (!context || EVP_DigestInit_ex(context, type, nullptr) != 1) {
        EVP_MD_CTX_free(context);
        throw std::runtime_error("digest failed");
    }
    return context;
}

void updateDigest(void* context, std::string_view bytes) {
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(context), bytes.data(), bytes.size());
}

template <std::size_t N>
std::array<unsigned char, N> finishDigest(void* context) {
    std::array<unsigned char, N> out{};
    EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(context), out.data(), nullptr);
    return out;
}

}  // namespace

Md5Stream::Md5Stream() : context_(newDigestContext(EVP_md5())) {}
Md5Stream::~Md5Stream() { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(context_)); }
void Md5Stream::update(std::string_view bytes) { updateDigest(context_, bytes); }
Digest128 Md5Stream::finish() { return finishDigest<16>(context_); }

Sha256Stream::Sha256Stream() : context_(newDigestContext(EVP_sha256())) {}
Sha256Stream::~Sha256Stream() { EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(context_)); }
void Sha256Stream::update(std::string_view bytes) { updateDigest(context_, bytes); }
Digest256 Sha256Stream::finish() { return finishDigest<32>(context_); }

std::string hex(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        out.push_back(digits[byte >> 4]);
        out.push_back(digits[byte & 15]);
    }
    return out;
}

namespace {
constexpr char standardAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char urlAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string encode(std::string_view bytes, const char* alphabet, bool pad) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        std::uint32_t n = (std::uint32_t(std::uint8_t(bytes[i])) << 16) | (std::uint32_t(std::uint8_t(bytes[i + 1])) << 8) |
                          std::uint8_t(bytes[i + 2]);
        out += {alphabet[n >> 18], alphabet[(n >> 12) & 63], alphabet[(n >> 6) & 63], alphabet[n & 63]};
    }
    std::size_t rest = bytes.size() - i;
    if (rest == 1) {
        std::uint32_t n = std::uint32_t(std::uint8_t(bytes[i])) << 16;
        out += {alphabet[n >> 18], alphabet[(n >> 12) & 63]};
        if (pad) out += "==";
    } else if (rest == 2) {
        std::uint32_t n = (std::uint32_t(std::uint8_t(bytes[i])) << 16) | (std::uint32_t(std::uint8_t(bytes[i + 1])) << 8);
        out += {alphabet[n >> 18], alphabet[(n >> 12) & 63], alphabet[(n >> 6) & 63]};
        if (pad) out += "=";
    }
    return out;
}

std::optional<std::string> decode(std::string_view text, const char* alphabet, bool padded) {
    if (padded) {
        if (text.size() % 4 != 0) return std::nullopt;
        while (!text.empty() && text.back() == '=') text.remove_suffix(1);
    }
    if (text.size() % 4 == 1) return std::nullopt;
    int values[256];
    std::fill(std::begin(values), std::end(values), -1);
    for (int i = 0; i < 64; ++i) values[static_cast<unsigned char>(alphabet[i])] = i;
    std::string out;
    std::uint32_t buffer = 0;
    int bits = 0;
    for (char c : text) {
        int value = values[static_cast<unsigned char>(c)];
        if (value < 0) return std::nullopt;
        buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>((buffer >> bits) & 0xFF));
        }
    }
    return out;
}
}  // namespace

std::string base64(std::string_view bytes) { return encode(bytes, standardAlphabet, true); }
std::optional<std::string> base64Decode(std::string_view text) { return decode(text, standardAlphabet, true); }
std::string base64Url(std::string_view bytes) { return encode(bytes, urlAlphabet, false); }
std::optional<std::string> base64UrlDecode(std::string_view text) { return decode(text, urlAlphabet, false); }

}  // namespace vorlen
