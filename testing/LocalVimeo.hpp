#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/base/Json.hpp"
#include "core/net/HttpClient.hpp"

namespace vorlen::testing {

// The local Vimeo (testing/vimeo/start) of the fixture, started once per test
// binary and stopped when the process ends.
class LocalVimeo {
public:
    // Tokens of the fixture by their scopes.
    static constexpr const char* publicPrivateToken = "6c5d4e3f2a1b40918273645546372819";

    static LocalVimeo& shared();
    ~LocalVimeo();
    LocalVimeo(const LocalVimeo&) = delete;
    LocalVimeo& operator=(const LocalVimeo&) = delete;

    const std::string& api() const { return api_; }
    const std::string& token() const { return token_; }  // every scope
    // A switch of the stand-in (see testing/vimeo/server.mjs), with its JSON body.
    void admin(const std::string& name, const Json& body = Json::object()) const;
    // Every request since the start: method, path, query and range.
    Json requests() const;

private:
    LocalVimeo();

    std::filesystem::path dir_;
    std::string api_;
    std::string token_;
    std::shared_ptr<HttpClient> session_;
};

}  // namespace vorlen::testing
