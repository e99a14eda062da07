#include "shell/CollaboratorDialog.hpp"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "core/base/VorlenError.hpp"
#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

namespace {

const char* codeWarning =
    "The code holds a secret: a token that can publish to your bucket. Send it through a secure channel, for example "
    "a password manager or an end-to-end encrypted message. Vorlen shows the code only once.";

}  // namespace

CollaboratorDialog::CollaboratorDialog(Endpoints endpoints, QWidget* parent)
    : QDialog(parent), endpoints_(std::move(endpoints)) {
    build("Join a Site",
          "Paste the setup code that the site's owner sent you. Vorlen checks its token and reads the site's settings "
          "from its bucket.",
          "Join");
    codeField_ = addField("Setup code", true);
    QObject::connect(action_, &QPushButton::clicked, this, [this] { join(); });
}

CollaboratorDialog::CollaboratorDialog(app::SiteSummary site, Endpoints endpoints, QWidget* parent)
    : QDialog(parent), endpoints_(std::move(endpoints)), site_(std::move(site)) {
    build("Invite a Collaborator",
          QString("Vorlen makes a token of their own that can publish to the bucket %1, and a setup code that carries "
                  "it. Making it needs the Cloudflare Account API Token.")
              .arg(format::quoted(QString::fromStdString(site_->bucket))),
          "Make the Code");
    name_ = addField("Collaborator's name", false);
    token_ = addField("Cloudflare Account API Token", true);
    QObject::connect(action_, &QPushButton::clicked, this, [this] { invite(); });
}

CollaboratorDialog::~CollaboratorDialog() = default;

void CollaboratorDialog::build(const QString& title, const QString& intro, const QString& action) {
    setObjectName("collaboratorDialog");
    setWindowTitle(title);
    setMinimumWidth(520);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    layout->setSpacing(12);
    auto* introLabel = new QLabel(intro);
    introLabel->setWordWrap(true);
    setRole(introLabel, "secondary");
    layout->addWidget(introLabel);
    form_ = new QFormLayout;
    form_->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form_->setHorizontalSpacing(14);
    layout->addLayout(form_);
    code_ = new QPlainTextEdit(this);
    code_->setAccessibleName("Setup code for the collaborator");
    code_->setReadOnly(true);
    code_->hide();
    layout->addWidget(code_);
    warning_ = new QLabel(codeWarning);
    warning_->setWordWrap(true);
    warning_->hide();
    layout->addWidget(warning_);
    problem_ = new QLabel;
    problem_->setWordWrap(true);
    problem_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    setRole(problem_, "error");
    problem_->hide();
    layout->addWidget(problem_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    action_ = buttons->addButton(action, QDialogButtonBox::AcceptRole);
    action_->setDefault(true);
    layout->addWidget(buttons);
    QObject::connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

QLineEdit* CollaboratorDialog::addField(const QString& accessibleName, bool isSecret) {
    auto* made = new QLineEdit(this);
    made->setAccessibleName(accessibleName);
    // A code and a token are secrets: never on the screen.
    if (isSecret) made->setEchoMode(QLineEdit::Password);
    form_->addRow(accessibleName + ":", made);
    return made;
}

QLineEdit* CollaboratorDialog::field(const QString& accessibleName) const {
    for (auto* edit : findChildren<QLineEdit*>())
        if (edit->accessibleName() == accessibleName) return edit;
    return nullptr;
}

void CollaboratorDialog::showProblem(const QString& words) {
    problem_->setText(words);
    problem_->show();
    action_->setEnabled(true);
}

template <class T>
void CollaboratorDialog::runTask(std::function<T()> work, std::function<void(T)> done) {
    problem_->hide();
    action_->setEnabled(false);
    QPointer<CollaboratorDialog> self(this);
    task_ = std::make_unique<Task<void>>(Task<void>::spawn([self, work = std::move(work), done = std::move(done)] {
        try {
            auto result = std::make_shared<T>(work());
            QMetaObject::invokeMethod(qApp, [self, done, result] {
                if (self) done(std::move(*result));
            }, Qt::QueuedConnection);
        } catch (const Cancelled&) {
        } catch (const std::exception& error) {
            QString words = QString::fromStdString(error.what());
            QMetaObject::invokeMethod(qApp, [self, words] {
                if (self) self->showProblem(words);
            }, Qt::QueuedConnection);
        }
    }));
}

void CollaboratorDialog::join() {
    SetupCode code;
    try {
        code = SetupCode::parse(codeField_->text().toStdString());
    } catch (const SetupCode::ParseError& error) {
        return showProblem(QString::fromStdString(error.what()));
    }
    runTask<app::JoinedSite>([code, endpoints = endpoints_] { return app::readJoinedSite(code, endpoints); },
                             [this](app::JoinedSite joined) {
                                 try {
                                     if (onJoined) onJoined(joined);
                                 } catch (const std::exception& error) {
                                     return showProblem(QString::fromStdString(error.what()));
                                 }
                                 accept();
                             });
}

void CollaboratorDialog::invite() {
    const std::string name = name_->text().trimmed().toStdString();
    const std::string token = token_->text().trimmed().toStdString();
    if (name.empty() || token.empty()) return showProblem("Give the collaborator's name and the Cloudflare Account API Token.");
    runTask<std::string>(
        [site = *site_, endpoints = endpoints_, name, token] {
            return app::SiteCollaborators(site, APIToken{token}, endpoints).invite(name).code.text();
        },
        [this](std::string code) {
            token_->clear();
            code_->setPlainText(QString::fromStdString(code));
            code_->show();
            warning_->show();
            action_->setText("Copy the Code");
            action_->setEnabled(true);
            QObject::disconnect(action_, nullptr, this, nullptr);
            QObject::connect(action_, &QPushButton::clicked, this,
                             [this] { QApplication::clipboard()->setText(code_->toPlainText()); });
        });
}

}  // namespace vorlen::shell
