#pragma once

#include <QColor>
#include <QString>

class QApplication;
class QWidget;

namespace vorlen::shell {

enum class ColorScheme { light, dark };

// The scheme the person asked for: VORLEN_COLOR_SCHEME ("light" or "dark"),
// else the desktop's preference (GTK_THEME ending in ":dark", or GNOME's
// color-scheme), else light.
ColorScheme preferredColorScheme();

// The colours of one scheme, for the few places that paint themselves.
struct Colors {
    QColor window, surface, text, secondaryText, border, accent, accentText, error, success;
    static Colors of(ColorScheme scheme);
};

// The Fusion style with the scheme's palette, the interface font and the
// stylesheet of the window's named parts.
void applyAppearance(QApplication& application, ColorScheme scheme);
ColorScheme currentColorScheme();

// Marks a widget for the stylesheet: "heading", "secondary", "error", "card", "primary"...
void setRole(QWidget* widget, const char* role);

}  // namespace vorlen::shell
