#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <variant>
#include <vector>

namespace vorlen {

struct DeleteFailure {
    std::string key;
    std::string code;
    std::string message;
    bool operator==(const DeleteFailure&) const = default;
};

enum class BatchRunKind { vimeoSync, bulkUpload };

// What a switch of a published video's manifests changes.
enum class ManifestChange { video, audio, subtitles };

// "vimeo-sync" / "bulk-upload", and the names used in messages.
std::string rawValue(BatchRunKind kind);
std::string displayName(BatchRunKind kind);

// The cases of the core's failure. Each case knows its own text.
namespace failure {
struct Tool { std::string tool; std::string detail; };
struct Source { std::string text; };
struct Manifest { std::string text; };
struct Status { int code = 0; std::string body; };
struct Integrity { std::string key; std::string detail; };
struct Config { std::string text; };
struct Metadata { std::string text; };
struct NotDeleted { std::vector<DeleteFailure> failures; };
struct Conflict { std::string key; };
struct Download { std::string host; int status = 0; };
struct IncompleteDownload { std::string host; std::int64_t received = 0; std::int64_t announced = 0; };
struct BatchRunInProgress { BatchRunKind kind = BatchRunKind::bulkUpload; std::string computerName; };
struct BatchRunLost {};
// Another computer changed the manifests after they were read: nothing changed.
struct ManifestConflict { std::string title; ManifestChange change = ManifestChange::video; };
// The manifests could not be put back after half a switch: players disagree.
struct ManifestRestore { std::string folder; ManifestChange change = ManifestChange::video; };
}  // namespace failure

using FailureCase = std::variant<failure::Tool, failure::Source, failure::Manifest, failure::Status,
                                 failure::Integrity, failure::Config, failure::Metadata,
                                 failure::NotDeleted, failure::Conflict, failure::Download,
                                 failure::IncompleteDownload, failure::BatchRunInProgress,
                                 failure::BatchRunLost, failure::ManifestConflict, failure::ManifestRestore>;

// The core's one failure type; what() is the text a person sees, never rewritten.
class VorlenError : public std::exception {
public:
    explicit VorlenError(FailureCase failureCase);

    static VorlenError tool(std::string tool, std::string detail);
    static VorlenError source(std::string text);
    static VorlenError manifest(std::string text);
    static VorlenError status(int code, std::string body);
    static VorlenError integrity(std::string key, std::string detail);
    static VorlenError config(std::string text);
    static VorlenError metadata(std::string text);
    static VorlenError notDeleted(std::vector<DeleteFailure> failures);
    static VorlenError conflict(std::string key);
    static VorlenError download(std::string host, int status);
    static VorlenError incompleteDownload(std::string host, std::int64_t received, std::int64_t announced);
    static VorlenError batchRunInProgress(BatchRunKind kind, std::string computerName);
    static VorlenError batchRunLost();
    static VorlenError manifestConflict(std::string title, ManifestChange change);
    static VorlenError manifestRestore(std::string folder, ManifestChange change);

    const FailureCase& failureCase() const noexcept { return case_; }
    template <class T> const T* as() const noexcept { return std::get_if<T>(&case_); }
    template <class T> bool is() const noexcept { return std::holds_alternative<T>(case_); }

    const char* what() const noexcept override { return text_.c_str(); }
    const std::string& text() const noexcept { return text_; }

private:
    FailureCase case_;
    std::string text_;
};

// The shared cancellation failure: never a VorlenError, so that no handler of
// failures mistakes a stop for an error to show.
class Cancelled : public std::exception {
public:
    const char* what() const noexcept override { return "cancelled"; }
};

// The text of any exception for a person: a failure's own words.
std::string describe(const std::exception_ptr& error);

}  // namespace vorlen
