#include "core/storage/Uploader.hpp"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <set>

#include <fmt/format.h>

#include "core/base/Task.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/storage/ByteCounter.hpp"
#include "core/storage/VideoFolderHeaders.hpp"
#include "core/storage/WriteFailure.hpp"

namespace vorlen {

namespace {

bool isNoSuchUpload(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const VorlenError& failure) {
        auto* status = failure.as<failure::Status>();
        return status && status->code == 404 && status->body.find("NoSuchUpload") != std::string::npos;
    } catch (...) {
        return false;
    }
}

// The uploads of exactly `key` that the server holds open and `open` does not know:
// starts that the server took while their answer was lost. The listing by prefix
// also gives longer keys, which are other files' uploads.
std::vector<MultipartUpload> strayUploads(Bucket& bucket, const std::string& key,
                                          const std::vector<Uploader::OpenMultipart>& open) {
    auto uploads = bucket.listMultipartUploads(key);
    std::erase_if(uploads, [&](const MultipartUpload& upload) {
        return upload.key != key || std::any_of(open.begin(), open.end(), [&](const Uploader::OpenMultipart& entry) {
                   return entry.upload.uploadID == upload.uploadID;
               });
    });
    return uploads;
}

// One upload's shared counters and callbacks.
struct Run {
    const Uploader& uploader;
    const std::function<void(std::uint64_t)>& onBytes;
    ByteCounter given;
    std::mutex reportMutex;  // keeps the reported totals in the order they were made

    std::int64_t attemptLimit() const { return uploader.options.maxRetries + 1; }

    // Tries an attempt (numbered from 1) until it works, the failure is not transient,
    // or the retries are used up. A failure while cancelled is the cancellation.
    template <class F>
    auto retrying(F&& attempt) const {
        return RetryPolicy{uploader.options.maxRetries, uploader.options.retryDelay}.run(std::forward<F>(attempt),
                                                                                          checkCancellation);
    }

    void changeGiven(std::int64_t delta) {
        std::lock_guard lock(reportMutex);
        if (delta >= 0) given.add(static_cast<std::uint64_t>(delta));
        else given.subtract(static_cast<std::uint64_t>(-delta));
        if (onBytes) onBytes(given.value());
    }

    // A step without a body (start or finish of a multipart upload), retried and journaled.
    template <class T>
    T step(const std::string& label, const std::function<T()>& work) {
        return retrying([&](std::int64_t attempt) -> T {
            try {
                return work();
            } catch (const Cancelled&) {
                throw;
            } catch (...) {
                auto error = std::current_exception();
                if (!isCancelled()) uploader.journal->logFailedStep(label, attempt, attemptLimit(), error);
                throw;
            }
        });
    }

    // Aborts what a start of `key` whose answer was lost left open, as a step of its own.
    void abortStrays(const std::string& key, const std::vector<Uploader::OpenMultipart>& open) {
        step<bool>("clean-up of " + uploadLabel(key), [&] {
            for (auto& stray : strayUploads(*uploader.bucket, key, open)) {
                uploader.bucket->abortMultipart(stray);
                uploader.journal->log(fmt::format("aborted: {}, upload {}, left open by a start whose answer was lost",
                                                  uploadLabel(key), stray.uploadID));
            }
            return true;
        });
    }

    Uploader::Outcome send(const Uploader::Transfer& transfer) {
        return retrying([&](std::int64_t attempt) {
            ByteCounter attemptGiven;
            auto started = BootClock::now();
            std::mutex transportMutex;
            std::optional<RequestTransport> transport;

            auto body = RequestBody::file(transfer.file.url, transfer.range);
            body.limiter = uploader.limiter;
            body.onSend = [&](std::uint64_t bytes) {
                attemptGiven.add(bytes);
                changeGiven(static_cast<std::int64_t>(bytes));
            };
            body.onTransport = [&](const RequestTransport& seen) {
                std::lock_guard lock(transportMutex);
                transport = seen;
            };
            auto* part = std::get_if<Uploader::Transfer::Part>(&transfer.target);
            auto report = [&] {
                std::lock_guard lock(transportMutex);
                return UploadAttemptReport{uploadLabel(transfer.file.key),
                                           part ? std::optional<std::int64_t>(part->number) : std::nullopt,
                                           attempt,
                                           attemptLimit(),
                                           transfer.range.length,
                                           attemptGiven.value(),
                                           secondsBetween(started, BootClock::now()),
                                           transport};
            };
            try {
                Uploader::Outcome outcome;
                if (part) {
                    outcome.value = Uploader::Outcome::Part{part->upload,
                                                            uploader.bucket->uploadPart(part->upload, part->number, body)};
                } else {
                    uploader.bucket->put(transfer.file.key, body, transfer.file.headers);
                    outcome.value = Uploader::Outcome::Stored{};
                }
                uploader.journal->logStored(report());
                return outcome;
            } catch (...) {
                auto error = mappedWriteFailure(std::current_exception(), transfer.file.key, false);
                // Wasted bytes do not count as progress.
                changeGiven(-static_cast<std::int64_t>(attemptGiven.value()));
                if (isCancelled()) {
                    uploader.journal->logCancelled(report());
                    throw Cancelled();
                }
                uploader.journal->logFailure(report(), error);
                std::rethrow_exception(error);
            }
        });
    }
};

}  // namespace

void Uploader::upload(const std::vector<UploadFile>& files, const std::function<void(std::uint64_t)>& onBytes) const {
    Run run{*this, onBytes, {}, {}};
    std::vector<OpenMultipart> open;
    std::set<std::string> completed;
    std::set<std::string> uncertainStarts;  // keys whose start failed after the server may have taken it
    try {
        std::vector<Transfer> transfers;
        for (auto& file : files) {
            checkCancellation();
            std::uint64_t size = std::filesystem::file_size(file.url);
            if (size <= options.partSize) {
                transfers.push_back({file, {0, size}, Transfer::Object{}});
                continue;
            }
            auto label = uploadLabel(file.key);
            // A start that the server took must reach the open list, or nothing
            // could abort it: the request itself is out of the cancellation's reach.
            auto upload = run.step<MultipartUpload>("start of " + label, [&] {
                try {
                    return Task<MultipartUpload>::detached([&] { return bucket->createMultipart(file.key, file.headers); })
                        .value();
                } catch (...) {
                    if (isTransient(std::current_exception())) uncertainStarts.insert(file.key);
                    throw;
                }
            });
            open.push_back({upload, file});
            std::int64_t number = 1;
            for (std::uint64_t offset = 0; offset < size; offset += options.partSize)
                transfers.push_back({file, {offset, std::min(options.partSize, size - offset)}, Transfer::Part{upload, number++}});
        }

        std::vector<std::optional<Outcome>> outcomes(transfers.size());
        forEachInWindow(transfers.size(), static_cast<std::size_t>(std::max<std::int64_t>(1, options.concurrency)),
                        [&](std::size_t index) { outcomes[index] = run.send(transfers[index]); });

        std::map<std::string, std::vector<CompletedPart>> parts;
        for (auto& outcome : outcomes)
            if (auto* part = std::get_if<Outcome::Part>(&outcome->value)) parts[part->upload.uploadID].push_back(part->part);
        for (auto& [upload, file] : open) {
            auto label = uploadLabel(file.key);
            // A start whose answer was lost may have opened an upload that only a listing finds.
            if (uncertainStarts.count(upload.key)) run.abortStrays(upload.key, open);
            auto& uploaded = parts[upload.uploadID];
            std::sort(uploaded.begin(), uploaded.end(), [](auto& a, auto& b) { return a.number < b.number; });
            std::int64_t attempt = 0;
            run.step<bool>("finish of " + label, [&] {
                ++attempt;
                try {
                    bucket->completeMultipart(upload, uploaded);
                } catch (const VorlenError&) {
                    // A completion whose answer was lost may have worked: the object tells.
                    if (attempt < 2 || !isNoSuchUpload(std::current_exception()) || !bucket->info(upload.key)) throw;
                }
                return true;
            });
            completed.insert(upload.uploadID);
        }
    } catch (...) {
        auto error = std::current_exception();
        std::vector<MultipartUpload> abandoned;
        for (auto& entry : open)
            if (!completed.count(entry.upload.uploadID)) abandoned.push_back(entry.upload);
        if (!abandoned.empty() || !uncertainStarts.empty()) {
            // Out of reach of the cancellation, so that no parts stay behind in the bucket.
            // A failure is passed over and the next one goes on.
            Task<void>::detached([&] {
                for (auto& upload : abandoned) {
                    try {
                        bucket->abortMultipart(upload);
                    } catch (...) {
                    }
                }
                for (auto& key : uncertainStarts) {
                    try {
                        run.abortStrays(key, open);
                    } catch (...) {
                    }
                }
            }).value();
        }
        std::rethrow_exception(error);
    }
}

void Uploader::uploadFolder(const std::filesystem::path& directory, const std::vector<std::string>& relativePaths,
                            const std::string& keyPrefix, const std::function<ObjectHeaders(const std::string&)>& headersFor,
                            const std::function<void(std::uint64_t)>& onBytes) const {
    std::uint64_t stored = 0;  // bytes of the batches that are done
    for (const auto& batch : videoFolderBatches(relativePaths)) {
        std::vector<UploadFile> files;
        std::uint64_t bytes = 0;
        for (const auto& path : batch) {
            auto file = directory / path;
            bytes += std::filesystem::file_size(file);
            files.push_back(UploadFile{file, keyPrefix + path, headersFor(path)});
        }
        upload(files, [&](std::uint64_t given) {
            if (onBytes) onBytes(stored + given);
        });
        stored += bytes;
    }
}

}  // namespace vorlen
