#include "shell/DesktopApp.hpp"

#include <cstdlib>

#include <QApplication>

#include "app/CoreServices.hpp"
#include "app/Interrupts.hpp"
#include "shell/Appearance.hpp"
#include "shell/MainWindow.hpp"
#include "shell/QtMainQueue.hpp"

namespace vorlen::shell {

bool hasDisplay() { return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY"); }

int runDesktop(int& argc, char** argv, const std::vector<std::filesystem::path>& files) {
    QApplication application(argc, argv);
    QApplication::setApplicationName("Vorlen");
    QApplication::setApplicationVersion(VORLEN_VERSION);
    QApplication::setDesktopFileName("vorlen");
    applyAppearance(application, preferredColorScheme());
    // The queue outlives the model, whose tasks post into it until they are joined.
    QtMainQueue queue;
    auto store = app::LocalSettingsStore::standard();
    app::AppModel model(store, app::coreServices(store), queue);
    MainWindow window(model, queue);
    const bool isFirstStart = model.settings().sites.empty();
    window.start();
    // The local site lets a person publish at once; a site of their own is set up beside
    // it, unless the person came with a video to publish.
    if (!files.empty()) window.openFiles(files);
    else if (isFirstStart) window.openSetup();
    // SIGTERM and Ctrl-C close the window as the person would: a running publish
    // stops and removes what it uploaded before the process ends.
    app::Interrupts::Listener interrupts([&queue, &window] { queue.post([&window] { window.close(); }); },
                                         app::Interrupts::bucketCleanupHint);
    return application.exec();
}

}  // namespace vorlen::shell
