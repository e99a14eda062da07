#include "core/base/VorlenError.hpp"

#include <fmt/format.h>

namespace vorlen {

std::string rawValue(BatchRunKind kind) {
    return kind == BatchRunKind::vimeoSync ? "vimeo-sync" : "bulk-upload";
}

std::string displayName(BatchRunKind kind) {
    return kind == BatchRunKind::vimeoSync ? "Vimeo sync" : "bulk upload";
}

namespace {

struct TextOf {
    std::string operator()(const failure::Tool& f) const { return fmt::format("{} failed: {}", f.tool, f.detail); }
    std::string operator()(const failure::Source& f) const { return f.text; }
    std::string operator()(const failure::Manifest& f) const { return f.text; }
    std::string operator()(const failure::Status& f) const { return fmt::format("storage returned {}: {}", f.code, f.body); }
    std::string operator()(const failure::Integrity& f) const {
        return fmt::format("storage rejected a checksum for {}: {}", f.key, f.detail);
    }
    std::string operator()(const failure::Config& f) const { return f.text; }
    std::string operator()(const failure::Metadata& f) const { return f.text; }
    std::string operator()(const failure::NotDeleted& f) const {
        std::string entries;
        for (const auto& each : f.failures) {
            if (!entries.empty()) entries += ", ";
            entries += fmt::format("{} ({})", each.key, each.code);
        }
        return fmt::format("storage did not delete {} object(s): {}", f.failures.size(), entries);
    }
    std::string operator()(const failure::Conflict& f) const {
        return fmt::format("{} changed after it was read, or it exists already", f.key);
    }
    std::string operator()(const failure::Download& f) const {
        return fmt::format("the download from {} failed with HTTP {}", f.host.empty() ? "the server" : f.host, f.status);
    }
    std::string operator()(const failure::IncompleteDownload& f) const {
        return fmt::format("the download from {} got {} bytes, and the server announced {}",
                           f.host.empty() ? "the server" : f.host, f.received, f.announced);
    }
    std::string operator()(const failure::BatchRunInProgress& f) const {
        return fmt::format("\u201c{}\u201d is running a {} on this site. Start this run when that run ends. "
                           "If that computer stopped, you can start this run after about 5 minutes.",
                           f.computerName, displayName(f.kind));
    }
    std::string operator()(const failure::BatchRunLost&) const {
        return "Another run started on this site while this run could not report to the bucket, for example "
               "while this computer was asleep. So this run stopped. A later run continues with the videos that are left.";
    }
    std::string operator()(const failure::ManifestConflict& f) const {
        switch (f.change) {
            case ManifestChange::video:
                return fmt::format("A different computer changed \u201c{}\u201d while Vorlen prepared the new video, so the "
                                   "video did not change. Try again to replace the video as it is now.", f.title);
            case ManifestChange::audio:
                return fmt::format("A different computer changed \u201c{}\u201d while Vorlen prepared the new audio, so the "
                                   "audio did not change. Try again to re-import the audio as it is now.", f.title);
            case ManifestChange::subtitles: break;
        }
        return fmt::format("A different computer changed \u201c{}\u201d while Vorlen saved the subtitles, so the "
                           "subtitles did not change. Try again to change the subtitles.", f.title);
    }
    std::string operator()(const failure::ManifestRestore& f) const {
        switch (f.change) {
            case ManifestChange::video:
                return fmt::format("Vorlen could not finish the change of \u201c{}\u201d. Some browsers can play the new "
                                   "video and others the old video. Try again to replace the video.", f.folder);
            case ManifestChange::audio:
                return fmt::format("Vorlen could not finish the change of \u201c{}\u201d. Some browsers can play the new "
                                   "audio and others the old audio. Try again to re-import the audio.", f.folder);
            case ManifestChange::subtitles: break;
        }
        return fmt::format("Vorlen could not finish the change of \u201c{}\u201d. Some browsers can show the new "
                           "subtitles and others the old subtitles. Try again to change the subtitles.", f.folder);
    }
};

}  // namespace

VorlenError::VorlenError(FailureCase failureCase)
    : case_(std::move(failureCase)), text_(std::visit(TextOf{}, case_)) {}

VorlenError VorlenError::tool(std::string tool, std::string detail) {
    return VorlenError(failure::Tool{std::move(tool), std::move(detail)});
}
VorlenError VorlenError::source(std::string text) { return VorlenError(failure::Source{std::move(text)}); }
VorlenError VorlenError::manifest(std::string text) { return VorlenError(failure::Manifest{std::move(text)}); }
VorlenError VorlenError::status(int code, std::string body) {
    return VorlenError(failure::Status{code, std::move(body)});
}
VorlenError VorlenError::integrity(std::string key, std::string detail) {
    return VorlenError(failure::Integrity{std::move(key), std::move(detail)});
}
VorlenError VorlenError::config(std::string text) { return VorlenError(failure::Config{std::move(text)}); }
VorlenError VorlenError::metadata(std::string text) { return VorlenError(failure::Metadata{std::move(text)}); }
VorlenError VorlenError::notDeleted(std::vector<DeleteFailure> failures) {
    return VorlenError(failure::NotDeleted{std::move(failures)});
}
VorlenError VorlenError::conflict(std::string key) { return VorlenError(failure::Conflict{std::move(key)}); }
VorlenError VorlenError::download(std::string host, int status) {
    return VorlenError(failure::Download{std::move(host), status});
}
VorlenError VorlenError::incompleteDownload(std::string host, std::int64_t received, std::int64_t announced) {
    return VorlenError(failure::IncompleteDownload{std::move(host), received, announced});
}
VorlenError VorlenError::batchRunInProgress(BatchRunKind kind, std::string computerName) {
    return VorlenError(failure::BatchRunInProgress{kind, std::move(computerName)});
}
VorlenError VorlenError::batchRunLost() { return VorlenError(failure::BatchRunLost{}); }
VorlenError VorlenError::manifestConflict(std::string title, ManifestChange change) {
    return VorlenError(failure::ManifestConflict{std::move(title), change});
}
VorlenError VorlenError::manifestRestore(std::string folder, ManifestChange change) {
    return VorlenError(failure::ManifestRestore{std::move(folder), change});
}

std::string describe(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown failure";
    }
}

}  // namespace vorlen
