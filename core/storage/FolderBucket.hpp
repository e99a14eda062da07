#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/base/Json.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

// A bucket kept in a local folder: the local site, and fast tests of everything
// that writes to a bucket. It behaves as the S3 client does: ETags are the MD5
// in hex within double quotes ("-N" behind the hex for an object made of N
// parts), a failed write condition is `conflict(key)`, listings come in UTF-8
// byte order, 1000 keys a page, with continuation tokens, and a lost upload ID
// is `status(404, ...NoSuchUpload...)`.
//
// On disk, under the root:
//
//   objects/<key>              the object's bytes at the key's own path, so that
//                              a plain web server can serve the folder as is
//   .meta/<sha256 of key>.json one record per object: {"cacheControl",
//                              "contentType", "etag", "key", "lastModified"
//                              (ISO 8601), "metadata" (lowercased keys), "size"}
//   .uploads/<uploadID>/       an open multipart upload: "upload.json" ({"key",
//                              "cacheControl", "contentType", "metadata"}) and
//                              one file per part, named by its number
//   .tmp/                      bytes being written, renamed into place when whole
//   .pending/<id>.json         a change whose renames and removals are not all done
//   .lock                      flock: shared for reads, exclusive for changes
//
// A change writes its new bytes under .tmp first, then records its renames,
// its headers records and its removals in .pending, applies them and drops the record. Whoever takes the lock
// next finishes a record that a crash left behind, so a reader never sees an
// object without its record or half an object. Conditions are checked and
// applied under the exclusive lock, so they hold between processes.
//
// A key that a file system cannot hold (an empty, "." or ".." segment, a
// segment over 250 bytes, or a key that would be both a file and a folder)
// fails with `config`, and so does a listing prefix that is no such key, with
// or without a "/" at its end. A .pending record holds only paths relative to
// the root; one with an absolute path or a ".." step is dropped undone.
class FolderBucket : public Bucket {
public:
    // `pageSize` is the most keys that one listing page holds; S3 gives 1000.
    explicit FolderBucket(std::filesystem::path root, std::size_t pageSize = 1000);

    const std::filesystem::path& root() const { return root_; }
    // Where an object's bytes lie (whether or not the object exists).
    std::filesystem::path objectPath(const std::string& key) const;
    // The multipart uploads that were started and neither completed nor aborted.
    std::vector<MultipartUpload> openMultipartUploads() const;
    // The headers that an object was stored with, for a copy into another bucket.
    std::optional<ObjectHeaders> headers(const std::string& key);

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
    class Lock;
    struct Change;

    std::filesystem::path metaPath(const std::string& key) const;
    std::filesystem::path uploadPath(const std::string& uploadID) const;
    std::filesystem::path temporaryPath(const std::string& suffix) const;
    void checkStorable(const std::string& key) const;
    void checkListable(const std::string& prefix) const;
    // Calls read with a stored key's record under the shared lock; nothing for a
    // key that is not stored or that a file system cannot hold.
    template <class F>
    auto readStored(const std::string& key, F read) -> std::optional<decltype(read(std::declval<const Json&>()))>;
    void commit(const Change& change);
    void recover();
    void finishLeftovers();
    void finishPending(const std::filesystem::path& record);
    std::optional<std::string> currentETag(const std::string& key) const;
    std::vector<std::string> keysWithPrefix(const std::string& prefix) const;

    std::filesystem::path root_;
    std::size_t pageSize_;
};

}  // namespace vorlen
