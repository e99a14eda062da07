#pragma once

// What the window's tests share: a model over temporary settings and a local
// site, the window itself, and ways to find its parts, wait for its screens,
// check its accessible names and save screenshots.

#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>

#include <QAccessible>
#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QProgressBar>
#include <QSlider>
#include <QTest>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "app/CoreServices.hpp"
#include "app/SecretStore.hpp"
#include "core/base/Files.hpp"
#include "core/storage/FolderBucket.hpp"
#include "shell/Appearance.hpp"
#include "shell/MainWindow.hpp"
#include "shell/QtMainQueue.hpp"
#include "testing/MediaClip.hpp"

namespace vorlen::shell {

namespace fs = std::filesystem;

struct Desk {
    fs::path home = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-shell-test-");
    DirectoryRemover remover{home};
    QtMainQueue queue;
    std::unique_ptr<app::AppModel> model;
    std::unique_ptr<MainWindow> window;
    fs::path siteFolder = home / "films";
    app::SiteID site;

    // Services that a test puts in place of the core's, such as a Vimeo account of its own.
    std::function<void(app::AppModel::Services&)> changeServices;

    explicit Desk(std::optional<app::UploadLimit> uploadLimit = std::nullopt,
                  std::function<void(app::AppModel::Services&)> changeServices = nullptr)
        : changeServices(std::move(changeServices)) {
        for (auto [name, folder] : {std::pair{"HOME", "home"}, {"XDG_CONFIG_HOME", "config"}, {"XDG_DATA_HOME", "data"},
                                    {"XDG_CACHE_HOME", "cache"}})
            ::setenv(name, (home / folder).c_str(), 1);
        // The tests' secrets stay in their folder, never in the desktop's keyring.
        ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
        makeModel();
        site = model->addLocalSite("films", siteFolder);
        if (uploadLimit)
            model->changeSettings([&](app::LocalSettings& settings) { settings.sites.front().uploadLimit = *uploadLimit; });
        startWindow();
    }

    // The program's next start over the same settings and secrets.
    void restart() {
        window.reset();
        model.reset();
        makeModel();
        startWindow();
    }

    ~Desk() {
        // The window's jobs end, clean-ups included, before the site's folder goes.
        window.reset();
        model.reset();
    }

    void makeModel() {
        app::LocalSettingsStore store(home / "config" / "vorlen" / "settings.json");
        auto services = app::coreServices(store);
        services.secrets = std::make_shared<app::FileSecretStore>(home / "secrets.json");
        if (changeServices) changeServices(services);
        model = std::make_unique<app::AppModel>(store, services, queue);
    }

    void startWindow() {
        window = std::make_unique<MainWindow>(*model, queue);
        window->start();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        window->activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(window.get()));
    }

    // Where the local site keeps an object of its bucket.
    fs::path object(const std::string& key) const { return siteFolder / "objects" / key; }

    const app::Screen& screen() const { return window->workspace()->screen(); }

    // The screen in a few words, for a failed expectation.
    std::string describe() const {
        if (auto* failure = screen().as<app::Failure>()) return failure->title + ": " + failure->message;
        return "screen " + std::to_string(screen().value.index());
    }

    template <class State>
    const State* waitFor(int seconds = 60) {
        // A failure or a return to the start ends the wait for any other screen.
        auto settled = [&] {
            return screen().as<State>() || screen().as<app::Failure>() || screen().as<app::Screen::Start>();
        };
        if (!QTest::qWaitFor(settled, seconds * 1000)) return nullptr;
        return screen().as<State>();
    }

    // The visible widget of a type with this accessible name, or with this text on a button.
    template <class Widget = QWidget>
    Widget* find(const QString& name, QWidget* within = nullptr) const {
        for (auto* widget : (within ? within : window.get())->findChildren<Widget*>()) {
            if (!widget->isVisible()) continue;
            if (widget->accessibleName() == name) return widget;
            if (auto* button = qobject_cast<QAbstractButton*>(widget); button && button->text() == name) return widget;
        }
        return nullptr;
    }

    void click(const QString& name, QWidget* within = nullptr) {
        auto* widget = find<QAbstractButton>(name, within);
        ASSERT_NE(widget, nullptr) << name.toStdString();
        QTest::mouseClick(widget, Qt::LeftButton);
    }
};

// A part of the window by its object name; the window's own classes carry no
// meta-object of their own, so findChild cannot tell them by type.
template <class Widget>
Widget* named(QWidget* within, const char* name) {
    return static_cast<Widget*>(within->findChild<QWidget*>(name));
}

// The visible dialog of a type over a window, once it is there; none when none comes.
template <class Dialog>
Dialog* dialogOver(QWidget* window) {
    Dialog* found = nullptr;
    const bool came = QTest::qWaitFor([&] {
        for (auto* dialog : window->findChildren<Dialog*>())
            if (dialog->isVisible()) found = dialog;
        return found != nullptr;
    }, 10000);
    return came ? found : nullptr;
}

// The text of the visible label with this accessible name.
inline QString shownLabelText(QWidget* window, const QString& name) {
    for (auto* label : window->findChildren<QLabel*>())
        if (label->isVisible() && label->accessibleName() == name) return label->text();
    return "(no label " + name + ")";
}

// Every control that the keyboard can reach, and every indicator, says what it is.
inline void expectAccessibleNames(QWidget* top) {
    QStringList missing;
    for (auto* widget : top->findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(top)) continue;
        bool reachable = widget->focusPolicy() & Qt::TabFocus;
        bool indicator = qobject_cast<QProgressBar*>(widget) || qobject_cast<QSlider*>(widget);
        if (!reachable && !indicator) continue;
        // A spin box's line edit stands for the spin box.
        QWidget* named = qobject_cast<QAbstractSpinBox*>(widget->parentWidget()) ? widget->parentWidget() : widget;
        QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(named);
        QString name = accessible ? accessible->text(QAccessible::Name) : QString();
        if (name.trimmed().isEmpty()) missing << QString("%1 %2").arg(named->metaObject()->className(), named->objectName());
    }
    EXPECT_TRUE(missing.isEmpty()) << missing.join(", ").toStdString();
}

// Saves the widget in the light and the dark scheme, as <name>-light.png and <name>-dark.png.
// The light one is taken at once, so that a passing state is caught as it is.
inline void screenshot(QWidget* widget, const QString& name) {
    QDir().mkpath(VORLEN_SCREENSHOT_DIR);
    auto& application = *static_cast<QApplication*>(QApplication::instance());
    auto save = [&](const char* scheme) {
        QString file = QString("%1/%2-%3.png").arg(VORLEN_SCREENSHOT_DIR, name, scheme);
        EXPECT_TRUE(widget->grab().save(file)) << file.toStdString();
    };
    save("light");
    applyAppearance(application, ColorScheme::dark);
    QTest::qWait(30);
    save("dark");
    applyAppearance(application, ColorScheme::light);
}

// A published folder without an encode: its record, its master playlist and a poster.
inline void publish(FolderBucket& bucket, int number, const std::string& posterJpeg) {
    const std::array<const char*, 4> subjects{"Harbour", "Lighthouse", "Market", "Ferry"};
    const std::string folder = fmt::format("clip-{:02}", number);
    const auto created = *parseIso8601("2026-01-15T12:00:00Z") + std::chrono::days(number);
    VideoMetadata record{VideoDetails(fmt::format("{} {:02}", subjects[std::size_t(number) % subjects.size()], number),
                                      std::nullopt, std::nullopt,
                                      number % 3 == 0 ? VideoVisibility::unlisted : VideoVisibility::publicVideo),
                         PosterFile{"poster-0a1b2c3d.jpg", {640, 360}},
                         60.0 + number,
                         PixelSize{640, 360},
                         created,
                         created,
                         std::nullopt,
                         std::nullopt};
    bucket.put(folder + "/poster-0a1b2c3d.jpg", RequestBody::bytes(posterJpeg), {});
    bucket.put(folder + "/video.json", RequestBody::bytes(record.encoded()), {});
    bucket.put(folder + "/master.m3u8", RequestBody::bytes("#EXTM3U\n"), {});
}

// A 320x180 clip of three seconds with a stereo tone.
inline fs::path makeClip(const testing::ClipFolder& clips, const std::string& name = "harbour.mp4") {
    return clips.make(name, testing::lavfiVideo(320, 180, 3) + " " + testing::lavfiTone(3) +
                                " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest");
}

}  // namespace vorlen::shell
