#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "core/net/RateLimiter.hpp"
#include "core/storage/Bucket.hpp"
#include "core/storage/UploadJournal.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen {

struct UploadFile {
    std::filesystem::path url;
    std::string key;
    ObjectHeaders headers;
};

// Moves files into a bucket: a fixed number of requests at once, files larger
// than a part in parts, each request retried by itself with its whole body
// sent again, and open multipart uploads aborted when the upload fails or is
// cancelled. A start whose answer was lost may have opened an upload all the
// same: the uploads of that key that it holds no ID of are looked for and
// aborted. Make one for each upload, with the options of that moment.
struct Uploader {
    struct Transfer {
        struct Part {
            MultipartUpload upload;
            std::int64_t number = 0;
        };
        struct Object {};
        UploadFile file;
        ByteRange range;
        std::variant<Part, Object> target;
    };
    struct Outcome {
        struct Part {
            MultipartUpload upload;
            CompletedPart part;
        };
        struct Stored {};
        std::variant<Part, Stored> value;
    };
    struct OpenMultipart {
        MultipartUpload upload;
        UploadFile file;
    };

    std::shared_ptr<Bucket> bucket;
    std::shared_ptr<RateLimiter> limiter;
    UploadOptions options;
    std::shared_ptr<UploadJournal> journal;

    // Returns when every object is stored. `onBytes` gets the bytes given to the
    // transport so far whenever they change; they go down when an attempt fails.
    void upload(const std::vector<UploadFile>& files, const std::function<void(std::uint64_t)>& onBytes = {}) const;

    // The files of a video folder, by their paths in `directory`, under keyPrefix,
    // batch after batch (videoFolderBatches): a batch starts only once every object
    // of the one before is stored, so master.m3u8 comes last. onBytes gets the bytes
    // given so far across the batches.
    void uploadFolder(const std::filesystem::path& directory, const std::vector<std::string>& relativePaths,
                      const std::string& keyPrefix, const std::function<ObjectHeaders(const std::string&)>& headersFor,
                      const std::function<void(std::uint64_t)>& onBytes = {}) const;
};

}  // namespace vorlen
