#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "core/storage/S3Credentials.hpp"
#include "core/storage/UploadJournal.hpp"
#include "core/storage/UploadMeter.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen::app {

// A folder of files into a bucket, in the order that keeps a video folder safe
// (master.m3u8 last), with the journal and the progress of a publish's upload.
struct FolderUpload {
    std::filesystem::path folder;
    // An S3 server's address, or file:///PATH: a folder that holds buckets as subfolders.
    std::string endpoint;
    std::string bucket;
    std::string prefix;          // "" or a folder of keys; a missing "/" is added
    S3Credentials credentials;   // for an S3 server
    UploadOptions options;
    std::uint64_t bytesPerSecond = 0;  // 0: no limit

    struct Result {
        std::size_t files = 0;
        std::uint64_t bytes = 0;
        double seconds = 0;
    };

    // Fails with the upload's own failure, Cancelled included, once open multipart
    // uploads are aborted; the journal then ends with the stop line.
    Result run(UploadJournal& journal, const std::function<void(const UploadProgress&)>& onProgress) const;
};

}  // namespace vorlen::app
