#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "core/net/HttpClient.hpp"
#include "core/storage/S3Bucket.hpp"
#include "core/storage/SigV4.hpp"

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
    // Another client for a bucket that exists, e.g. one that bypasses a proxy.
    std::shared_ptr<S3Bucket> client(const std::string& bucket, const std::string& endpoint = {}, int connections = 8,
                                     std::chrono::seconds noProgressTimeout = std::chrono::seconds(60)) const;
    // The multipart uploads of a bucket that are still open, asked of the server itself.
    std::size_t openUploads(const std::string& bucket) const;

private:
    RgwServer();
    HttpResponse sendSigned(const std::string& method, const std::string& bucket, QueryItems query,
                            std::chrono::seconds noProgressTimeout) const;

    std::filesystem::path dir_;
    std::string endpoint_;
    S3Credentials credentials_;
};

}  // namespace vorlen::testing
