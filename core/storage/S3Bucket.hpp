#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "core/net/Endpoints.hpp"
#include "core/net/HttpClient.hpp"
#include "core/storage/Bucket.hpp"
#include "core/storage/S3Credentials.hpp"
#include "core/storage/SigV4.hpp"

namespace vorlen {

struct BucketLocation {
    std::string accountID;
    std::string bucket;
};

// One R2 bucket over its S3 interface, path-style, signed with SigV4 (region
// "auto", service "s3", unsigned payload; content-md5 guards the bodies).
// No cache and no retry around writes: callers decide with isTransient().
class S3Bucket : public Bucket {
public:
    // At most maxConnectionsPerHost requests at once (never below 1).
    S3Bucket(BucketLocation location, S3Credentials credentials, Endpoints endpoints = {},
             int maxConnectionsPerHost = 8, std::chrono::seconds noProgressTimeout = std::chrono::seconds(60));

    const BucketLocation& location() const { return location_; }
    const S3Credentials& credentials() const { return credentials_; }

    bool hasObjects(const std::string& prefix) override;
    std::optional<std::string> object(const std::string& key) override;
    std::optional<TaggedObject> taggedObject(const std::string& key) override;
    std::optional<std::string> objectRange(const std::string& key, const ByteRange& range) override;
    std::optional<ObjectInfo> info(const std::string& key) override;
    std::optional<std::string> put(const std::string& key, const RequestBody& body, const ObjectHeaders& headers,
                                   const std::optional<WriteCondition>& condition = std::nullopt) override;
    void remove(const std::string& key) override;
    std::vector<DeleteFailure> deleteObjects(const std::vector<std::string>& keys) override;
    void copy(const std::string& from, const std::string& to) override;
    ListPage listPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                      const std::optional<std::string>& token, int retries = 0,
                      std::chrono::duration<double> delay = std::chrono::duration<double>(0.5)) override;
    MultipartUpload createMultipart(const std::string& key, const ObjectHeaders& headers) override;
    CompletedPart uploadPart(const MultipartUpload& upload, std::int64_t number, const RequestBody& body) override;
    void completeMultipart(const MultipartUpload& upload, const std::vector<CompletedPart>& parts) override;
    void abortMultipart(const MultipartUpload& upload) override;
    std::vector<MultipartUpload> listMultipartUploads(const std::string& prefix) override;

private:
    struct Call {
        std::string method;
        std::optional<std::string> key;
        QueryItems query;
        std::map<std::string, std::string> headers;
        const RequestBody* body = nullptr;
        bool digest = false;      // send content-md5 of the body
        bool absentOn404 = false; // a 404 is an answer, not a failure
        bool idempotent = true;   // false: never sent twice by the transport
    };
    // Signs and sends; a status outside 2xx fails with status(code, body).
    // Empty only for a 404 that the call allows.
    std::optional<HttpResponse> send(const Call& call);
    ListPage readListPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                          const std::optional<std::string>& token);

    BucketLocation location_;
    S3Credentials credentials_;
    Endpoints endpoints_;
    std::shared_ptr<HttpClient> session_;
};

}  // namespace vorlen
