#include "app/PageSettingsModel.hpp"

#include <gtest/gtest.h>

#include <atomic>

#include "app/PlayerWords.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen::app {
namespace {

// The player's options in a folder bucket, as the site keeps them; fonts and
// stylesheets in memory; a preview that records what it serves and waits to be stopped.
class BucketPageSettings final : public PageSettingsService {
public:
    explicit BucketPageSettings(std::shared_ptr<Bucket> bucket) : site(std::move(bucket)) {}

    PlayerSettings::Stored player() override { return site.current(); }
    void savePlayer(const PlayerSettings& settings, const std::optional<std::string>& readETag) override {
        site.save(settings, readETag);
    }
    SitePageFonts::Current fonts() override { return current; }
    HostedFont addFontFiles(const std::vector<std::filesystem::path>&) override {
        current.fonts.hosted = HostedFont{"Inter", "_fonts/inter-0a1b2c3d"};
        return *current.fonts.hosted;
    }
    HostedFont addGoogleFamily(const std::string& family) override {
        current.fonts.hosted = HostedFont{family, "_fonts/lora-4e5f6a7b"};
        return *current.fonts.hosted;
    }
    SiteStylesheet readStylesheet(const std::string& pasted) override {
        if (!pasted.starts_with("https://"))
            throw VorlenError::config("\u201c" + pasted +
                                      "\u201d is not the address of a stylesheet. Use an address that starts with https://.");
        return SiteStylesheet{pasted, {"https://fonts.example.com"}, {"Lora"}};
    }
    void linkStylesheet(const SiteStylesheet& stylesheet) override { current.stylesheets.push_back(stylesheet); }
    void removeFonts() override { current = {}; }
    void servePreview(const PlayerSettings& settings, const std::function<void(const std::string&)>& onServing) override {
        served = settings;
        onServing("http://localhost:8800/harbour");
        while (true) {
            try {
                sleepFor(std::chrono::milliseconds(20));
            } catch (const Cancelled&) {
                wasStopped = true;
                throw;
            }
        }
    }

    SitePlayerSettings site;
    SitePageFonts::Current current;
    std::optional<PlayerSettings> served;
    std::atomic<bool> wasStopped = false;
};

class PageSettingsModelTest : public ::testing::Test {
protected:
    PageSettingsModelTest()
        : root_(makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-page-settings-")),
          bucket_(std::make_shared<FolderBucket>(root_)),
          service_(std::make_shared<BucketPageSettings>(bucket_)),
          model_(PageSettingsModel::make(service_, queue_)) {}

    void settle() {
        queue_.runUntil([&] { return !model_->isWorking(); });
    }
    void loaded() {
        model_->load();
        settle();
        ASSERT_TRUE(model_->isLoaded());
    }
    std::vector<std::string> namesOn(PlayerControlList list) const {
        std::vector<std::string> names;
        for (const auto& row : model_->controls(list))
            if (row.isOn) names.push_back(row.name);
        return names;
    }

    std::filesystem::path root_;
    DirectoryRemover remover_{root_};
    std::shared_ptr<FolderBucket> bucket_;
    std::shared_ptr<BucketPageSettings> service_;
    PostedQueue queue_;
    std::shared_ptr<PageSettingsModel> model_;
};

TEST_F(PageSettingsModelTest, AutoplayTurnsMutedOnWithItsSentenceAndASaveIsWhatThePagesRead) {
    loaded();
    EXPECT_FALSE(model_->hasUnsavedPlayer());
    model_->changePlayer([](PlayerSettings& settings) { settings.autoplay = true; });
    EXPECT_TRUE(model_->player()->muted);
    EXPECT_EQ(model_->notice(), PlayerWords::mutedWithAutoplay);
    EXPECT_TRUE(model_->hasUnsavedPlayer());
    // Muted may go off again by hand; autoplay staying on does not bring it back.
    model_->changePlayer([](PlayerSettings& settings) { settings.muted = false; });
    EXPECT_FALSE(model_->player()->muted);
    EXPECT_FALSE(model_->notice());

    model_->savePlayer();
    settle();
    EXPECT_EQ(model_->notice(), PlayerWords::saved);
    EXPECT_FALSE(model_->hasUnsavedPlayer());
    const auto stored = service_->site.current();
    EXPECT_TRUE(stored.settings.autoplay);
    EXPECT_FALSE(stored.settings.muted);

    // The save after it goes over the version that the first one wrote.
    model_->changePlayer([](PlayerSettings& settings) { settings.loop = true; });
    model_->savePlayer();
    settle();
    EXPECT_FALSE(model_->problem());
    EXPECT_TRUE(service_->site.current().settings.loop);
}

TEST_F(PageSettingsModelTest, ASaveAfterAnotherComputerSavedSavesNothingAndShowsTheirOptions) {
    loaded();
    model_->changePlayer([](PlayerSettings& settings) { settings.loop = true; });
    PlayerSettings theirs;
    theirs.autoplay = true;
    theirs.muted = true;
    service_->site.save(theirs, std::nullopt);

    model_->savePlayer();
    settle();
    EXPECT_EQ(model_->problem(), PlayerWords::changedElsewhere);
    EXPECT_EQ(service_->site.current().settings, theirs);
    EXPECT_EQ(*model_->player(), theirs);
    EXPECT_FALSE(model_->hasUnsavedPlayer());
}

TEST_F(PageSettingsModelTest, ControlsStartFromThePlayersListAndATurnedOnControlTakesItsRowsPlace) {
    loaded();
    const auto& bar = model_->controls(PlayerControlList::controlBar);
    ASSERT_FALSE(bar.empty());
    EXPECT_EQ(bar.front(), (PlayerControlRow{"play_pause", "Play and pause", true, true}));
    EXPECT_EQ(bar[1], (PlayerControlRow{"skip_previous", "Previous video", false, true}));
    EXPECT_EQ(namesOn(PlayerControlList::controlBar), *PlayerUISettings::desktopDefaults().controlPanelElements);
    // Untouched, the list stays the player's own.
    EXPECT_FALSE(model_->player()->ui.controlPanelElements);

    model_->setControl(PlayerControlList::controlBar, "skip_next", false);
    model_->setControl(PlayerControlList::controlBar, "rewind", true);
    model_->setControl(PlayerControlList::controlBar, "skip_next", true);
    const std::vector<std::string> expected{"play_pause", "skip_previous", "skip_next", "mute_volume", "time_and_duration",
                                            "spacer", "queue", "autoplay", "captions", "overflow_menu", "fullscreen", "rewind"};
    EXPECT_EQ(model_->player()->ui.controlPanelElements, expected);
    EXPECT_FALSE(model_->player()->ui.overflowMenuButtons);
}

TEST_F(PageSettingsModelTest, AStoredListKeepsANameThatNoElementHasThroughAnEditAndASave) {
    PlayerSettings stored;
    stored.ui.overflowMenuButtons = {{"quality", "cast_to_moon"}};
    service_->site.save(stored, std::nullopt);
    loaded();
    const auto& menu = model_->controls(PlayerControlList::overflowMenu);
    EXPECT_EQ(menu[1], (PlayerControlRow{"cast_to_moon", "cast_to_moon", false, true}));
    model_->setControl(PlayerControlList::overflowMenu, "language", true);
    model_->savePlayer();
    settle();
    const std::vector<std::string> expected{"quality", "cast_to_moon", "language"};
    EXPECT_EQ(service_->site.current().settings.ui.overflowMenuButtons, expected);
}

TEST_F(PageSettingsModelTest, AColourBackToItsDefaultLeavesNothingToSaveAndAResetWaitsForTheSave) {
    PlayerSettings stored;
    stored.loop = true;
    stored.ui.controlPanelElements = {{"play_pause"}};
    service_->site.save(stored, std::nullopt);
    loaded();
    const auto& played = PlayerColorChoice::all()[7];
    ASSERT_EQ(played.label, "Seek bar, played");
    EXPECT_EQ(model_->colorOf(played), "rgb(255, 255, 255)");
    model_->setColor(played, "rgb(0, 128, 255)");
    EXPECT_EQ(model_->player()->ui.seekBarColors->played, "rgb(0, 128, 255)");
    EXPECT_FALSE(model_->isDefaultColor(played));
    model_->setColor(played, std::nullopt);
    EXPECT_TRUE(model_->isDefaultColor(played));
    EXPECT_FALSE(model_->hasUnsavedPlayer());

    model_->resetPlayer();
    EXPECT_EQ(*model_->player(), PlayerSettings{});
    EXPECT_EQ(namesOn(PlayerControlList::controlBar), *PlayerUISettings::desktopDefaults().controlPanelElements);
    EXPECT_EQ(service_->site.current().settings, stored) << "nothing changes before the save";
    model_->savePlayer();
    settle();
    EXPECT_EQ(service_->site.current().settings, PlayerSettings{});
}

TEST_F(PageSettingsModelTest, AStylesheetIsShownWithWhatItLoadsBeforeItIsLinked) {
    loaded();
    model_->readStylesheet("http://fonts.example.com/css");
    settle();
    EXPECT_EQ(model_->problem(),
              "\u201chttp://fonts.example.com/css\u201d is not the address of a stylesheet. Use an address that starts "
              "with https://.");
    EXPECT_FALSE(model_->readStylesheet());

    model_->readStylesheet("https://fonts.example.com/css");
    settle();
    ASSERT_TRUE(model_->readStylesheet());
    EXPECT_EQ(model_->readStylesheet()->families, std::vector<std::string>{"Lora"});
    EXPECT_TRUE(service_->current.stylesheets.empty());
    model_->linkStylesheet();
    settle();
    EXPECT_FALSE(model_->readStylesheet());
    ASSERT_EQ(model_->fonts()->stylesheets.size(), 1u);
    EXPECT_EQ(model_->fonts()->stylesheets.front().url, "https://fonts.example.com/css");

    model_->removeFonts();
    settle();
    EXPECT_TRUE(model_->fonts()->stylesheets.empty());
}

TEST_F(PageSettingsModelTest, ThePreviewPlaysTheOptionsAsEditedUntilItIsStopped) {
    loaded();
    model_->changePlayer([](PlayerSettings& settings) { settings.loop = true; });
    std::optional<std::string> opened;
    model_->preview([&](const std::string& page) { opened = page; });
    EXPECT_TRUE(model_->isPreparingPreview());
    queue_.runUntil([&] { return opened.has_value(); });
    EXPECT_EQ(opened, "http://localhost:8800/harbour");
    EXPECT_FALSE(model_->isPreparingPreview());
    ASSERT_TRUE(service_->served);
    EXPECT_TRUE(service_->served->loop);
    EXPECT_FALSE(service_->site.current().settings.loop) << "a preview saves nothing";
    model_->stopPreview();
    EXPECT_TRUE(service_->wasStopped);
}

}  // namespace
}  // namespace vorlen::app
