#include "shell/Appearance.hpp"

#include <cstdlib>

#include <QApplication>
#include <QPalette>
#include <gtest/gtest.h>

namespace vorlen::shell {

TEST(AppearanceTest, TheSchemeComesFromTheOverrideThenTheDesktop) {
    ::setenv("VORLEN_COLOR_SCHEME", "Dark", 1);
    ::setenv("GTK_THEME", "Adwaita", 1);
    EXPECT_EQ(preferredColorScheme(), ColorScheme::dark);
    ::setenv("VORLEN_COLOR_SCHEME", "light", 1);
    ::setenv("GTK_THEME", "Adwaita:dark", 1);
    EXPECT_EQ(preferredColorScheme(), ColorScheme::light);
    ::unsetenv("VORLEN_COLOR_SCHEME");
    EXPECT_EQ(preferredColorScheme(), ColorScheme::dark);
    ::unsetenv("GTK_THEME");

    // Text stays readable on its background in both schemes.
    auto& application = *static_cast<QApplication*>(QApplication::instance());
    for (auto scheme : {ColorScheme::dark, ColorScheme::light}) {
        applyAppearance(application, scheme);
        QPalette palette = QApplication::palette();
        double contrast = std::abs(palette.color(QPalette::WindowText).lightnessF() - palette.color(QPalette::Window).lightnessF());
        EXPECT_GT(contrast, 0.7);
        EXPECT_EQ(palette.color(QPalette::Window).lightnessF() < 0.5, scheme == ColorScheme::dark);
    }
}

}  // namespace vorlen::shell
