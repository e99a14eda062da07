#pragma once

#include <stdexcept>
#include <string>

namespace vorlen {

// A failure below HTTP: no answer, a broken connection, a time-out. `code` is
// libcurl's CURLcode; the text names it without any request detail.
class TransportError : public std::runtime_error {
public:
    TransportError(int code, const std::string& detail);

    int code() const noexcept { return code_; }
    // The digest a journal shows: "curl <code>".
    std::string domainAndCode() const;
    // The codes that a retry may cure: time-outs, lost and refused connections,
    // failed look-ups and handshakes, replies cut short or not HTTP.
    bool isTransient() const noexcept;

    // A reply that is not HTTP.
    static TransportError badServerResponse();

private:
    int code_;
};

}  // namespace vorlen
