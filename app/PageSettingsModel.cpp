#include "app/PageSettingsModel.hpp"

#include <algorithm>

#include "app/PageFontWords.hpp"
#include "app/PlayerWords.hpp"
#include "core/base/VorlenError.hpp"
#include "core/site/PlayerElement.hpp"

namespace vorlen::app {

namespace {

template <class Group>
Group& groupOf(std::optional<Group>& group) {
    if (!group) group.emplace();
    return *group;
}

// The stored list, or the player's own when none is stored; then the other
// elements of the list's place, off, in the order of the table.
std::vector<PlayerControlRow> controlRows(const std::optional<std::vector<std::string>>& stored,
                                          const std::optional<std::vector<std::string>>& defaults, std::int64_t places) {
    std::vector<PlayerControlRow> rows;
    for (const auto& name : stored ? *stored : *defaults) {
        const auto element = PlayerElement::named(name);
        rows.push_back(element ? PlayerControlRow{name, std::string(element->label), element->appliesToVorlenVideos, true}
                               : PlayerControlRow{name, name, false, true});
    }
    for (const auto& element : PlayerElement::inPlace(places))
        if (std::none_of(rows.begin(), rows.end(), [&](const auto& row) { return row.name == element.name; }))
            rows.push_back({std::string(element.name), std::string(element.label), element.appliesToVorlenVideos, false});
    return rows;
}

std::vector<std::string> namesOn(const std::vector<PlayerControlRow>& rows) {
    std::vector<std::string> names;
    for (const auto& row : rows)
        if (row.isOn) names.push_back(row.name);
    return names;
}

// A group of colours whose every colour is the player's own is no group at all,
// so that turning a colour back to its default leaves nothing unsaved.
template <class Group>
void dropEmpty(std::optional<Group>& group) {
    if (group && *group == Group{}) group.reset();
}

}  // namespace

const std::vector<PlayerColorChoice>& PlayerColorChoice::all() {
    static const auto controls = PlayerColors::defaults();
    static const auto seekBar = SeekBarColors::defaults();
    static const std::vector<PlayerColorChoice> choices{
        {"Controls", *controls.controls, [](PlayerSettings& s) -> auto& { return groupOf(s.colors).controls; }},
        {"Button background", *controls.buttonBackground,
         [](PlayerSettings& s) -> auto& { return groupOf(s.colors).buttonBackground; }},
        {"Fade", *controls.fade, [](PlayerSettings& s) -> auto& { return groupOf(s.colors).fade; }},
        {"Menu background", *controls.menuBackground,
         [](PlayerSettings& s) -> auto& { return groupOf(s.colors).menuBackground; }},
        {"Menu text", *controls.menuText, [](PlayerSettings& s) -> auto& { return groupOf(s.colors).menuText; }},
        {"Seek bar", *seekBar.base, [](PlayerSettings& s) -> auto& { return groupOf(s.ui.seekBarColors).base; }},
        {"Seek bar, buffered", *seekBar.buffered,
         [](PlayerSettings& s) -> auto& { return groupOf(s.ui.seekBarColors).buffered; }},
        {"Seek bar, played", *seekBar.played, [](PlayerSettings& s) -> auto& { return groupOf(s.ui.seekBarColors).played; }},
    };
    return choices;
}

std::shared_ptr<PageSettingsModel> PageSettingsModel::make(std::shared_ptr<PageSettingsService> service, MainQueue& mainQueue) {
    return std::shared_ptr<PageSettingsModel>(new PageSettingsModel(std::move(service), mainQueue));
}

void PageSettingsModel::changed() {
    for (const auto& observer : observers_) observer();
}

void PageSettingsModel::run(std::function<ModelWork<PageSettingsModel>::Ending(PageSettingsService&)> work) {
    if (work_.isRunning()) return;
    problem_.reset();
    notice_.reset();
    work_.run(
        weak_from_this(), [work = std::move(work), service = service_] { return work(*service); },
        [](PageSettingsModel& self, const std::string& words) {
            self.problem_ = words;
            self.changed();
        });
    changed();
}

void PageSettingsModel::load() {
    run([](PageSettingsService& service) {
        auto player = service.player();
        auto fonts = service.fonts();
        return [player = std::move(player), fonts = std::move(fonts)](PageSettingsModel& self) {
            self.fonts_ = fonts;
            self.showPlayer(player);
        };
    });
}

void PageSettingsModel::showPlayer(PlayerSettings::Stored stored) {
    player_ = stored.settings;
    saved_ = stored.settings;
    etag_ = stored.etag;
    const auto defaults = PlayerUISettings::desktopDefaults();
    controlBar_ = controlRows(player_->ui.controlPanelElements, defaults.controlPanelElements, PlayerElement::Places::controlBar);
    overflowMenu_ =
        controlRows(player_->ui.overflowMenuButtons, defaults.overflowMenuButtons, PlayerElement::Places::overflowMenu);
    changed();
}

const std::vector<PlayerControlRow>& PageSettingsModel::controls(PlayerControlList list) const {
    return list == PlayerControlList::controlBar ? controlBar_ : overflowMenu_;
}

std::string PageSettingsModel::colorOf(const PlayerColorChoice& choice) const {
    if (!player_) return choice.defaultValue;
    auto copy = *player_;
    return choice.field(copy).value_or(choice.defaultValue);
}

bool PageSettingsModel::isDefaultColor(const PlayerColorChoice& choice) const {
    if (!player_) return true;
    auto copy = *player_;
    return !choice.field(copy);
}

void PageSettingsModel::changePlayer(const std::function<void(PlayerSettings&)>& change) {
    if (!player_) return;
    const bool hadAutoplay = player_->autoplay;
    change(*player_);
    dropEmpty(player_->colors);
    dropEmpty(player_->ui.seekBarColors);
    notice_.reset();
    if (player_->autoplay && !hadAutoplay && !player_->muted) {
        player_->muted = true;
        notice_ = PlayerWords::mutedWithAutoplay;
    }
    changed();
}

void PageSettingsModel::setControl(PlayerControlList list, const std::string& name, bool isOn) {
    auto& rows = list == PlayerControlList::controlBar ? controlBar_ : overflowMenu_;
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto& each) { return each.name == name; });
    if (row == rows.end() || row->isOn == isOn) return;
    row->isOn = isOn;
    changePlayer([&](PlayerSettings& settings) {
        (list == PlayerControlList::controlBar ? settings.ui.controlPanelElements : settings.ui.overflowMenuButtons) =
            namesOn(rows);
    });
}

void PageSettingsModel::setColor(const PlayerColorChoice& choice, std::optional<std::string> color) {
    changePlayer([&](PlayerSettings& settings) { choice.field(settings) = std::move(color); });
}

void PageSettingsModel::savePlayer() {
    if (!player_) return;
    run([settings = *player_, etag = etag_](PageSettingsService& service) -> ModelWork<PageSettingsModel>::Ending {
        try {
            service.savePlayer(settings, etag);
        } catch (const VorlenError& error) {
            if (!error.is<failure::Conflict>()) throw;
            // Another computer's options: the person sees them and decides again.
            auto current = service.player();
            return [current = std::move(current)](PageSettingsModel& self) {
                self.problem_ = PlayerWords::changedElsewhere;
                self.showPlayer(current);
            };
        }
        auto saved = service.player();
        return [saved = std::move(saved)](PageSettingsModel& self) {
            self.notice_ = PlayerWords::saved;
            self.showPlayer(saved);
        };
    });
}

void PageSettingsModel::resetPlayer() {
    if (!player_) return;
    player_ = PlayerSettings{};
    const auto defaults = PlayerUISettings::desktopDefaults();
    controlBar_ = controlRows(std::nullopt, defaults.controlPanelElements, PlayerElement::Places::controlBar);
    overflowMenu_ = controlRows(std::nullopt, defaults.overflowMenuButtons, PlayerElement::Places::overflowMenu);
    notice_.reset();
    changed();
}

void PageSettingsModel::fontsChanged(SitePageFonts::Current fonts) {
    fonts_ = std::move(fonts);
    notice_ = PageFontWords::changed;
    changed();
}

void PageSettingsModel::addFontFiles(const std::vector<std::filesystem::path>& files) {
    run([files](PageSettingsService& service) {
        service.addFontFiles(files);
        return [fonts = service.fonts()](PageSettingsModel& self) { self.fontsChanged(fonts); };
    });
}

void PageSettingsModel::addGoogleFamily(const std::string& family) {
    run([family](PageSettingsService& service) {
        service.addGoogleFamily(family);
        return [fonts = service.fonts()](PageSettingsModel& self) { self.fontsChanged(fonts); };
    });
}

void PageSettingsModel::readStylesheet(const std::string& pasted) {
    readStylesheet_.reset();
    run([pasted](PageSettingsService& service) {
        return [stylesheet = service.readStylesheet(pasted)](PageSettingsModel& self) {
            self.readStylesheet_ = stylesheet;
            self.changed();
        };
    });
}

void PageSettingsModel::linkStylesheet() {
    if (!readStylesheet_) return;
    run([stylesheet = *readStylesheet_](PageSettingsService& service) {
        service.linkStylesheet(stylesheet);
        return [fonts = service.fonts()](PageSettingsModel& self) {
            self.readStylesheet_.reset();
            self.fontsChanged(fonts);
        };
    });
}

void PageSettingsModel::forgetStylesheet() {
    readStylesheet_.reset();
    changed();
}

void PageSettingsModel::removeFonts() {
    run([](PageSettingsService& service) {
        service.removeFonts();
        return [fonts = service.fonts()](PageSettingsModel& self) { self.fontsChanged(fonts); };
    });
}

void PageSettingsModel::preview(std::function<void(const std::string&)> onServing) {
    if (!player_) return;
    preview_.reset();
    problem_.reset();
    isPreparingPreview_ = true;
    // What an ended preview posted late is dropped.
    const auto generation = ++previewGeneration_;
    std::weak_ptr<PageSettingsModel> weak = weak_from_this();
    const auto onMain = [weak, generation, &queue = mainQueue_](std::function<void(PageSettingsModel&)> work) {
        queue.post([weak, generation, work = std::move(work)] {
            auto self = weak.lock();
            if (self && self->previewGeneration_ == generation) work(*self);
        });
    };
    preview_.emplace(Task<void>::spawn([settings = *player_, service = service_, onMain, onServing = std::move(onServing)] {
        try {
            service->servePreview(settings, [&](const std::string& page) {
                onMain([page, onServing](PageSettingsModel& self) {
                    self.isPreparingPreview_ = false;
                    self.changed();
                    onServing(page);
                });
            });
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            onMain([words = std::string(error.what())](PageSettingsModel& self) {
                self.isPreparingPreview_ = false;
                self.problem_ = words;
                self.changed();
            });
        }
    }));
    changed();
}

void PageSettingsModel::stopPreview() {
    preview_.reset();
    ++previewGeneration_;
    isPreparingPreview_ = false;
    changed();
}

}  // namespace vorlen::app
