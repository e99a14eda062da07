#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/base/Json.hpp"
#include "core/net/HttpClient.hpp"

namespace vorlen::testing {

// The local Google Fonts (testing/googlefonts/start) of the fixture, started once per
// test binary and stopped when the process ends.
class LocalGoogleFonts {
public:
    static LocalGoogleFonts& shared();
    ~LocalGoogleFonts();
    LocalGoogleFonts(const LocalGoogleFonts&) = delete;
    LocalGoogleFonts& operator=(const LocalGoogleFonts&) = delete;

    // The CSS2 API's base URL, in place of https://fonts.googleapis.com.
    const std::string& api() const { return api_; }
    const std::string& fileHost() const { return fileHost_; }
    // Options of a session that reaches the file host by its name and trusts its certificate.
    HttpClientOptions httpOptions() const;
    // Every request since the start: host, path, query and user agent.
    Json requests() const;

private:
    LocalGoogleFonts();

    std::filesystem::path dir_;
    std::string api_;
    std::string fileHost_;
    std::string connectTo_;
    std::filesystem::path certificateAuthority_;
};

}  // namespace vorlen::testing
