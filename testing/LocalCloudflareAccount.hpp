#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/base/Json.hpp"
#include "core/cloudflare/APIToken.hpp"
#include "core/net/Endpoints.hpp"
#include "core/net/HttpClient.hpp"

namespace vorlen::testing {

// The local Cloudflare account (testing/cloudflare/start) with its R2 on a RADOS
// Gateway, started once per test binary and stopped when the process ends.
class LocalCloudflareAccount {
public:
    struct Request {
        std::string method;
        std::string path;  // after "/client/v4/", as sent (encoded)
        Json query;
        int status = 0;    // 0 for a connection that was reset
    };

    static LocalCloudflareAccount& shared();
    ~LocalCloudflareAccount();
    LocalCloudflareAccount(const LocalCloudflareAccount&) = delete;
    LocalCloudflareAccount& operator=(const LocalCloudflareAccount&) = delete;

    const std::string& api() const { return api_; }            // http://127.0.0.1:PORT/client/v4
    const std::string& r2() const { return r2_; }              // the S3 endpoint of its R2
    const std::string& accountID() const { return accountID_; }
    const std::map<std::string, std::string>& zones() const { return zones_; }  // name → id
    const APIToken& setupToken() const { return setupToken_; }
    const std::string& edge() const { return edge_; }  // 127.0.0.1:PORT, HTTPS routed by Host
    // The PEM file of the authority that signs the edge's certificates.
    const std::filesystem::path& edgeAuthority() const { return edgeAuthority_; }
    // The API and R2 addresses of this account, the rest as they are.
    Endpoints endpoints() const {
        Endpoints local;
        local.cloudflareAPI = api_;
        local.r2Storage = r2_;
        return local;
    }

    // The control surface: faults, quirks and switches, each a JSON body as the
    // stand-in's README gives it; `reset()` turns all of them off.
    void setFaults(const Json& faults) const;
    void setQuirks(const Json& quirks) const;
    void setR2Enabled(bool enabled) const;
    // How long a custom domain takes to turn active, for domains already added too (2 s after a reset).
    void setDomainActivation(double seconds) const;
    void reset() const;
    std::vector<Request> requests() const;
    // A user token (not owned by the account) that may only read the account's settings.
    APIToken makeUserToken() const;
    void clearRequests() const;
    // The whole account as the stand-in keeps it, without token values and secret texts.
    Json state() const;

private:
    LocalCloudflareAccount();
    Json control(const std::string& method, const std::string& path, const Json& body) const;
    std::string controlGet(const std::string& path) const;

    std::filesystem::path dir_;
    std::string api_;
    std::string r2_;
    std::string control_;
    std::string edge_;
    std::filesystem::path edgeAuthority_;
    std::string accountID_;
    std::map<std::string, std::string> zones_;
    APIToken setupToken_;
    std::shared_ptr<HttpClient> session_;
};

}  // namespace vorlen::testing
