#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/base/Dates.hpp"
#include "core/base/VorlenError.hpp"
#include "core/net/RequestBody.hpp"

namespace vorlen {

struct ObjectHeaders {
    std::string contentType;
    std::string cacheControl;
    std::map<std::string, std::string> metadata;  // user metadata, keys without any prefix
};

// An object's bytes and its ETag exactly as the server sent it (quotes included).
struct TaggedObject {
    std::string data;
    std::string etag;
};

struct WriteCondition {
    struct Unchanged { std::string etag; };
    struct Absent {};
    std::variant<Unchanged, Absent> value;

    static WriteCondition unchanged(std::string etag) { return {Unchanged{std::move(etag)}}; }
    static WriteCondition absent() { return {Absent{}}; }
};

struct ObjectInfo {
    std::int64_t size = 0;
    std::optional<SystemTime> lastModified;
    std::map<std::string, std::string> metadata;  // prefix removed, keys lowercased
};

struct MultipartUpload {
    std::string key;
    std::string uploadID;
};

struct CompletedPart {
    std::int64_t number = 0;
    std::string etag;  // without its quotes
};

// An ETag without the double quotes that servers put around it.
std::string unquotedETag(std::string_view etag);

struct ListedObject {
    std::string key;
    std::optional<std::string> etag;
};

// One bucket of object storage. Two implementations: the S3 client and a
// folder on disk (the local site and fast tests). Both are shared, immutable
// objects: hold them as std::shared_ptr<Bucket>.
class Bucket {
public:
    struct ListPage {
        std::vector<ListedObject> objects;
        std::optional<std::string> nextToken;
    };
    struct ListRange {
        std::optional<std::string> startAfter;  // strictly behind this key
        std::optional<std::string> through;     // up to and including this key
    };

    virtual ~Bucket() = default;

    virtual bool hasObjects(const std::string& prefix) = 0;
    virtual std::optional<std::string> object(const std::string& key) = 0;
    virtual std::optional<TaggedObject> taggedObject(const std::string& key) = 0;
    // Some bytes of an object; absent when there is no object. A range past its end fails.
    virtual std::optional<std::string> objectRange(const std::string& key, const ByteRange& range);
    static constexpr const char* shortObject = "the object ends before the range read from it";
    virtual std::optional<ObjectInfo> info(const std::string& key) = 0;
    // Returns the ETag the store answered with, if any. A failed condition is `conflict(key)`.
    virtual std::optional<std::string> put(const std::string& key, const RequestBody& body, const ObjectHeaders& headers,
                                           const std::optional<WriteCondition>& condition = std::nullopt) = 0;
    virtual void remove(const std::string& key) = 0;
    // Failures of single keys come back; an empty list makes no request.
    virtual std::vector<DeleteFailure> deleteObjects(const std::vector<std::string>& keys) = 0;
    virtual void copy(const std::string& from, const std::string& to) = 0;

    virtual ListPage listPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                              const std::optional<std::string>& token, int retries = 0,
                              std::chrono::duration<double> delay = std::chrono::duration<double>(0.5)) = 0;
    std::vector<ListPage> listAll(const std::string& prefix);
    std::vector<std::string> listKeys(const std::string& prefix);
    // The ranges that boundaries cut a listing into, in the server's (byte) order.
    static std::vector<ListRange> ranges(std::vector<std::string> boundaries);
    // One page chain per range, run at once; onPage gets every page trimmed to its range.
    void listRanges(const std::string& prefix, const std::vector<ListRange>& ranges, int retries,
                    std::chrono::duration<double> delay, const std::function<void(const ListPage&)>& onPage);

    virtual MultipartUpload createMultipart(const std::string& key, const ObjectHeaders& headers) = 0;
    virtual CompletedPart uploadPart(const MultipartUpload& upload, std::int64_t number, const RequestBody& body) = 0;
    virtual void completeMultipart(const MultipartUpload& upload, const std::vector<CompletedPart>& parts) = 0;
    virtual void abortMultipart(const MultipartUpload& upload) = 0;
    // The multipart uploads under a prefix that were started and neither completed
    // nor aborted, in key order, every page. The prefix also matches longer keys.
    virtual std::vector<MultipartUpload> listMultipartUploads(const std::string& prefix) = 0;
};

}  // namespace vorlen
