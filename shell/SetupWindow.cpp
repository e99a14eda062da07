#include "shell/SetupWindow.hpp"

#include <array>

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "shell/Appearance.hpp"

namespace vorlen::shell {

namespace {

struct LocationChoice {
    R2LocationHint hint;
    const char* name;
};
const std::array<LocationChoice, 6> locations{{{R2LocationHint::westernNorthAmerica, "Western North America"},
                                               {R2LocationHint::easternNorthAmerica, "Eastern North America"},
                                               {R2LocationHint::westernEurope, "Western Europe"},
                                               {R2LocationHint::easternEurope, "Eastern Europe"},
                                               {R2LocationHint::asiaPacific, "Asia-Pacific"},
                                               {R2LocationHint::oceania, "Oceania"}}};

QString text(const std::string& value) { return QString::fromStdString(value); }

QLabel* wrapped(const QString& words, const char* role = nullptr) {
    auto* made = new QLabel(words);
    made->setWordWrap(true);
    if (role) setRole(made, role);
    return made;
}

QLabel* problemLabel() {
    auto* made = wrapped(QString(), "error");
    made->setTextInteractionFlags(Qt::TextSelectableByMouse);
    made->hide();
    return made;
}

void showProblem(QLabel* label, const std::optional<std::string>& problem) {
    label->setText(problem ? text(*problem) : QString());
    label->setVisible(problem.has_value());
}

QPushButton* button(const QString& words, bool isPrimary = false) {
    auto* made = new QPushButton(words);
    made->setAutoDefault(false);
    if (isPrimary) {
        made->setDefault(true);
        setRole(made, "primary");
    }
    return made;
}

QLineEdit* addField(QFormLayout* form, const QString& name, bool isSecret = false) {
    auto* made = new QLineEdit;
    made->setAccessibleName(name);
    // Tokens are secrets: never on the screen.
    if (isSecret) made->setEchoMode(QLineEdit::Password);
    form->addRow(name + ":", made);
    return made;
}

// A page of the window with its heading; the caller adds the rest.
QVBoxLayout* pageLayout(QWidget* page, QLabel* heading) {
    auto* layout = new QVBoxLayout(page);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(12);
    layout->addWidget(heading);
    return layout;
}

// A button on a line of its own, at the left.
void addAlone(QVBoxLayout* layout, QPushButton* single) {
    auto* line = new QHBoxLayout;
    line->addWidget(single);
    line->addStretch(1);
    layout->addLayout(line);
}

// The foot of a page: the problem, room unless the page fills itself, then buttons at the left and at the right.
void addFoot(QVBoxLayout* layout, QLabel* problem, std::initializer_list<QPushButton*> left,
             std::initializer_list<QPushButton*> right, bool isFilled = false) {
    layout->addWidget(problem);
    if (!isFilled) layout->addStretch(1);
    auto* buttons = new QHBoxLayout;
    for (auto* each : left) buttons->addWidget(each);
    buttons->addStretch(1);
    for (auto* each : right) buttons->addWidget(each);
    layout->addLayout(buttons);
}

// Changes a field only when the model's value differs, so that typing keeps its cursor.
void follow(QLineEdit* field, const std::string& value) {
    if (field->text() != text(value)) field->setText(text(value));
}

// "Account: Account Settings (read), Workers R2 Storage (edit) …", one line for each scope.
QString permissionLines(bool manualTokens) {
    QStringList account, zone;
    for (const auto& row : TokenPermission::setupTokenRows(manualTokens))
        (row.scope == TokenPermission::Scope::account ? account : zone)
            << QString("%1 (%2)").arg(text(row.group), text(rawValue(row.level)));
    return QString("Account: %1\nZones: %2").arg(account.join(", "), zone.join(", "));
}

// A mark for each kind of status, and its colour.
std::pair<QString, const char*> markOf(const SetupStatus& status) {
    if (status.is<SetupStatus::Done>() || status.is<SetupStatus::AlreadyInPlace>()) return {"\u2713", "success"};
    if (status.is<SetupStatus::Failed>()) return {"\u2717", "error"};
    if (status.is<SetupStatus::NeedsDashboard>()) return {"!", "error"};
    if (status.is<SetupStatus::Running>()) return {"\u2026", nullptr};
    if (status.is<SetupStatus::ToDo>()) return {"\u2192", nullptr};
    return {"\u00b7", "secondary"};
}

// A button that opens a page carries its address as its tool tip, for the person to see where it goes.
void openInBrowser(QWidget* trigger) { QDesktopServices::openUrl(QUrl(trigger->toolTip())); }

}  // namespace

SetupWindow::SetupWindow(app::AppModel& model, QWidget* parent) : QDialog(parent) {
    build();
    setWindowTitle("Set Up a Site");
    setup_ = app::SetupModel::setUp(model.setupService(), app::SetupModel::Host::of(model), queue_,
                                    model.endpoints().cloudflareDashboard, app::defaultComputerName(), [this] { refresh(); });
    refresh();
}

SetupWindow::SetupWindow(app::AppModel& model, const app::SiteID& site, APIToken token, QWidget* parent)
    : QDialog(parent) {
    build();
    setWindowTitle("Check the Site");
    auto plan = [&model, site, token] { return model.planCheck(site, token, app::defaultComputerName()); };
    setup_ = app::SetupModel::check(model.setupService(), app::SetupModel::Host::of(model), queue_, plan, token,
                                    [this] { refresh(); });
    refresh();
}

// The model goes first: its end cancels a run and waits for it.
SetupWindow::~SetupWindow() { setup_.reset(); }

void SetupWindow::build() {
    setObjectName("setupWindow");
    // A closed window stops its run at once, so it never lingers hidden.
    setAttribute(Qt::WA_DeleteOnClose);
    setMinimumSize(720, 620);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 16);
    pages_ = new QStackedWidget(this);
    layout->addWidget(pages_);
    tokenPage_ = buildTokenPage();
    choicePage_ = buildChoicePage();
    runPage_ = buildRunPage();
    manualPage_ = buildManualPage();
    for (QWidget* page : {tokenPage_, choicePage_, runPage_, manualPage_}) pages_->addWidget(page);
}

QWidget* SetupWindow::buildTokenPage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page, wrapped("Set Up a Site in Your Cloudflare Account", "heading"));
    layout->addWidget(wrapped("Vorlen sets up the site with a Cloudflare Account API Token. The token form opens in the "
                              "dashboard with its name and these permissions filled in; choose your domain in Specified "
                              "Domains, create the token, and paste its value here.",
                              "secondary"));
    permissions_ = wrapped(QString());
    permissions_->setObjectName("tokenPermissions");
    layout->addWidget(permissions_);
    manualTokens_ = new QCheckBox("Manually manage R2 API Tokens");
    layout->addWidget(manualTokens_, 0, Qt::AlignLeft);
    layout->addWidget(wrapped("With this, the token may not make tokens: you make this computer's R2 API Token in the "
                              "dashboard when the setup asks for it.",
                              "secondary"));
    openForm_ = button("Open the Token Form");
    addAlone(layout, openForm_);
    auto* form = new QFormLayout;
    token_ = addField(form, "Cloudflare Account API Token", true);
    layout->addLayout(form);
    tokenProblem_ = problemLabel();
    auto* cancel = button("Cancel");
    continue_ = button("Continue", true);
    addFoot(layout, tokenProblem_, {}, {cancel, continue_});

    QObject::connect(manualTokens_, &QCheckBox::toggled, this, [this](bool manual) {
        setup_->setTokenMode(manual ? app::TokenMode::manual : app::TokenMode::automatic);
    });
    QObject::connect(openForm_, &QPushButton::clicked, this, [this] { openInBrowser(openForm_); });
    QObject::connect(token_, &QLineEdit::textEdited, this, [this](const QString& value) { setup_->editToken(value.toStdString()); });
    QObject::connect(token_, &QLineEdit::returnPressed, this, [this] { setup_->submitToken(); });
    QObject::connect(continue_, &QPushButton::clicked, this, [this] { setup_->submitToken(); });
    QObject::connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    return page;
}

QWidget* SetupWindow::buildChoicePage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page, wrapped("Choose the Bucket and the Hostnames", "heading"));
    auto* form = new QFormLayout;
    form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    form->setHorizontalSpacing(14);
    account_ = new QComboBox;
    account_->setAccessibleName("Cloudflare account");
    form->addRow("Cloudflare account:", account_);
    newBucket_ = new QRadioButton("Make a new bucket");
    existingBucket_ = new QRadioButton("Use an existing bucket");
    bucketKind_ = new QButtonGroup(page);
    bucketKind_->addButton(newBucket_, 0);
    bucketKind_->addButton(existingBucket_, 1);
    newBucket_->setChecked(true);
    form->addRow(QString(), newBucket_);
    bucketName_ = addField(form, "New bucket name");
    location_ = new QComboBox;
    location_->setAccessibleName("Location of the new bucket");
    location_->addItem("Automatic, near you");
    for (const auto& location : locations) location_->addItem(location.name);
    form->addRow("Location of the new bucket:", location_);
    form->addRow(QString(), existingBucket_);
    existingBuckets_ = new QComboBox;
    existingBuckets_->setAccessibleName("Existing bucket");
    form->addRow("Existing bucket:", existingBuckets_);
    mediaHost_ = addField(form, "Media hostname");
    pageHost_ = addField(form, "Page hostname");
    zones_ = wrapped(QString(), "secondary");
    form->addRow(QString(), zones_);
    path_ = addField(form, "Folder in the bucket");
    computerName_ = addField(form, "This computer's name");
    form->addRow(QString(), wrapped("The name of this computer's R2 API Token, with which it publishes.", "secondary"));
    layout->addLayout(form);
    choiceProblem_ = problemLabel();
    auto* back = button("Back");
    setUp_ = button("Set Up", true);
    addFoot(layout, choiceProblem_, {back}, {setUp_});
    connectChoice();
    QObject::connect(back, &QPushButton::clicked, this, [this] { setup_->goBack(); });
    return page;
}

void SetupWindow::connectChoice() {
    QObject::connect(account_, &QComboBox::activated, this,
                     [this](int index) { setup_->chooseAccount(account_->itemData(index).toString().toStdString()); });
    QObject::connect(bucketKind_, &QButtonGroup::idClicked, this, [this](int) { useBucketKind(); });
    QObject::connect(bucketName_, &QLineEdit::textEdited, this, [this](const QString&) { useBucketKind(); });
    QObject::connect(location_, &QComboBox::activated, this, [this](int) { useBucketKind(); });
    QObject::connect(existingBuckets_, &QComboBox::activated, this, [this](int) { useBucketKind(); });
    auto edits = [this](QLineEdit* field, std::string app::SiteChoice::*member) {
        QObject::connect(field, &QLineEdit::textEdited, this, [this, member](const QString& value) {
            setup_->editChoice([&](app::SiteChoice& choice) { choice.*member = value.toStdString(); });
        });
        QObject::connect(field, &QLineEdit::returnPressed, this, [this] { setup_->confirmChoice(); });
    };
    edits(mediaHost_, &app::SiteChoice::mediaHost);
    edits(pageHost_, &app::SiteChoice::pageHost);
    edits(path_, &app::SiteChoice::path);
    edits(computerName_, &app::SiteChoice::computerName);
    QObject::connect(setUp_, &QPushButton::clicked, this, [this] { setup_->confirmChoice(); });
}

void SetupWindow::useBucketKind() {
    if (existingBucket_->isChecked()) {
        if (existingBuckets_->count() > 0) setup_->useExistingBucket(existingBuckets_->currentText().toStdString());
        return;
    }
    const int location = location_->currentIndex();
    setup_->useNewBucket(bucketName_->text().trimmed().toStdString(),
                         location > 0 ? std::optional(locations[location - 1].hint) : std::nullopt);
}

QWidget* SetupWindow::buildRunPage() {
    auto* page = new QWidget;
    runHeading_ = wrapped(QString(), "heading");
    auto* layout = pageLayout(page, runHeading_);
    auto* steps = new QWidget;
    auto* grid = new QGridLayout(steps);
    grid->setContentsMargins(0, 0, 8, 0);
    grid->setHorizontalSpacing(10);
    grid->setVerticalSpacing(8);
    grid->setColumnStretch(2, 1);
    for (SetupStep step : allSetupSteps) {
        const int line = static_cast<int>(rows_.size());
        Row row{new QLabel, new QLabel(text(label(step))), wrapped(QString(), "secondary")};
        row.mark->setFixedWidth(18);
        row.mark->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
        row.label->setMinimumWidth(220);
        for (QLabel* part : {row.label, row.text}) part->setAlignment(Qt::AlignTop | Qt::AlignLeft);
        row.text->setTextInteractionFlags(Qt::TextSelectableByMouse);
        grid->addWidget(row.mark, line, 0);
        grid->addWidget(row.label, line, 1);
        grid->addWidget(row.text, line, 2);
        rows_.push_back(row);
    }
    grid->setRowStretch(static_cast<int>(rows_.size()), 1);
    auto* scroll = new QScrollArea;
    scroll->setAccessibleName("Setup steps");
    scroll->setWidget(steps);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    layout->addWidget(scroll, 1);

    dashboard_ = new QFrame;
    setRole(dashboard_, "card");
    auto* dashboardLayout = new QHBoxLayout(dashboard_);
    dashboardLayout->setContentsMargins(14, 12, 14, 12);
    // The step's row says what to do; the card says where.
    dashboardLayout->addWidget(wrapped("Only you can do this, in the Cloudflare dashboard. Open the page, do what the step "
                                       "says, then select Run Again."),
                               1);
    openTask_ = button("Open in the Browser");
    dashboardLayout->addWidget(openTask_, 0, Qt::AlignTop);
    dashboard_->hide();
    layout->addWidget(dashboard_);
    runProblem_ = problemLabel();
    runBack_ = button("Back");
    runAgain_ = button("Run Again");
    repair_ = button("Set Up Again");
    done_ = button("Close", true);
    addFoot(layout, runProblem_, {runBack_}, {runAgain_, repair_, done_}, true);

    QObject::connect(openTask_, &QPushButton::clicked, this, [this] { openInBrowser(openTask_); });
    QObject::connect(runBack_, &QPushButton::clicked, this, [this] { setup_->goBack(); });
    QObject::connect(runAgain_, &QPushButton::clicked, this, [this] { setup_->runAgain(); });
    QObject::connect(repair_, &QPushButton::clicked, this, [this] { setup_->repair(); });
    QObject::connect(done_, &QPushButton::clicked, this, &QDialog::accept);
    return page;
}

QWidget* SetupWindow::buildManualPage() {
    auto* page = new QWidget;
    auto* layout = pageLayout(page, wrapped("Make This Computer's R2 API Token", "heading"));
    manualMessage_ = wrapped(QString());
    layout->addWidget(manualMessage_);
    openTokenPage_ = button("Open in the Browser");
    addAlone(layout, openTokenPage_);
    auto* form = new QFormLayout;
    manualToken_ = addField(form, "R2 API Token", true);
    layout->addLayout(form);
    manualProblem_ = problemLabel();
    auto* back = button("Back");
    auto* resume = button("Continue the Setup", true);
    addFoot(layout, manualProblem_, {back}, {resume});

    auto submit = [this] { setup_->submitManualToken(manualToken_->text().toStdString()); };
    QObject::connect(openTokenPage_, &QPushButton::clicked, this, [this] { openInBrowser(openTokenPage_); });
    QObject::connect(manualToken_, &QLineEdit::returnPressed, this, submit);
    QObject::connect(resume, &QPushButton::clicked, this, submit);
    QObject::connect(back, &QPushButton::clicked, this, [this] { setup_->goBack(); });
    return page;
}

QLineEdit* SetupWindow::field(const QString& accessibleName) const {
    for (auto* edit : findChildren<QLineEdit*>())
        if (edit->accessibleName() == accessibleName) return edit;
    return nullptr;
}

QComboBox* SetupWindow::choiceBox(const QString& accessibleName) const {
    for (auto* box : findChildren<QComboBox*>())
        if (box->accessibleName() == accessibleName) return box;
    return nullptr;
}

QStringList SetupWindow::rowTexts() const {
    QStringList texts;
    for (const auto& row : rows_) texts << row.text->text();
    return texts;
}

void SetupWindow::refresh() {
    if (!setup_) return;
    QWidget* page = nullptr;
    if (const auto* entry = setup_->as<app::TokenEntry>()) {
        showToken(*entry);
        page = tokenPage_;
    } else if (const auto* choice = setup_->as<app::SiteChoice>()) {
        showChoice(*choice);
        page = choicePage_;
    } else if (const auto* run = setup_->as<app::SetupRun>()) {
        showRun(*run);
        page = runPage_;
    } else if (const auto* manual = setup_->as<app::ManualTokenEntry>()) {
        showManual(*manual);
        page = manualPage_;
    }
    if (pages_->currentWidget() != page) {
        pages_->setCurrentWidget(page);
        if (page == tokenPage_) token_->setFocus();
        if (page == choicePage_) bucketName_->setFocus();
        if (page == manualPage_) manualToken_->setFocus();
        if (page == runPage_) done_->setFocus();
    }
    const bool isRunning = setup_->isRunning();
    const auto* run = setup_->as<app::SetupRun>();
    // A setup that has ended changed the site list, whether it completed or not.
    if (wasRunning_ && !isRunning && setup_->site() && !(run && run->isCheck) && onRunEnded)
        onRunEnded(*setup_->site(), run && run->isComplete());
    wasRunning_ = isRunning;
}

void SetupWindow::showToken(const app::TokenEntry& entry) {
    const bool manual = entry.mode == app::TokenMode::manual;
    {
        QSignalBlocker quiet(manualTokens_);
        manualTokens_->setChecked(manual);
    }
    permissions_->setText(permissionLines(manual));
    openForm_->setToolTip(text(entry.formURL));
    token_->setEnabled(!entry.isChecking);
    continue_->setEnabled(!entry.isChecking);
    continue_->setText(entry.isChecking ? "Checking\u2026" : "Continue");
    showProblem(tokenProblem_, entry.problem);
}

void SetupWindow::showChoice(const app::SiteChoice& choice) {
    QStringList accountIDs;
    for (const auto& account : choice.accounts) accountIDs << text(account.id);
    QStringList shown;
    for (int index = 0; index < account_->count(); ++index) shown << account_->itemData(index).toString();
    if (shown != accountIDs) {
        account_->clear();
        for (const auto& account : choice.accounts)
            account_->addItem(QString("%1 (%2)").arg(text(account.name), text(account.id)), text(account.id));
    }
    account_->setCurrentIndex(account_->findData(text(choice.accountID)));

    QStringList buckets;
    if (choice.offered)
        for (const auto& bucket : choice.offered->buckets) buckets << text(bucket.name);
    QStringList listed;
    for (int index = 0; index < existingBuckets_->count(); ++index) listed << existingBuckets_->itemText(index);
    if (listed != buckets) {
        existingBuckets_->clear();
        existingBuckets_->addItems(buckets);
    }
    const bool isExisting = choice.bucketKind == app::SiteChoice::BucketKind::existingBucket;
    (isExisting ? existingBucket_ : newBucket_)->setChecked(true);
    existingBucket_->setEnabled(!buckets.isEmpty());
    if (isExisting) existingBuckets_->setCurrentText(text(choice.bucket));
    else follow(bucketName_, choice.bucket);
    bucketName_->setEnabled(!isExisting);
    location_->setEnabled(!isExisting);
    existingBuckets_->setEnabled(isExisting);

    follow(mediaHost_, choice.mediaHost);
    follow(pageHost_, choice.pageHost);
    follow(path_, choice.path);
    follow(computerName_, choice.computerName);
    if (!choice.offered) {
        zones_->setText(choice.isBusy ? "Reading the account\u2026" : QString());
    } else {
        QStringList names;
        for (const auto& zone : choice.offered->zones) names << text(zone.name);
        zones_->setText(QString("Each hostname lies in a domain that the token can configure: %1.").arg(names.join(", ")));
    }
    setUp_->setEnabled(choice.offered && !choice.isBusy);
    showProblem(choiceProblem_, choice.problem);
}

void SetupWindow::showRun(const app::SetupRun& run) {
    if (run.isCheck)
        runHeading_->setText(run.isRunning ? "Checking the Site" : "The Check Has Ended");
    else
        runHeading_->setText(run.isRunning ? "Setting Up the Site" : run.isComplete() ? "The Site Is Set Up" : "The Setup Has Stopped");
    for (std::size_t index = 0; index < rows_.size() && index < run.rows.size(); ++index) {
        const auto& row = run.rows[index];
        auto [mark, role] = markOf(row.status);
        rows_[index].mark->setText(mark);
        setRole(rows_[index].mark, role ? role : "");
        rows_[index].text->setText(text(row.text()));
    }
    const DashboardTask* task = run.dashboardTask();
    dashboard_->setVisible(task != nullptr);
    if (task) openTask_->setToolTip(text(task->url));
    showProblem(runProblem_, run.problem);
    const bool ended = !run.isRunning;
    runBack_->setVisible(ended && !run.isCheck && !run.isComplete());
    runAgain_->setVisible(ended && !run.isComplete());
    runAgain_->setText(run.isCheck ? "Check Again" : "Run Again");
    repair_->setVisible(ended && run.isCheck && !run.isComplete());
    done_->setText(run.isRunning ? "Stop" : run.isComplete() ? "Done" : "Close");
}

void SetupWindow::showManual(const app::ManualTokenEntry& entry) {
    manualMessage_->setText(text(entry.message));
    openTokenPage_->setToolTip(text(entry.request.url));
    showProblem(manualProblem_, entry.problem);
}

}  // namespace vorlen::shell
