#include "shell/SettingsWindow.hpp"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QInputDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSpacerItem>
#include <QSpinBox>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include "core/base/Text.hpp"
#include "shell/Appearance.hpp"
#include "shell/SecretPrompt.hpp"
#include "shell/CollaboratorDialog.hpp"
#include "shell/Format.hpp"
#include "shell/SetupWindow.hpp"
#include "shell/SiteDialog.hpp"

namespace vorlen::shell {

namespace {

const app::ParallelUploads parallelOrder[] = {app::ParallelUploads::one, app::ParallelUploads::two, app::ParallelUploads::four,
                                              app::ParallelUploads::eight};
const app::UploadPartSize partOrder[] = {app::UploadPartSize::mib5, app::UploadPartSize::mib8, app::UploadPartSize::mib16,
                                         app::UploadPartSize::mib32};

QLabel* wrapped(const QString& text, const char* role = nullptr) {
    auto* made = new QLabel(text);
    made->setWordWrap(true);
    if (role) setRole(made, role);
    return made;
}

QPushButton* plainButton(const QString& text) {
    auto* made = new QPushButton(text);
    made->setAutoDefault(false);
    return made;
}

}  // namespace

SettingsWindow::SettingsWindow(app::AppModel& model, app::SiteID site, QWidget* parent)
    : QDialog(parent), model_(model), site_(std::move(site)) {
    setObjectName("settings");
    setWindowTitle("Settings");
    setMinimumSize(600, 440);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    tabs_ = new QTabWidget(this);
    tabs_->setAccessibleName("Settings");
    tabs_->tabBar()->setAccessibleName("Settings pages");
    layout->addWidget(tabs_, 1);

    auto* uploads = new QWidget;
    auto* uploadsLayout = new QVBoxLayout(uploads);
    uploadsLayout->setContentsMargins(20, 18, 20, 18);
    uploadsLayout->setSpacing(12);
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(14);
    form->setVerticalSpacing(10);
    parallelUploads_ = new QComboBox;
    parallelUploads_->setAccessibleName("Parallel uploads");
    for (auto value : parallelOrder) parallelUploads_->addItem(QString::number(static_cast<int>(value)));
    form->addRow("Parallel uploads:", parallelUploads_);
    partSize_ = new QComboBox;
    partSize_->setAccessibleName("Part size");
    for (auto value : partOrder) partSize_->addItem(QString("%1 MiB").arg(static_cast<int>(value)));
    form->addRow("Part size:", partSize_);
    form->addRow(QString(), wrapped(app::uploadTuningExplanation, "secondary"));
    form->addItem(new QSpacerItem(0, 10));
    limit_ = new QSpinBox;
    limit_->setRange(0, 100000);
    limit_->setSpecialValueText("Unlimited");
    limit_->setSuffix(" Mbit/s");
    limit_->setAccessibleName("Upload limit");
    form->addRow("Upload limit:", limit_);
    form->addRow(QString(), wrapped(QString("The limit of the site %1. It applies at once, to an upload that is running too.")
                                        .arg(format::quoted(QString::fromStdString(site_.value))),
                                    "secondary"));
    uploadsLayout->addLayout(form);
    uploadsLayout->addStretch(1);
    tabs_->addTab(uploads, "Uploads");

    auto* sitesPage = new QWidget;
    auto* sitesLayout = new QVBoxLayout(sitesPage);
    sitesLayout->setContentsMargins(20, 18, 20, 18);
    sitesLayout->setSpacing(10);
    sites_ = new QListWidget;
    sites_->setAccessibleName("Sites on this computer");
    sites_->setTextElideMode(Qt::ElideMiddle);
    sites_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    sites_->setSpacing(3);
    sitesLayout->addWidget(sites_, 1);
    auto* siteButtons = new QHBoxLayout;
    auto* setUp = plainButton("Set Up a Site\u2026");
    auto* addLocal = plainButton("Add Local Site\u2026");
    auto* addR2 = plainButton("Add R2 Site\u2026");
    auto* join = plainButton("Join with a Code\u2026");
    invite_ = plainButton("Invite\u2026");
    invite_->setAccessibleName("Invite a collaborator to the site");
    check_ = plainButton("Check Site\u2026");
    check_->setAccessibleName("Check the site in its Cloudflare account");
    remove_ = plainButton("Remove");
    remove_->setAccessibleName("Remove the site");
    siteButtons->addWidget(setUp);
    siteButtons->addWidget(addLocal);
    siteButtons->addWidget(addR2);
    siteButtons->addWidget(join);
    siteButtons->addStretch(1);
    sitesLayout->addLayout(siteButtons);
    // What the selected site allows, on a line of its own.
    auto* selectedButtons = new QHBoxLayout;
    selectedButtons->addStretch(1);
    selectedButtons->addWidget(check_);
    selectedButtons->addWidget(invite_);
    selectedButtons->addWidget(remove_);
    sitesLayout->addLayout(selectedButtons);
    if (auto notice = model_.secretStoreNotice()) {
        auto* secrets = wrapped(QString::fromStdString(*notice), "secondary");
        secrets->setObjectName("secretStoreNotice");
        sitesLayout->addWidget(secrets);
    }
    tabs_->addTab(sitesPage, "Sites");

    auto* close = new QDialogButtonBox(QDialogButtonBox::Close, this);
    close->setAccessibleName("Close the settings");
    layout->addWidget(close);

    showUploads();
    showSites();

    QObject::connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);
    QObject::connect(parallelUploads_, &QComboBox::activated, this, [this](int index) {
        model_.changeSettings([index](app::LocalSettings& s) { s.uploadTuning.parallelUploads = parallelOrder[index]; });
    });
    QObject::connect(partSize_, &QComboBox::activated, this, [this](int index) {
        model_.changeSettings([index](app::LocalSettings& s) { s.uploadTuning.partSize = partOrder[index]; });
    });
    QObject::connect(limit_, &QSpinBox::valueChanged, this, [this](int megabits) {
        model_.setUploadLimit(site_, megabits == 0 ? app::UploadLimit::unlimited() : app::UploadLimit::megabits(megabits));
    });
    QObject::connect(sites_, &QListWidget::currentRowChanged, this, [this](int) { enableSiteButtons(); });
    QObject::connect(setUp, &QPushButton::clicked, this, [this] { setUpSite(); });
    QObject::connect(check_, &QPushButton::clicked, this, [this] { checkSite(); });
    QObject::connect(join, &QPushButton::clicked, this, [this] { joinSite(); });
    QObject::connect(invite_, &QPushButton::clicked, this, [this] { inviteCollaborator(); });
    QObject::connect(addLocal, &QPushButton::clicked, this, [this] { addLocalSite(); });
    QObject::connect(addR2, &QPushButton::clicked, this, [this] { addR2Site(); });
    QObject::connect(remove_, &QPushButton::clicked, this, [this] { removeSite(); });
}

void SettingsWindow::showUploads() {
    const auto& settings = model_.settings();
    for (int index = 0; index < 4; ++index) {
        if (parallelOrder[index] == settings.uploadTuning.parallelUploads) parallelUploads_->setCurrentIndex(index);
        if (partOrder[index] == settings.uploadTuning.partSize) partSize_->setCurrentIndex(index);
    }
    const auto* site = settings.site(site_);
    limit_->setEnabled(site != nullptr);
    QSignalBlocker quiet(limit_);
    limit_->setValue(site ? site->uploadLimit.megabitsPerSecond.value_or(0) : 0);
}

void SettingsWindow::showSites() {
    sites_->clear();
    auto current = model_.currentSite();
    for (const auto& site : model_.settings().sites) {
        QString name = QString::fromStdString(site.id.value);
        QString where = site.settings.isLocal()
                            ? QString("a folder on this computer, %1").arg(QString::fromStdString(site.settings.localFolder->string()))
                            : QString("the R2 bucket %1, pages on %2")
                                  .arg(format::quoted(QString::fromStdString(site.settings.bucket)),
                                       QString::fromStdString(site.settings.pageHost.name));
        QString text = QString("%1  \u2014  %2").arg(name, where);
        if (current == site.id) text += "  (default)";
        auto* item = new QListWidgetItem(text, sites_);
        item->setData(Qt::UserRole, name);
    }
    enableSiteButtons();
}

std::optional<app::SiteID> SettingsWindow::selectedSite() const {
    auto* item = sites_->currentItem();
    if (!item) return std::nullopt;
    return app::SiteID{item->data(Qt::UserRole).toString().toStdString()};
}

void SettingsWindow::enableSiteButtons() {
    const auto selected = selectedSite();
    remove_->setEnabled(selected.has_value());
    // Only a site in a Cloudflare account has collaborators.
    const auto* site = selected ? model_.settings().site(*selected) : nullptr;
    invite_->setEnabled(site && !site->settings.isLocal());
    check_->setEnabled(site && !site->settings.isLocal() && !site->settings.s3Endpoint);
}

SetupWindow* SettingsWindow::setUpSite() {
    auto* setup = new SetupWindow(model_, this);
    setup->onRunEnded = [this](const app::SiteID& id, bool isComplete) {
        showSites();
        if (onSitesChanged) onSitesChanged();
        if (isComplete && onSiteSetUp) onSiteSetUp(id);
    };
    setup->open();
    return setup;
}

SetupWindow* SettingsWindow::checkSite() {
    const auto selected = selectedSite();
    if (!selected) return nullptr;
    std::optional<std::string> token;
    try {
        auto store = model_.setupTokens(*selected, [this](const app::PassphraseRequest& request) {
            return askSecret(this, "Passphrase",
                             QString("To %1, give the passphrase of its sealed copy:").arg(QString::fromStdString(request.reason)));
        });
        if (store.hasToken()) token = store.token(app::SetupTokenPurpose::checkSite);
    } catch (const Cancelled&) {
        return nullptr;
    } catch (const std::exception& error) {
        report(error);
        return nullptr;
    }
    if (!token)
        token = askSecret(this, "Cloudflare Account API Token",
                          QString("To %1, paste the Cloudflare Account API Token:")
                              .arg(QString::fromStdString(app::reason(app::SetupTokenPurpose::checkSite))));
    if (!token || trimmed(*token).empty()) return nullptr;
    auto* check = new SetupWindow(model_, *selected, APIToken{trimmed(*token)}, this);
    check->open();
    return check;
}

void SettingsWindow::joinSite() {
    auto* dialog = new CollaboratorDialog(model_.endpoints(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->onJoined = [this](const app::JoinedSite& joined) {
        model_.addJoinedSite(joined);
        showSites();
        if (onSitesChanged) onSitesChanged();
    };
    dialog->open();
}

void SettingsWindow::inviteCollaborator() {
    const auto selected = selectedSite();
    if (!selected) return;
    auto* dialog = new CollaboratorDialog(model_.site(*selected).settings, model_.endpoints(), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
}

void SettingsWindow::report(const std::exception& error) {
    QMessageBox::warning(this, "Vorlen", QString::fromStdString(error.what()));
}

void SettingsWindow::addLocalSite() {
    auto* dialog = new SiteDialog(SiteDialog::Kind::local, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->onAccept = [this](const SiteDialog::Values& values) {
        model_.addLocalSite(values.name, values.folder);
        showSites();
        if (onSitesChanged) onSitesChanged();
    };
    dialog->open();
}

void SettingsWindow::addR2Site() {
    auto* dialog = new SiteDialog(SiteDialog::Kind::r2, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->onAccept = [this](const SiteDialog::Values& values) {
        app::R2SiteForm site{values.account, values.bucket, values.mediaHost, values.pageHost, values.path, values.pagePath,
                             std::nullopt};
        model_.addR2Site(site, app::R2Credentials::fromToken(values.tokenID, values.tokenValue));
        showSites();
        if (onSitesChanged) onSitesChanged();
    };
    dialog->open();
}

void SettingsWindow::removeSite() {
    const auto selected = selectedSite();
    if (!selected) return;
    const app::SiteID id = *selected;
    auto* ask = new QMessageBox(QMessageBox::Question, "Remove the Site?",
                                QString("Vorlen forgets the site %1 and its keys on this computer. The videos stay in its bucket.")
                                    .arg(format::quoted(QString::fromStdString(id.value))),
                                QMessageBox::NoButton, this);
    ask->setAttribute(Qt::WA_DeleteOnClose);
    auto* removeButton = ask->addButton("Remove", QMessageBox::DestructiveRole);
    ask->addButton(QMessageBox::Cancel);
    ask->setDefaultButton(QMessageBox::Cancel);
    QObject::connect(ask, &QMessageBox::finished, this, [this, ask, removeButton, id] {
        if (ask->clickedButton() != removeButton) return;
        try {
            model_.removeSite(id);
        } catch (const std::exception& error) {
            return report(error);
        }
        showSites();
        if (onSitesChanged) onSitesChanged();
    });
    ask->open();
}

}  // namespace vorlen::shell
