#include "shell/PlayerOptionsView.hpp"

#include <cmath>

#include <QCheckBox>
#include <QColorDialog>
#include <QDesktopServices>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QRegularExpression>
#include <QUrl>
#include <QVBoxLayout>

#include "app/PlayerWords.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/WindowParts.hpp"

namespace vorlen::shell {

namespace {

using namespace windowParts;

// The colour that CSS colour text stands for: the rgb() and rgba() forms that this
// screen writes, or a hex colour or a name; invalid for anything else.
QColor cssColor(const std::string& css) {
    static const QRegularExpression rgb(
        R"(^rgba?\(\s*(\d+)\s*,\s*(\d+)\s*,\s*(\d+)\s*(?:,\s*([\d.]+)\s*)?\)$)");
    const auto match = rgb.match(text(css));
    if (!match.hasMatch()) return QColor::fromString(text(css));
    QColor color(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt());
    if (match.hasCaptured(4)) color.setAlphaF(float(match.captured(4).toDouble()));
    return color;
}

std::string cssText(const QColor& color) {
    if (color.alpha() == 255) return QString("rgb(%1, %2, %3)").arg(color.red()).arg(color.green()).arg(color.blue()).toStdString();
    const double alpha = std::round(color.alphaF() * 100) / 100;
    return QString("rgba(%1, %2, %3, %4)").arg(color.red()).arg(color.green()).arg(color.blue()).arg(alpha).toStdString();
}

}  // namespace

PlayerOptionsView::PlayerOptionsView(std::shared_ptr<app::PageSettingsModel> model, QWidget* parent)
    : QWidget(parent),
      openPage([](const QString& page) { QDesktopServices::openUrl(QUrl(page)); }),
      model_(std::move(model)) {
    auto* layout = new QVBoxLayout(this);
    auto* columns = new QHBoxLayout;
    layout->addLayout(columns, 1);

    auto* controlsBox = new QGroupBox("Controls");
    auto* controlsLayout = new QHBoxLayout(controlsBox);
    controlBar_ = addControlList(app::PlayerControlList::controlBar);
    overflowMenu_ = addControlList(app::PlayerControlList::overflowMenu);
    for (auto [list, title] : {std::pair{controlBar_, "Control bar"}, {overflowMenu_, "Overflow menu"}}) {
        auto* column = new QVBoxLayout;
        auto* heading = label(nullptr, title);
        heading->setText(title);
        column->addWidget(heading);
        column->addWidget(list, 1);
        controlsLayout->addLayout(column);
    }
    auto* note = label("secondary", "Controls note");
    note->setText("Controls in italics can do nothing for the videos of this site; the player's own lists hold some of them.");
    auto* controlsColumn = new QVBoxLayout;
    controlsColumn->addWidget(controlsBox, 1);
    controlsColumn->addWidget(note);
    columns->addLayout(controlsColumn, 3);

    auto* side = new QVBoxLayout;
    auto* playback = new QGroupBox("Playback");
    auto* playbackLayout = new QVBoxLayout(playback);
    autoplay_ = new QCheckBox("Autoplay");
    muted_ = new QCheckBox("Muted");
    loop_ = new QCheckBox("Loop");
    for (auto* box : {autoplay_, muted_, loop_}) playbackLayout->addWidget(box, 0, Qt::AlignLeft);
    QObject::connect(autoplay_, &QCheckBox::toggled, this,
                     [this](bool on) { model_->changePlayer([on](PlayerSettings& settings) { settings.autoplay = on; }); });
    QObject::connect(muted_, &QCheckBox::toggled, this,
                     [this](bool on) { model_->changePlayer([on](PlayerSettings& settings) { settings.muted = on; }); });
    QObject::connect(loop_, &QCheckBox::toggled, this,
                     [this](bool on) { model_->changePlayer([on](PlayerSettings& settings) { settings.loop = on; }); });
    side->addWidget(playback);

    auto* colorsBox = new QGroupBox("Colours");
    auto* grid = new QGridLayout(colorsBox);
    int line = 0;
    for (const auto& choice : app::PlayerColorChoice::all()) {
        const auto name = text(choice.label);
        auto* swatch = button(QString(), nullptr);
        swatch->setAccessibleName(name);
        swatch->setFixedSize(36, 22);
        auto* value = label("secondary", name + " value");
        value->setWordWrap(false);
        value->setMinimumWidth(value->fontMetrics().horizontalAdvance("rgba(255, 255, 255, 0.54)"));
        auto* reset = button("Default");
        reset->setAccessibleName(name + " default");
        auto* caption = new QLabel(name);
        grid->addWidget(caption, line, 0);
        grid->addWidget(swatch, line, 1);
        grid->addWidget(value, line, 2);
        grid->addWidget(reset, line, 3);
        QObject::connect(swatch, &QPushButton::clicked, this, [this, &choice] { chooseColor(choice); });
        QObject::connect(reset, &QPushButton::clicked, this, [this, &choice] { model_->setColor(choice, std::nullopt); });
        colors_.push_back({swatch, value, reset});
        ++line;
    }
    grid->setColumnStretch(2, 1);
    side->addWidget(colorsBox);
    side->addStretch(1);
    columns->addLayout(side, 2);

    auto* buttons = new QHBoxLayout;
    preview_ = button("Preview");
    reset_ = button("Reset\u2026");
    reset_->setAccessibleName("Reset");
    save_ = button("Save", "primary");
    buttons->addWidget(preview_);
    buttons->addStretch(1);
    buttons->addWidget(reset_);
    buttons->addWidget(save_);
    layout->addLayout(buttons);
    QObject::connect(preview_, &QPushButton::clicked, this,
                     [this] { model_->preview([this](const std::string& page) { openPage(text(page)); }); });
    QObject::connect(reset_, &QPushButton::clicked, this, &PlayerOptionsView::confirmReset);
    QObject::connect(save_, &QPushButton::clicked, this, [this] { model_->savePlayer(); });
}

QListWidget* PlayerOptionsView::addControlList(app::PlayerControlList list) {
    auto* made = new QListWidget;
    made->setAccessibleName(list == app::PlayerControlList::controlBar ? "Control bar" : "Overflow menu");
    QObject::connect(made, &QListWidget::itemChanged, this, [this, list](QListWidgetItem* item) {
        model_->setControl(list, item->data(Qt::UserRole).toString().toStdString(), item->checkState() == Qt::Checked);
    });
    return made;
}

QListWidget* PlayerOptionsView::controls(app::PlayerControlList list) const {
    return list == app::PlayerControlList::controlBar ? controlBar_ : overflowMenu_;
}

void PlayerOptionsView::show(const app::PageSettingsModel& model) {
    const auto* player = model.player();
    setEnabled(player != nullptr);
    if (!player) return;
    for (auto list : {app::PlayerControlList::controlBar, app::PlayerControlList::overflowMenu}) {
        auto* widget = controls(list);
        const QSignalBlocker blocker(widget);
        const auto& rows = model.controls(list);
        // The same rows change in place, so that the person's place in the list stays.
        if (widget->count() != int(rows.size())) {
            widget->clear();
            for (const auto& row : rows) {
                auto* item = new QListWidgetItem(text(row.label), widget);
                item->setData(Qt::UserRole, text(row.name));
                item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable | Qt::ItemIsSelectable);
            }
        }
        for (std::size_t index = 0; index < rows.size(); ++index) {
            auto* item = widget->item(int(index));
            const auto& row = rows[index];
            item->setText(text(row.label));
            item->setData(Qt::UserRole, text(row.name));
            item->setCheckState(row.isOn ? Qt::Checked : Qt::Unchecked);
            // Italics rather than a colour of their own, which would not follow a change of the colour scheme.
            auto font = item->font();
            font.setItalic(!row.isUseful);
            item->setFont(font);
            item->setToolTip(row.isUseful ? QString() : "It can do nothing for a video of this site.");
        }
    }
    for (auto [box, value] : {std::pair{autoplay_, player->autoplay}, {muted_, player->muted}, {loop_, player->loop}}) {
        const QSignalBlocker blocker(box);
        box->setChecked(value);
    }
    const auto& choices = app::PlayerColorChoice::all();
    for (std::size_t index = 0; index < choices.size(); ++index) {
        const auto shown = model.colorOf(choices[index]);
        const auto color = cssColor(shown);
        const auto& row = colors_[index];
        // Qt's style sheets take the alpha of rgba() from 0 to 255.
        row.swatch->setStyleSheet(color.isValid() ? QString("background: rgba(%1, %2, %3, %4); border: 1px solid palette(mid);")
                                                        .arg(color.red())
                                                        .arg(color.green())
                                                        .arg(color.blue())
                                                        .arg(color.alpha())
                                                  : QString());
        row.value->setText(text(shown));
        row.reset->setEnabled(!model.isDefaultColor(choices[index]));
    }
    const bool isFree = !model.isWorking();
    save_->setEnabled(isFree && model.hasUnsavedPlayer());
    reset_->setEnabled(isFree && *player != PlayerSettings{});
    preview_->setEnabled(!model.isPreparingPreview());
}

void PlayerOptionsView::chooseColor(const app::PlayerColorChoice& choice) {
    auto* dialog = new QColorDialog(cssColor(model_->colorOf(choice)), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QColorDialog::ShowAlphaChannel);
    dialog->setWindowTitle(text(choice.label));
    QObject::connect(dialog, &QColorDialog::colorSelected, this,
                     [this, &choice](const QColor& color) { model_->setColor(choice, cssText(color)); });
    dialog->open();
}

void PlayerOptionsView::confirmReset() {
    libraryDialogs::confirm(this, text(app::PlayerWords::resetTitle), text(app::PlayerWords::resetExplanation), "Reset",
                            [this] { model_->resetPlayer(); });
}

}  // namespace vorlen::shell
