#include <gtest/gtest.h>

#include "core/net/Endpoints.hpp"
#include "core/net/TransportError.hpp"
#include "testing/LocalCloudflareAccount.hpp"

namespace vorlen {
namespace {

using testing::LocalCloudflareAccount;

// A site's own hostname, sent to the local account's edge: a real TLS server on
// loopback whose certificates come from an authority that no system trusts.
Endpoints throughTheEdge(const LocalCloudflareAccount& account) {
    Endpoints endpoints = account.endpoints();
    endpoints.connectTo = {"videos.dovrin.test:443:" + account.edge()};
    endpoints.extraCertificateAuthority = account.edgeAuthority();
    return endpoints;
}

HttpRequest pageRequest() {
    HttpRequest request;
    request.url = "https://videos.dovrin.test/";
    return request;
}

TEST(EndpointsAccountTest, ASiteHostnameReachesTheEdgeAndVerifiesWithTheExtraAuthority) {
    const auto& account = LocalCloudflareAccount::shared();
    const auto response = throughTheEdge(account).session()->send(pageRequest());
    // No Worker serves the name yet, so the edge answers for itself.
    EXPECT_EQ(response.status, 403);
    EXPECT_TRUE(response.body.starts_with("error code: 1001")) << response.body;
    EXPECT_EQ(response.transport.remote, account.edge());
}

TEST(EndpointsAccountTest, WithoutTheExtraAuthorityTheEdgeFailsVerification) {
    auto endpoints = throughTheEdge(LocalCloudflareAccount::shared());
    endpoints.extraCertificateAuthority.clear();
    try {
        endpoints.session()->send(pageRequest());
        FAIL() << "the edge's certificate was trusted";
    } catch (const TransportError& error) {
        EXPECT_EQ(error.code(), 60) << error.what();  // CURLE_PEER_FAILED_VERIFICATION
    }
}

}  // namespace
}  // namespace vorlen
