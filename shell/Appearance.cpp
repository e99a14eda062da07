#include "shell/Appearance.hpp"

#include <QApplication>
#include <QFont>
#include <QPalette>
#include <QProcess>
#include <QStyle>
#include <QStyleFactory>
#include <QWidget>

#include <optional>

namespace vorlen::shell {

namespace {

ColorScheme current = ColorScheme::light;

std::optional<ColorScheme> desktopScheme() {
    QString gtkTheme = qEnvironmentVariable("GTK_THEME");
    if (gtkTheme.endsWith(":dark", Qt::CaseInsensitive)) return ColorScheme::dark;
    QProcess gsettings;
    gsettings.start("gsettings", {"get", "org.gnome.desktop.interface", "color-scheme"});
    // A desktop without gsettings answers nothing; the window must not wait for it.
    if (!gsettings.waitForFinished(500)) {
        gsettings.kill();
        gsettings.waitForFinished(100);
        return std::nullopt;
    }
    QString answer = QString::fromUtf8(gsettings.readAllStandardOutput()).trimmed();
    if (answer.contains("dark")) return ColorScheme::dark;
    if (answer.contains("light") || answer.contains("default")) return ColorScheme::light;
    return std::nullopt;
}

QString styleSheet(const Colors& c) {
    auto name = [](const QColor& color) { return color.name(QColor::HexArgb); };
    QColor hover = c.accent.lighter(112);
    QColor subtleFill = c.window == c.surface ? c.surface.darker(104) : c.window;
    return QString(R"(
QLabel[role="heading"] { font-size: 17pt; font-weight: 600; }
QLabel[role="subheading"] { font-size: 12pt; font-weight: 600; }
QLabel[role="secondary"] { color: %2; }
QLabel[role="error"] { color: %7; }
QLabel[role="success"] { color: %8; }
QLabel[role="value"] { font-size: 13pt; font-weight: 600; }
QLabel[role="brand"] { font-size: 13pt; font-weight: 700; }
QFrame[role="card"] { background: %3; border: 1px solid %4; border-radius: 10px; }
QFrame[role="card"] QLabel { background: transparent; }
QWidget[role="header"] { background: %3; border-bottom: 1px solid %4; }
QLabel[role="banner"] { background: %9; border-bottom: 1px solid %4; padding: 10px 24px; }
QPushButton { padding: 6px 16px; border: 1px solid %4; border-radius: 6px; background: %3; color: %1; min-height: 20px; }
QPushButton:hover { border-color: %5; }
QPushButton:focus { border: 2px solid %5; padding: 5px 15px; outline: none; }
QPushButton:disabled { color: %2; background: %9; }
QPushButton[role="primary"] { background: %5; color: %6; border-color: %5; font-weight: 600; }
QPushButton[role="primary"]:hover { background: %10; }
QPushButton[role="primary"]:focus { border: 2px solid %1; padding: 5px 15px; }
QPushButton[role="primary"]:disabled { background: %9; color: %2; border-color: %4; }
QToolButton[role="thumbnail"] { border: 2px solid transparent; border-radius: 6px; padding: 1px; background: transparent; }
QToolButton[role="thumbnail"]:hover { border-color: %4; }
QToolButton[role="thumbnail"]:checked { border-color: %5; }
QToolButton[role="thumbnail"]:focus { border-color: %10; }
QLineEdit, QPlainTextEdit, QListWidget { border: 1px solid %4; border-radius: 6px; padding: 4px 6px; background: %3; }
QLineEdit:focus, QPlainTextEdit:focus, QListWidget:focus { border: 2px solid %5; padding: 3px 5px; }
QToolButton, QListWidget { outline: none; }
QDialogButtonBox { dialogbuttonbox-buttons-have-icons: 0; }
QLineEdit[readOnly="true"] { background: %9; }
QProgressBar { border: 1px solid %4; border-radius: 5px; background: %9; height: 10px; text-align: center; }
QProgressBar::chunk { background: %5; border-radius: 4px; }
QTabWidget::pane { border: 1px solid %4; border-radius: 8px; top: -1px; background: %3; }
)")
        .arg(name(c.text), name(c.secondaryText), name(c.surface), name(c.border), name(c.accent), name(c.accentText),
             name(c.error), name(c.success), name(subtleFill))
        .arg(name(hover));
}

}  // namespace

Colors Colors::of(ColorScheme scheme) {
    if (scheme == ColorScheme::dark)
        return {QColor("#1c1c1e"), QColor("#2a2a2d"), QColor("#f2f2f4"), QColor("#a1a1a8"), QColor("#434348"),
                QColor("#4c9bff"), QColor("#0b1220"), QColor("#ff7a70"), QColor("#5bd27a")};
    return {QColor("#f4f5f7"), QColor("#ffffff"), QColor("#1d1d1f"), QColor("#62626a"), QColor("#d2d2d8"),
            QColor("#0a62d0"), QColor("#ffffff"), QColor("#c0362c"), QColor("#1e7d34")};
}

ColorScheme preferredColorScheme() {
    QString asked = qEnvironmentVariable("VORLEN_COLOR_SCHEME").toLower();
    if (asked == "dark") return ColorScheme::dark;
    if (asked == "light") return ColorScheme::light;
    return desktopScheme().value_or(ColorScheme::light);
}

ColorScheme currentColorScheme() { return current; }

void applyAppearance(QApplication& application, ColorScheme scheme) {
    current = scheme;
    application.setStyle(QStyleFactory::create("Fusion"));
    Colors c = Colors::of(scheme);
    QPalette palette;
    palette.setColor(QPalette::Window, c.window);
    palette.setColor(QPalette::WindowText, c.text);
    palette.setColor(QPalette::Base, c.surface);
    palette.setColor(QPalette::AlternateBase, c.window);
    palette.setColor(QPalette::Text, c.text);
    palette.setColor(QPalette::Button, c.surface);
    palette.setColor(QPalette::ButtonText, c.text);
    palette.setColor(QPalette::ToolTipBase, c.surface);
    palette.setColor(QPalette::ToolTipText, c.text);
    palette.setColor(QPalette::PlaceholderText, c.secondaryText);
    palette.setColor(QPalette::Highlight, c.accent);
    palette.setColor(QPalette::HighlightedText, c.accentText);
    palette.setColor(QPalette::Link, c.accent);
    palette.setColor(QPalette::Mid, c.border);
    palette.setColor(QPalette::Dark, c.border.darker(130));
    palette.setColor(QPalette::Light, c.surface.lighter(110));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, c.secondaryText);
    application.setPalette(palette);
    QFont font("DejaVu Sans");
    font.setPointSizeF(10);
    application.setFont(font);
    application.setStyleSheet(styleSheet(c));
}

void setRole(QWidget* widget, const char* role) {
    widget->setProperty("role", QString::fromUtf8(role));
    widget->style()->unpolish(widget);
    widget->style()->polish(widget);
}

}  // namespace vorlen::shell
