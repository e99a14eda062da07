#include "shell/SiteDialog.hpp"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"

namespace vorlen::shell {

SiteDialog::SiteDialog(Kind kind, QWidget* parent) : QDialog(parent), kind_(kind) {
    setObjectName("siteDialog");
    setWindowTitle(kind == Kind::local ? "Add a Local Site" : "Add an R2 Site");
    setMinimumWidth(520);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    layout->setSpacing(12);
    auto* intro = new QLabel(kind == Kind::local
                                 ? "A local site keeps its videos in a folder on this computer. "
                                   "\u201cvorlen preview\u201d serves it in the browser."
                                 : "A site set up elsewhere: its R2 bucket, its hostnames, and an R2 API Token that can "
                                   "read and write the bucket. Vorlen keeps the token in the secret store.");
    intro->setWordWrap(true);
    setRole(intro, "secondary");
    layout->addWidget(intro);
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(14);
    auto field = [&](const QString& caption, const QString& name, const QString& hint = {}) {
        auto* made = new QLineEdit(this);
        made->setAccessibleName(name);
        made->setPlaceholderText(hint);
        form->addRow(caption, made);
        return made;
    };
    if (kind == Kind::local) {
        name_ = field("Name:", "Site name", "for example: films");
        folder_ = new QLineEdit(this);
        folder_->setAccessibleName("Folder");
        auto* choose = new QPushButton("Choose\u2026", this);
        choose->setAccessibleName("Choose the folder");
        choose->setAutoDefault(false);
        auto* row = new QHBoxLayout;
        row->addWidget(folder_, 1);
        row->addWidget(choose);
        form->addRow("Folder:", row);
        QObject::connect(choose, &QPushButton::clicked, this, [this] {
            auto* dialog = new QFileDialog(this, "Choose the Folder of the Site");
            dialog->setFileMode(QFileDialog::Directory);
            dialog->setOption(QFileDialog::ShowDirsOnly);
            dialog->setAttribute(Qt::WA_DeleteOnClose);
            QObject::connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& folder) { folder_->setText(folder); });
            dialog->open();
        });
    } else {
        account_ = field("Account ID:", "Cloudflare account ID");
        bucket_ = field("Bucket:", "R2 bucket");
        mediaHost_ = field("Media hostname:", "Media hostname", "media.example.com");
        pageHost_ = field("Page hostname:", "Page hostname", "watch.example.com");
        path_ = field("Folder in the bucket:", "Folder in the bucket", "optional");
        pagePath_ = field("Path of the pages:", "Path of the pages", "optional");
        tokenID_ = field("Token ID:", "R2 API Token ID");
        tokenValue_ = field("Token value:", "R2 API Token value");
        tokenValue_->setEchoMode(QLineEdit::Password);
    }
    layout->addLayout(form);
    problem_ = new QLabel(this);
    problem_->setWordWrap(true);
    setRole(problem_, "error");
    problem_->hide();
    layout->addWidget(problem_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    add_ = buttons->addButton("Add Site", QDialogButtonBox::AcceptRole);
    add_->setDefault(true);
    setRole(add_, "primary");
    buttons->setAccessibleName("Add the site or cancel");
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, this, [this] { save(); });
    QObject::connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

QLineEdit* SiteDialog::field(const QString& accessibleName) const {
    for (auto* edit : findChildren<QLineEdit*>())
        if (edit->accessibleName() == accessibleName) return edit;
    return nullptr;
}

void SiteDialog::save() {
    auto text = [](QLineEdit* edit) { return edit ? edit->text().trimmed().toStdString() : std::string(); };
    Values values;
    values.name = text(name_);
    values.folder = text(folder_);
    values.account = text(account_);
    values.bucket = text(bucket_);
    values.mediaHost = text(mediaHost_);
    values.pageHost = text(pageHost_);
    values.path = text(path_);
    values.pagePath = text(pagePath_);
    values.tokenID = text(tokenID_);
    values.tokenValue = text(tokenValue_);
    bool complete = kind_ == Kind::local ? !values.name.empty() && !values.folder.empty()
                                         : !values.account.empty() && !values.bucket.empty() && !values.mediaHost.empty() &&
                                               !values.pageHost.empty() && !values.tokenID.empty() &&
                                               !values.tokenValue.empty();
    if (!complete) {
        problem_->setText("Fill in every field that is not optional.");
        problem_->show();
        return;
    }
    try {
        if (onAccept) onAccept(values);
    } catch (const std::exception& error) {
        problem_->setText(QString::fromStdString(error.what()));
        problem_->show();
        return;
    }
    accept();
}

}  // namespace vorlen::shell
