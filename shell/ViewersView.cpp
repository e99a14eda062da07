#include "shell/ViewersView.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <QVBoxLayout>

#include "app/ViewerWords.hpp"
#include "shell/Format.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/WindowParts.hpp"

namespace vorlen::shell {

namespace {

using namespace windowParts;

// Asks for a name without waiting; onName hears the name that the person gave.
void askName(QWidget* over, const QString& title, const QString& name, std::function<void(const std::string&)> onName) {
    auto* dialog = new QInputDialog(over);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(title);
    dialog->setLabelText("Name:");
    dialog->setTextValue(name);
    QObject::connect(dialog, &QInputDialog::textValueSelected, over,
                     [onName = std::move(onName)](const QString& value) { onName(value.toStdString()); });
    dialog->open();
}

}  // namespace

ViewersView::ViewersView(std::shared_ptr<app::ViewersModel> model, QWidget* parent)
    : QWidget(parent), model_(std::move(model)), rows_(new QStandardItemModel(this)) {
    auto* layout = new QVBoxLayout(this);
    auto* intro = label("secondary", "Viewers note");
    intro->setText("Each viewer signs in with a passkey, which they make with a one-time invite link.");
    layout->addWidget(intro);
    private_ = new QCheckBox(text(app::ViewerWords::privateSwitch));
    auto* privateNote = label("secondary", "Private note");
    privateNote->setText(text(app::ViewerWords::privateExplanation));
    layout->addWidget(private_);
    layout->addWidget(privateNote);
    // The person's click asks the bucket; the box then shows what the model read back.
    QObject::connect(private_, &QCheckBox::clicked, this, [this](bool isOn) { model_->setPrivate(isOn); });

    table_ = windowParts::table("Viewers");
    rows_->setHorizontalHeaderLabels({"Name", "Access"});
    table_->setModel(rows_);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setColumnWidth(0, 260);
    layout->addWidget(table_, 1);
    empty_ = label("secondary", "Empty");
    empty_->setText(text(app::ViewerWords::noViewers));
    layout->addWidget(empty_);

    invitation_ = new QWidget;
    auto* invitationLayout = new QVBoxLayout(invitation_);
    invitationLayout->setContentsMargins(0, 0, 0, 0);
    linkNote_ = label(nullptr, "Invite note");
    link_ = new QLineEdit;
    link_->setReadOnly(true);
    link_->setAccessibleName("Invite link");
    auto* copy = button("Copy Link");
    auto* done = button("Done");
    auto* linkRow = new QHBoxLayout;
    linkRow->addWidget(link_, 1);
    linkRow->addWidget(copy);
    linkRow->addWidget(done);
    invitationLayout->addWidget(linkNote_);
    invitationLayout->addLayout(linkRow);
    layout->addWidget(invitation_);
    QObject::connect(copy, &QPushButton::clicked, this, [this] { QApplication::clipboard()->setText(link_->text()); });
    QObject::connect(done, &QPushButton::clicked, this, [this] { model_->forgetInvitation(); });

    auto* buttons = new QHBoxLayout;
    add_ = button("Add Viewer\u2026", "primary");
    add_->setAccessibleName("Add Viewer");
    rename_ = button("Rename\u2026");
    rename_->setAccessibleName("Rename");
    renew_ = button("New Invite Link");
    remove_ = button("Remove\u2026");
    remove_->setAccessibleName("Remove");
    buttons->addWidget(add_);
    buttons->addStretch(1);
    for (auto* each : {rename_, renew_, remove_}) buttons->addWidget(each);
    layout->addLayout(buttons);

    QObject::connect(add_, &QPushButton::clicked, this, &ViewersView::addViewer);
    QObject::connect(rename_, &QPushButton::clicked, this, &ViewersView::renameViewer);
    QObject::connect(renew_, &QPushButton::clicked, this, [this] {
        if (auto id = selected()) model_->renewInvite(*id);
    });
    QObject::connect(remove_, &QPushButton::clicked, this, &ViewersView::removeViewer);
    QObject::connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &ViewersView::enableButtons);
}

std::optional<ViewerID> ViewersView::selected() const {
    const auto chosen = table_->selectionModel()->selectedRows();
    if (chosen.isEmpty()) return std::nullopt;
    return ViewerID{rows_->item(chosen.front().row())->data(Qt::UserRole).toString().toStdString()};
}

void ViewersView::show(const app::ViewersModel& model) {
    const auto keep = selected();
    rows_->setRowCount(0);
    for (const auto& row : model.rows()) {
        auto* name = new QStandardItem(row.name.empty() ? "?" : text(row.name));
        name->setData(text(row.id.text), Qt::UserRole);
        name->setToolTip(text(row.id.text));
        auto* access = new QStandardItem(text(row.accessText(row.date ? format::date(*row.date).toStdString() : "")));
        rows_->appendRow({name, access});
        if (keep && row.id == *keep) table_->selectRow(rows_->rowCount() - 1);
    }
    private_->setChecked(model.isPrivate());
    empty_->setVisible(model.isLoaded() && model.rows().empty());
    const auto& invitation = model.invitation();
    invitation_->setVisible(invitation.has_value());
    if (invitation) {
        linkNote_->setText(text(app::ViewerWords::linkNote(invitation->viewer.viewer ? invitation->viewer.viewer->name : "")));
        link_->setText(text(invitation->link));
    }
    enableButtons();
}

void ViewersView::enableButtons() {
    const bool isFree = model_->isLoaded() && !model_->isWorking();
    const auto id = selected();
    const auto* row = id ? model_->row(*id) : nullptr;
    private_->setEnabled(isFree);
    add_->setEnabled(isFree);
    rename_->setEnabled(isFree && row && row->isChangeable());
    renew_->setEnabled(isFree && row && row->isChangeable());
    remove_->setEnabled(isFree && row);
}

void ViewersView::addViewer() {
    askName(this, "Add a Viewer", QString(), [this](const std::string& name) { model_->add(name); });
}

void ViewersView::renameViewer() {
    const auto id = selected();
    const auto* row = id ? model_->row(*id) : nullptr;
    if (!row) return;
    askName(this, "Rename the Viewer", text(row->name), [this, id = *id](const std::string& name) { model_->rename(id, name); });
}

void ViewersView::removeViewer() {
    const auto id = selected();
    const auto* row = id ? model_->row(*id) : nullptr;
    if (!row) return;
    libraryDialogs::confirm(this, text(app::ViewerWords::removeTitle(row->name.empty() ? row->id.text : row->name)),
                            text(app::ViewerWords::removeExplanation), "Remove", [this, id = *id] { model_->remove(id); });
}

}  // namespace vorlen::shell
