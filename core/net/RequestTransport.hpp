#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vorlen {

// What carried one request, as the journal reports it.
struct RequestTransport {
    std::optional<std::string> protocolName;  // "http/1.1", "h2"
    bool isReusedConnection = false;
    bool isProxyConnection = false;
    std::optional<std::string> remote;        // "127.0.0.1:9000"
    std::int64_t bodyBytesSent = 0;
};

}  // namespace vorlen
