#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/storage/S3Bucket.hpp"

namespace vorlen::testing {

// A real S3 server (Ceph RADOS Gateway) on loopback, started by testing/rgw with
// fresh credentials and stopped by its PIDs. One per test binary: shared() starts
// it on first use and it stops when the process ends.
class RgwServer {
public:
    static RgwServer& shared();
    ~RgwServer();
    RgwServer(const RgwServer&) = delete;
    RgwServer& operator=(const RgwServer&) = delete;

    const std::string& endpoint() const { return endpoint_; }  // http://127.0.0.1:PORT
    const S3Credentials& credentials() const { return credentials_; }

    // Creates a bucket with a fresh name and gives a client for it, talking to
    // `endpoint` (the server itself unless a proxy stands between).
    std::shared_ptr<S3Bucket> makeBucket(const std::string& endpoint = {}, int connections = 8,
                                         std::chrono::seconds noProgressTimeout = std::chrono::seconds(60));

private:
    RgwServer();

    std::filesystem::path dir_;
    std::string endpoint_;
    S3Credentials credentials_;
};

}  // namespace vorlen::testing
