#include <gtest/gtest.h>

#include <QApplication>

#include "shell/Appearance.hpp"

// The window's tests share one application object, as the program does.
int main(int argc, char** argv) {
    QApplication application(argc, argv);
    vorlen::shell::applyAppearance(application, vorlen::shell::ColorScheme::light);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
