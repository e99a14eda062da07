#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/MainQueue.hpp"
#include "app/ModelWork.hpp"
#include "app/PageSettingsService.hpp"

namespace vorlen::app {

// The two lists of the player's controls that the screen edits.
enum class PlayerControlList { controlBar, overflowMenu };

// One element of such a list, on or off. Rows keep their places while the person
// edits, so that a control turned on stands where it stood.
struct PlayerControlRow {
    std::string name;
    std::string label;
    bool isUseful = true;  // false: it can do nothing for a video of this site
    bool isOn = false;
    bool operator==(const PlayerControlRow&) const = default;
};

// A colour of the player that the screen offers, with the player's own colour.
struct PlayerColorChoice {
    std::string label;
    std::string defaultValue;
    // The field in the options; makes the group it belongs to when there is none.
    std::optional<std::string>& (*field)(PlayerSettings&);

    // In the order of the screen: the controls, then the seek bar.
    static const std::vector<PlayerColorChoice>& all();
};

// The page settings of one site as their window shows them: the player's options
// being edited with their rules, the hosted font and the linked stylesheets, and a
// preview of the player as edited. Lives on the main thread; the bucket is read and
// changed on tasks, one change at a time, and what they end with comes back through
// the main queue.
class PageSettingsModel : public std::enable_shared_from_this<PageSettingsModel> {
public:
    static std::shared_ptr<PageSettingsModel> make(std::shared_ptr<PageSettingsService> service, MainQueue& mainQueue);

    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    bool isLoaded() const { return player_.has_value(); }
    // True while the bucket is read or changed; other changes wait for its end.
    bool isWorking() const { return work_.isRunning(); }
    // The words of the last failure, until the next change starts.
    const std::optional<std::string>& problem() const { return problem_; }
    // What the last change has to tell, such as the rule of autoplay.
    const std::optional<std::string>& notice() const { return notice_; }

    // The options being edited, once they are read.
    const PlayerSettings* player() const { return player_ ? &*player_ : nullptr; }
    bool hasUnsavedPlayer() const { return player_ && saved_ && *player_ != *saved_; }
    const std::vector<PlayerControlRow>& controls(PlayerControlList list) const;
    // The colour as the player shows it: the option, or the player's own colour.
    std::string colorOf(const PlayerColorChoice& choice) const;
    bool isDefaultColor(const PlayerColorChoice& choice) const;

    const std::optional<SitePageFonts::Current>& fonts() const { return fonts_; }
    // A stylesheet read and shown, which the person has not linked yet.
    const std::optional<SiteStylesheet>& readStylesheet() const { return readStylesheet_; }
    bool isPreparingPreview() const { return isPreparingPreview_; }

    // Reads the options and the fonts; the options being edited start again from what is saved.
    void load();
    // Turning autoplay on turns muted on, since browsers start only a silent video by itself.
    void changePlayer(const std::function<void(PlayerSettings&)>& change);
    void setControl(PlayerControlList list, const std::string& name, bool isOn);
    // Absent: the player's own colour.
    void setColor(const PlayerColorChoice& choice, std::optional<std::string> color);
    // Saves over the options as they were read; when another computer saved
    // meanwhile, nothing is saved and the options are read again.
    void savePlayer();
    // Every option back to the player's own, for the person to save (after PlayerWords' question).
    void resetPlayer();

    void addFontFiles(const std::vector<std::filesystem::path>& files);
    void addGoogleFamily(const std::string& family);
    void readStylesheet(const std::string& pasted);
    void linkStylesheet();
    void forgetStylesheet();
    // After PageFontWords' question.
    void removeFonts();

    // Serves a preview of the player as edited; onServing hears the page to open.
    // A new preview ends the one before.
    void preview(std::function<void(const std::string&)> onServing);
    void stopPreview();

private:
    PageSettingsModel(std::shared_ptr<PageSettingsService> service, MainQueue& mainQueue)
        : service_(std::move(service)), mainQueue_(mainQueue), work_(mainQueue) {}
    void changed();
    // Runs work on a task unless a change already runs.
    void run(std::function<ModelWork<PageSettingsModel>::Ending(PageSettingsService&)> work);
    void showPlayer(PlayerSettings::Stored stored);
    void fontsChanged(SitePageFonts::Current fonts);

    std::shared_ptr<PageSettingsService> service_;
    MainQueue& mainQueue_;
    std::vector<std::function<void()>> observers_;
    ModelWork<PageSettingsModel> work_;

    std::optional<std::string> problem_;
    std::optional<std::string> notice_;
    std::optional<PlayerSettings> player_;
    std::optional<PlayerSettings> saved_;
    std::optional<std::string> etag_;
    std::vector<PlayerControlRow> controlBar_;
    std::vector<PlayerControlRow> overflowMenu_;
    std::optional<SitePageFonts::Current> fonts_;
    std::optional<SiteStylesheet> readStylesheet_;
    bool isPreparingPreview_ = false;
    std::uint64_t previewGeneration_ = 0;
    std::optional<Task<void>> preview_;
};

}  // namespace vorlen::app
