#include "core/base/Random.hpp"

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <sys/random.h>

namespace vorlen {

void secureRandomBytes(void* buffer, std::size_t count) {
    auto* bytes = static_cast<unsigned char*>(buffer);
    std::size_t filled = 0;
    while (filled < count) {
        ssize_t n = ::getrandom(bytes + filled, count - filled, 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw std::runtime_error("the system gave no random bytes");
        }
        filled += static_cast<std::size_t>(n);
    }
}

std::uint32_t secureRandomBelow(std::uint32_t bound) {
    if (bound <= 1) return 0;
    // Values at or above the largest multiple of bound would favour small results.
    const std::uint32_t limit = std::numeric_limits<std::uint32_t>::max() - std::numeric_limits<std::uint32_t>::max() % bound;
    for (;;) {
        std::uint32_t value;
        secureRandomBytes(&value, sizeof value);
        if (value < limit) return value % bound;
    }
}

std::string randomString(std::size_t length, std::string_view alphabet) {
    std::string out;
    out.reserve(length);
    for (std::size_t i = 0; i < length; ++i)
        out.push_back(alphabet[secureRandomBelow(static_cast<std::uint32_t>(alphabet.size()))]);
    return out;
}

std::string randomUUID() {
    unsigned char bytes[16];
    secureRandomBytes(bytes, sizeof bytes);
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
        text.push_back(digits[bytes[i] >> 4]);
        text.push_back(digits[bytes[i] & 0x0F]);
    }
    return text;
}

}  // namespace vorlen
