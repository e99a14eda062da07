#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen {

// A FolderBucket behind a fault injector: `fault` is asked before each call and
// may throw, or answer `lose` to let the call work and lose its answer.
class FaultyBucket : public Bucket {
public:
    enum class Fault { none, fail, lose };
    struct Call {
        std::string operation;  // "put", "part", "create", "complete", "abort", "uploads", "delete"
        std::string key;
        std::int64_t part = 0;
        std::uint64_t bytes = 0;
    };

    explicit FaultyBucket(std::shared_ptr<FolderBucket> inner) : inner(std::move(inner)) {}

    std::shared_ptr<FolderBucket> inner;
    std::function<Fault(const Call&, const RequestBody*)> fault;
    std::mutex mutex;
    std::vector<Call> calls;

    std::vector<Call> recorded() {
        std::lock_guard lock(mutex);
        return calls;
    }

    bool hasObjects(const std::string& prefix) override { return inner->hasObjects(prefix); }
    std::optional<std::string> object(const std::string& key) override { return inner->object(key); }
    std::optional<TaggedObject> taggedObject(const std::string& key) override { return inner->taggedObject(key); }
    std::optional<std::string> objectRange(const std::string& key, const ByteRange& range) override {
        return inner->objectRange(key, range);
    }
    std::optional<ObjectInfo> info(const std::string& key) override { return inner->info(key); }
    void remove(const std::string& key) override { inner->remove(key); }
    std::vector<DeleteFailure> deleteObjects(const std::vector<std::string>& keys) override {
        return around({"delete", keys.empty() ? "" : keys.front()}, nullptr,
                      [&] { return inner->deleteObjects(keys); });
    }
    void copy(const std::string& from, const std::string& to) override { inner->copy(from, to); }
    ListPage listPage(const std::string& prefix, const std::optional<std::string>& startAfter,
                      const std::optional<std::string>& token, int retries, std::chrono::duration<double> delay) override {
        return inner->listPage(prefix, startAfter, token, retries, delay);
    }

    std::optional<std::string> put(const std::string& key, const RequestBody& body, const ObjectHeaders& headers,
                                   const std::optional<WriteCondition>& condition) override {
        return around({"put", key, 0, body.size()}, &body, [&] { return inner->put(key, body, headers, condition); });
    }
    MultipartUpload createMultipart(const std::string& key, const ObjectHeaders& headers) override {
        return around({"create", key}, nullptr, [&] { return inner->createMultipart(key, headers); });
    }
    CompletedPart uploadPart(const MultipartUpload& upload, std::int64_t number, const RequestBody& body) override {
        return around({"part", upload.key, number, body.size()}, &body,
                      [&] { return inner->uploadPart(upload, number, body); });
    }
    void completeMultipart(const MultipartUpload& upload, const std::vector<CompletedPart>& parts) override {
        around({"complete", upload.key}, nullptr, [&] {
            inner->completeMultipart(upload, parts);
            return true;
        });
    }
    void abortMultipart(const MultipartUpload& upload) override {
        around({"abort", upload.key}, nullptr, [&] {
            inner->abortMultipart(upload);
            return true;
        });
    }
    std::vector<MultipartUpload> listMultipartUploads(const std::string& prefix) override {
        return around({"uploads", prefix}, nullptr, [&] { return inner->listMultipartUploads(prefix); });
    }

private:
    template <class F>
    auto around(Call call, const RequestBody* body, F work) -> decltype(work()) {
        {
            std::lock_guard lock(mutex);
            calls.push_back(call);
        }
        Fault chosen = fault ? fault(call, body) : Fault::none;
        auto result = work();
        if (chosen == Fault::lose) throw VorlenError::status(502, "<Error><Code>BadGateway</Code></Error>");
        return result;
    }
};

}  // namespace vorlen
