#include "core/batch/BulkRunner.hpp"

#include <fmt/format.h>

#include "core/base/Text.hpp"
#include "core/pages/DescriptionText.hpp"
#include "core/publish/Naming.hpp"

namespace vorlen {

namespace {

namespace fs = std::filesystem;

constexpr const char* leftAsItWas = "Vorlen did not change it. To publish the row again, clear its \u201cVorlen folder\u201d cell.";

std::optional<std::string> trimmedText(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    auto result = trimmed(*text);
    if (result.empty()) return std::nullopt;
    return result;
}

bool sameReference(const LibraryVideo& video, const std::optional<std::string>& reference) {
    const auto* metadata = video.metadata();
    return !metadata || trimmedText(metadata->details.reference()) == trimmedText(reference);
}

// The rows of a sheet as the engine's items: each change of a row is saved at once.
class BulkSheetBatch final : public BatchSource {
public:
    BulkSheetBatch(BulkSheetFile& file, const std::vector<BulkRow>& items, const Library& library,
                   const std::string& pageBase, ReimportMode reimport)
        : file_(file), items_(items), library_(library), pageBase_(pageBase), reimport_(reimport) {}

    std::int64_t itemCount() const override { return std::int64_t(items_.size()); }
    std::optional<std::string> reference(std::int64_t item) const override { return items_[item].reference; }

    BatchResume resume(std::int64_t item, const BatchContext& context) override {
        const auto& row = items_[item];
        try {
            if (row.folder) return resumeInFolder(row, *row.folder);
            if (row.existingFolder) return resumeExisting(row, *row.existingFolder, context);
        } catch (const Refusal& refusal) {
            return batchResume::Finished{bulkOutcome::Failed{refusal.what()}};
        }
        if (reimport_ == ReimportMode::skip) return batchResume::Start{bulkReplacement::None{}};
        return batchResume::Start{bulkReplacement::IfPublished{}};
    }

    BatchPreparedItem prepare(std::int64_t item, const std::function<void(double)>&) override {
        const auto& row = items_[item];
        if (!row.file) throw BatchItemFailure("The row has no file.");
        std::error_code error;
        if (!fs::exists(*row.file, error) || fs::is_directory(*row.file, error))
            throw BatchItemFailure(fmt::format("There is no file at \u201c{}\u201d.", row.file->string()));
        BatchPreparedItem prepared;
        prepared.source = *row.file;
        prepared.title = row.title;
        if (row.title) prepared.name = Naming::folderName(*row.title);
        if (row.description) prepared.description = DescriptionText::linked(*row.description);
        return prepared;
    }

    void storeStart(std::int64_t item, const std::string& folder, bool isReplacement) override {
        if (isReplacement)
            file_.setStatus(items_[item], bulkStatus::Replacing{folder});
        else
            file_.setStatus(items_[item], bulkStatus::Publishing{folder});
        file_.save();
    }

    void storeOutcome(std::int64_t item, const BulkRowOutcome& outcome) override {
        file_.setStatus(items_[item], statusOf(outcome));
        file_.save();
    }

private:
    // Why a row that names a folder is not taken up; the row fails with these words.
    struct Refusal : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    LibraryVideo readFolder(const std::string& folder) const {
        try {
            return library_.video(folder);
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            throw Refusal(fmt::format("Vorlen could not read the folder \u201c{}\u201d: {}", folder, error.what()));
        }
    }

    // A row that an earlier run started in this folder and did not finish.
    BatchResume resumeInFolder(const BulkRow& row, const std::string& folder) const {
        const auto& prefix = library_.destination.prefix;
        if (!Naming::isValidName(folder))
            throw Refusal(fmt::format("The sheet records the folder \u201c{}\u201d for this row, but that is not a video "
                                      "folder in {}. {}",
                                      folder, prefix.empty() ? "the bucket root" : "\u201c" + prefix + "\u201d",
                                      leftAsItWas));
        const auto video = readFolder(folder);
        if (!sameReference(video, row.reference))
            throw Refusal(fmt::format("The folder \u201c{}\u201d that the sheet records for this row has a video.json "
                                      "for a different reference. {}",
                                      folder, leftAsItWas));
        const bool wasReplacing = row.statusText && trimmed(*row.statusText) == statusText(bulkStatus::Replacing{});
        if (video.isComplete) {
            // The earlier run got to the end but could not record it.
            if (!wasReplacing) return batchResume::Finished{bulkOutcome::Published{location(folder)}};
            // A video with a reference is found again through it; one without through its folder.
            if (trimmedText(row.reference)) return batchResume::Start{bulkReplacement::Required{}};
            return batchResume::Start{bulkReplacement::Required{folder}};
        }
        try {
            library_.remove(video);
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            throw Refusal(
                fmt::format("Vorlen could not delete the unfinished folder \u201c{}\u201d: {}", folder, error.what()));
        }
        return batchResume::Start{bulkReplacement::None{}};
    }

    // A row that names a video of the site to re-import, by folder or page address.
    BatchResume resumeExisting(const BulkRow& row, const std::string& cell, const BatchContext& context) const {
        std::string folder = cell;
        if (folder.starts_with(pageBase_)) folder = folder.substr(pageBase_.size());
        while (folder.ends_with("/")) folder.pop_back();
        if (folder.find("://") != std::string::npos) folder = folder.substr(folder.rfind('/') + 1);
        if (!Naming::isValidName(folder))
            throw Refusal(fmt::format(
                "\u201c{}\u201d is not the name of a video folder, so Vorlen did not re-import the row.", cell));
        if (!context.videos.contains(folder))
            throw Refusal(BatchRun::siteLacksVideo);
        const auto video = readFolder(folder);
        if (video.isUnreadable())
            throw Refusal(
                fmt::format("This version of Vorlen cannot read the video.json of the folder \u201c{}\u201d.", folder));
        // A row without a reference names its video by the folder alone.
        if (trimmedText(row.reference) && !sameReference(video, row.reference))
            throw Refusal(fmt::format("The folder \u201c{}\u201d has a video.json for a different reference, so Vorlen "
                                      "did not re-import the row.",
                                      folder));
        return batchResume::Start{bulkReplacement::Required{folder}};
    }

    BulkPublishedLocation location(const std::string& folder) const { return {folder, pageBase_ + folder}; }

    BulkSheetFile& file_;
    const std::vector<BulkRow>& items_;
    const Library& library_;
    const std::string& pageBase_;
    ReimportMode reimport_;
};

}  // namespace

BulkRunResult BulkRunner::run(BulkSheetFile& file, const std::vector<BulkRow>& rows, ReimportMode reimport,
                              const std::function<void(const BulkProgress&)>& onProgress) const {
    BulkRunResult result;
    std::int64_t alreadyDone = 0;
    for (const auto& row : rows) {
        if (row.pageURL)
            ++alreadyDone;
        else
            result.items.push_back(row);
    }
    BatchRun batch{std::make_shared<BulkSheetBatch>(file, result.items, library, pageBase, reimport),
                   publisher,
                   library,
                   pageBase,
                   computerName,
                   BatchRunKind::bulkUpload,
                   reimport,
                   recordInterval,
                   alreadyDone,
                   [&](const BatchSnapshot& snapshot) {
                       if (onProgress) onProgress(BulkProgress{&result.items, snapshot});
                   }};
    result.snapshot = batch.run();
    return result;
}

}  // namespace vorlen
