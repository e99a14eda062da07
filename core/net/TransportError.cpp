#include "core/net/TransportError.hpp"

#include <curl/curl.h>
#include <fmt/format.h>

namespace vorlen {

TransportError::TransportError(int code, const std::string& detail)
    : std::runtime_error(fmt::format("the connection failed: {} (curl {})", detail, code)), code_(code) {}

std::string TransportError::domainAndCode() const { return fmt::format("curl {}", code_); }

bool TransportError::isTransient() const noexcept {
    switch (static_cast<CURLcode>(code_)) {
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_COULDNT_CONNECT:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
            return true;
        default:
            return false;
    }
}

TransportError TransportError::badServerResponse() {
    return TransportError(CURLE_WEIRD_SERVER_REPLY, curl_easy_strerror(CURLE_WEIRD_SERVER_REPLY));
}

}  // namespace vorlen
