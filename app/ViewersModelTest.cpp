#include "app/ViewersModel.hpp"

#include <gtest/gtest.h>

#include "app/ViewerWords.hpp"
#include "core/base/Files.hpp"
#include "core/site/SiteSettings.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen::app {
namespace {

const SystemTime now = *parseIso8601("2026-03-10T12:00:00Z");

// The viewers of a folder bucket, changed by the model as by the page Worker
// beside it; the service counts the renames that reach it.
class ViewersModelTest : public ::testing::Test {
protected:
    class CountingService final : public ViewerService {
    public:
        explicit CountingService(SiteViewers viewers) : core(std::move(viewers)) {}
        std::vector<StoredViewer> list() override { return core.list(); }
        StoredViewer read(const ViewerID& id) override { return core.read(id); }
        ViewerInvitation add(const std::string& name) override { return core.add(name); }
        ViewerInvitation renewInvite(const StoredViewer& viewer) override { return core.renewInvite(viewer); }
        StoredViewer rename(const StoredViewer& viewer, const std::string& name) override {
            ++renames;
            return core.rename(viewer, name);
        }
        void remove(const ViewerID& id) override { core.remove(id); }
        bool isPrivate() override { return core.isPrivate(); }
        void setPrivate(bool isPrivate) override { core.setPrivate(isPrivate); }

        CoreViewerService core;
        int renames = 0;
    };

    ViewersModelTest()
        : root_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-viewers-model-")),
          bucket_(std::make_shared<FolderBucket>(root_)),
          service_(std::make_shared<CountingService>(SiteViewers(bucket_, "https://videos.example.com"))),
          model_(ViewersModel::make(service_, queue_, [] { return now; })) {
        SiteSettings settings;
        settings.mediaHost = Hostname::parse("media.example.com");
        settings.pageHost = Hostname::parse("videos.example.com");
        settings.worker = DeployedWorker{"vorlen-pages", SemanticVersion::parse("1.1.0")};
        settings.write(*bucket_);
    }

    void settle() {
        queue_.runUntil([&] { return !model_->isWorking(); });
    }
    void put(const ViewerID& id, const std::string& file) {
        bucket_->put(SiteViewers::keyOf(id), RequestBody::bytes(file), {"application/json", "no-cache", {}});
    }
    // What the page Worker does when the person makes a passkey with the invite.
    void redeem(const ViewerID& id, SystemTime at) {
        auto viewer = Viewer::decoded(*bucket_->object(SiteViewers::keyOf(id)));
        viewer.access = ViewerPasskey{"credential", "public key", {"internal"}, at};
        put(id, viewer.encoded());
    }
    const ViewerRow& rowNamed(const std::string& name) {
        for (const auto& row : model_->rows())
            if (row.name == name) return row;
        throw std::runtime_error("no row " + name);
    }

    std::filesystem::path root_;
    DirectoryRemover remover_{root_};
    std::shared_ptr<FolderBucket> bucket_;
    std::shared_ptr<CountingService> service_;
    PostedQueue queue_;
    std::shared_ptr<ViewersModel> model_;
};

TEST_F(ViewersModelTest, RowsTellTheInviteOrThePasskeyWithItsDateAndNewerFilesAreShownButNotChanged) {
    const auto anna = service_->core.add("Anna").viewer.id;
    const auto ben = service_->core.add("Ben").viewer.id;
    const auto cleo = service_->core.add("Cleo").viewer.id;
    redeem(ben, *parseIso8601("2026-03-01T08:00:00Z"));
    // An invite that ran out: written as the file would be after seven days.
    auto expired = Viewer::decoded(*bucket_->object(SiteViewers::keyOf(cleo)));
    std::get<ViewerInvite>(expired.access).expires = *parseIso8601("2026-03-09T12:00:00Z");
    put(cleo, expired.encoded());
    const auto newer = ViewerID::make();
    put(newer, R"({"version": 2, "name": "Dana", "created": "2026-03-01T08:00:00Z", "access": {"kind": "magic"}})");

    model_->load();
    EXPECT_TRUE(model_->isWorking());
    settle();
    ASSERT_TRUE(model_->isLoaded());
    ASSERT_EQ(model_->rows().size(), 4u);
    EXPECT_EQ(model_->row(anna)->access, ViewerRow::Access::invite);
    EXPECT_GT(*model_->row(anna)->date, now);
    EXPECT_EQ(model_->row(ben)->accessText("1 Mar 2026"), "Passkey since 1 Mar 2026");
    EXPECT_EQ(model_->row(ben)->date, *parseIso8601("2026-03-01T08:00:00Z"));
    EXPECT_EQ(model_->row(cleo)->accessText("9 Mar 2026"), "Invite expired 9 Mar 2026");
    EXPECT_EQ(model_->row(anna)->accessText("17 Mar 2026"), "Invite expires 17 Mar 2026");

    const auto* dana = model_->row(newer);
    ASSERT_TRUE(dana);
    EXPECT_FALSE(dana->isChangeable());
    EXPECT_EQ(dana->accessText(""), ViewerWords::newerViewer);
    model_->rename(newer, "Dana B.");
    EXPECT_FALSE(model_->isWorking());
    EXPECT_EQ(model_->problem(), ViewerWords::newerViewer);
    EXPECT_EQ(service_->renames, 0);
    // A newer viewer can still be removed: deletion asks nothing of the file.
    model_->remove(newer);
    settle();
    EXPECT_FALSE(model_->row(newer));
    EXPECT_FALSE(model_->problem());
}

TEST_F(ViewersModelTest, ThePrivateSwitchShowsWhatTheSiteSaysAndChangesIt) {
    model_->load();
    settle();
    EXPECT_FALSE(model_->isPrivate());
    model_->setPrivate(true);
    settle();
    EXPECT_TRUE(model_->isPrivate());
    EXPECT_TRUE(SiteSettings::readRequired(*bucket_).isPrivate);
    // Another model, as on another computer, reads the switch from the bucket.
    auto other = ViewersModel::make(service_, queue_, [] { return now; });
    other->load();
    queue_.runUntil([&] { return !other->isWorking(); });
    EXPECT_TRUE(other->isPrivate());
}

TEST_F(ViewersModelTest, AnAddedViewersLinkIsShownOnceAndTheListIsReadAgain) {
    model_->load();
    settle();
    EXPECT_TRUE(model_->rows().empty());
    model_->add("  Anna ");
    settle();
    ASSERT_TRUE(model_->invitation());
    EXPECT_TRUE(model_->invitation()->link.starts_with("https://videos.example.com/_invite/"));
    ASSERT_EQ(model_->rows().size(), 1u);
    EXPECT_EQ(model_->rows().front().name, "Anna");
    model_->forgetInvitation();
    EXPECT_FALSE(model_->invitation());

    model_->add(" ");
    settle();
    EXPECT_EQ(model_->problem(), "A viewer needs a name.");
    EXPECT_EQ(model_->rows().size(), 1u);
    EXPECT_FALSE(model_->invitation());
}

TEST_F(ViewersModelTest, ARenameThatRacesARedeemedInviteSaysSoAndShowsThePasskey) {
    const auto anna = service_->core.add("Anna").viewer.id;
    model_->load();
    settle();
    // The person makes their passkey after the list was read.
    redeem(anna, now);
    model_->rename(anna, "Anna K.");
    settle();
    EXPECT_EQ(service_->renames, 1);
    EXPECT_EQ(model_->problem(), SiteViewers::changedAfterRead);
    EXPECT_EQ(rowNamed("Anna").access, ViewerRow::Access::passkey);

    // On the fresh list the rename goes through, and keeps the passkey.
    model_->rename(anna, "Anna K.");
    settle();
    EXPECT_FALSE(model_->problem());
    EXPECT_EQ(rowNamed("Anna K.").access, ViewerRow::Access::passkey);
}

TEST_F(ViewersModelTest, ANewInviteReplacesThePasskeyWithALinkShownOnce) {
    const auto ben = service_->core.add("Ben").viewer.id;
    redeem(ben, now);
    model_->load();
    settle();
    model_->renewInvite(ben);
    settle();
    ASSERT_TRUE(model_->invitation());
    EXPECT_EQ(model_->invitation()->viewer.id, ben);
    EXPECT_EQ(rowNamed("Ben").access, ViewerRow::Access::invite);
}

}  // namespace
}  // namespace vorlen::app
