#include "shell/DesktopApp.hpp"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>

#include "app/CoreServices.hpp"
#include "shell/Appearance.hpp"
#include "shell/MainWindow.hpp"
#include "shell/QtMainQueue.hpp"

namespace vorlen::shell {

namespace {

int stopPipe[2] = {-1, -1};

void onStopSignal(int) {
    char byte = 1;
    // Only a write is safe in a signal handler; the event loop reads it.
    [[maybe_unused]] auto written = ::write(stopPipe[1], &byte, 1);
}

// SIGTERM and SIGINT close the window as the person would: a running publish
// stops and removes what it uploaded before the process ends.
void closeOnStopSignals(MainWindow& window) {
    if (::pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) return;
    auto* notifier = new QSocketNotifier(stopPipe[0], QSocketNotifier::Read, &window);
    QObject::connect(notifier, &QSocketNotifier::activated, &window, [&window] {
        char byte = 0;
        while (::read(stopPipe[0], &byte, 1) > 0) {
        }
        window.close();
    });
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
}

}  // namespace

bool hasDisplay() { return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY"); }

int runDesktop(int& argc, char** argv) {
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
    window.showSite(model.ensureSite());
    window.show();
    closeOnStopSignals(window);
    return application.exec();
}

}  // namespace vorlen::shell
