#include "core/net/Endpoints.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace vorlen {
namespace {

// Sets a variable for the life of the test and puts the earlier state back.
class ScopedVariable {
public:
    ScopedVariable(const char* name, const char* value) : name_(name) {
        if (const char* earlier = std::getenv(name)) earlier_ = earlier;
        ::setenv(name, value, 1);
    }
    ~ScopedVariable() {
        if (earlier_) ::setenv(name_, earlier_->c_str(), 1);
        else ::unsetenv(name_);
    }

private:
    const char* name_;
    std::optional<std::string> earlier_;
};

TEST(EndpointsTest, ConnectToEntriesAndTheAuthorityComeFromTheEnvironmentIntoEverySession) {
    ScopedVariable connectTo("VORLEN_CONNECT_TO", " videos.dovrin.test:443:127.0.0.1:8443 ,,media.media-dovrin.test:443:127.0.0.1:8443,");
    ScopedVariable authority("VORLEN_CA_FILE", "/tmp/edge/ca.pem");
    const auto options = Endpoints::fromEnvironment().httpOptions();
    EXPECT_EQ(options.connectTo, (std::vector<std::string>{"videos.dovrin.test:443:127.0.0.1:8443",
                                                           "media.media-dovrin.test:443:127.0.0.1:8443"}));
    EXPECT_EQ(options.extraCertificateAuthority, "/tmp/edge/ca.pem");
}

TEST(EndpointsTest, WithNothingSetEveryHostIsReachedAsItIsAndTrustedAsTheSystemTrustsIt) {
    ScopedVariable connectTo("VORLEN_CONNECT_TO", "");
    ScopedVariable authority("VORLEN_CA_FILE", "");
    const auto endpoints = Endpoints::fromEnvironment();
    EXPECT_TRUE(endpoints.connectTo.empty());
    EXPECT_TRUE(endpoints.extraCertificateAuthority.empty());
}

}  // namespace
}  // namespace vorlen
