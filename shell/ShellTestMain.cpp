#include <gtest/gtest.h>

#include <QApplication>

#include "core/publish/Vips.hpp"
#include "shell/Appearance.hpp"

// The window's tests share one application object, as the program does.
int main(int argc, char** argv) {
    // As the program does: libvips sets an environment variable as it starts, before any tool runs.
    vorlen::startVips();
    QApplication application(argc, argv);
    vorlen::shell::applyAppearance(application, vorlen::shell::ColorScheme::light);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
