#include "shell/BulkWindow.hpp"

#include <map>

#include <QCloseEvent>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QShortcut>
#include <QStackedWidget>
#include <QTableView>
#include <QTableWidget>
#include <QVBoxLayout>

#include "app/BulkWords.hpp"
#include "shell/Appearance.hpp"
#include "shell/Format.hpp"
#include "shell/LibraryDialogs.hpp"
#include "shell/RunTable.hpp"
#include "shell/WindowParts.hpp"

namespace vorlen::shell {

namespace {

using namespace windowParts;

QString fileName(const std::filesystem::path& path) { return format::quoted(text(path.filename().string())); }

// A row's number in the sheet, its title or file name, and its length once known.
RunTable::Cells cellsOf(const std::vector<BulkRow>& rows, const std::map<std::filesystem::path, double>& durations) {
    return [&rows, &durations](std::int64_t item) -> std::optional<QStringList> {
        if (item < 0 || std::size_t(item) >= rows.size()) return std::nullopt;
        const auto& row = rows[std::size_t(item)];
        QString duration;
        if (row.file)
            if (const auto found = durations.find(*row.file); found != durations.end()) duration = format::clock(found->second);
        return QStringList{QString::number(row.index + 1),
                           text(row.title ? *row.title : row.file ? row.file->filename().string() : ""), duration};
    };
}

constexpr ReimportMode reimportModes[] = {ReimportMode::skip, ReimportMode::videoAndAudio, ReimportMode::audioOnly};

}  // namespace

BulkWindow::BulkWindow(std::shared_ptr<app::BulkUploadModel> model, QWidget* parent)
    : QWidget(parent, Qt::Window), model_(std::move(model)), pages_(new QStackedWidget), messagePage_(pages_) {
    setObjectName("bulk");
    setWindowTitle("Bulk Upload");
    resize(900, 680);
    setMinimumSize(680, 520);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 16);
    layout->setSpacing(12);
    layout->addWidget(pages_, 1);

    auto* mappingLayout = addPage(pages_, mappingPage_);
    sheetName_ = label("heading", "Spreadsheet");
    origin_ = label("secondary", "Results");
    newRows_ = label("secondary", "New rows");
    for (auto* part : {sheetName_, origin_, newRows_}) mappingLayout->addWidget(part);
    auto* columns = new QGridLayout;
    columns->setHorizontalSpacing(12);
    columns->setVerticalSpacing(6);
    columns->setColumnStretch(2, 1);
    int line = 0;
    for (const auto role : app::bulkColumnRoles) {
        auto* choice = new QComboBox;
        choice->setAccessibleName(app::label(role));
        choice->setMinimumWidth(200);
        auto* help = label("secondary");
        help->setText(app::helpText(role));
        columns->addWidget(new QLabel(QString(app::label(role)) + ":"), line, 0);
        columns->addWidget(choice, line, 1);
        columns->addWidget(help, line, 2);
        QObject::connect(choice, &QComboBox::activated, this, [this, role, choice](int index) {
            const auto& mapping = *model_->as<app::BulkMappingState>();
            const int column = choice->itemData(index).toInt();
            model_->choose(role, column < 0 ? std::nullopt : std::optional(mapping.columns[std::size_t(column)]));
        });
        columnChoices_.push_back(choice);
        ++line;
    }
    reimport_ = new QComboBox;
    reimport_->setAccessibleName("Rows whose video the site has");
    for (const auto mode : reimportModes) reimport_->addItem(app::BulkWords::reimportChoice(mode));
    columns->addWidget(new QLabel("Videos the site has:"), line, 0);
    columns->addWidget(reimport_, line, 1);
    mappingLayout->addSpacing(6);
    mappingLayout->addLayout(columns);
    plan_ = label(nullptr, "Plan");
    mappingLayout->addWidget(plan_);
    samples_ = new QTableWidget;
    samples_->setAccessibleName("First rows");
    samples_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    samples_->setSelectionMode(QAbstractItemView::NoSelection);
    samples_->setFocusPolicy(Qt::NoFocus);
    samples_->verticalHeader()->hide();
    samples_->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    samples_->horizontalHeader()->setStretchLastSection(true);
    samples_->setWordWrap(false);
    mappingLayout->addWidget(samples_, 1);

    auto* runLayout = addPage(pages_, runPage_);
    runTitle_ = label("heading", "Title");
    counts_ = label(nullptr, "Counts");
    estimate_ = label("secondary", "Estimate");
    report_ = label("secondary", "Report");
    for (auto* part : {runTitle_, counts_, estimate_, report_}) runLayout->addWidget(part);
    table_ = new RunTable({"Row", "Video", "Duration", "Status"}, app::BulkWords::phase, this);
    rows_ = table("Rows");
    rows_->setModel(table_);
    auto* header = rows_->horizontalHeader();
    header->resizeSection(0, 56);
    header->resizeSection(1, 260);
    header->resizeSection(2, 90);
    runLayout->addWidget(rows_, 1);

    auto* buttons = new QHBoxLayout;
    reimportDone_ = button("Re-import Done Rows");
    close_ = button("Close");
    stop_ = button("Stop");
    start_ = button("Start", "primary");
    start_->setDefault(true);
    buttons->addWidget(reimportDone_);
    buttons->addStretch(1);
    buttons->addWidget(close_);
    buttons->addWidget(stop_);
    buttons->addWidget(start_);
    layout->addLayout(buttons);

    QObject::connect(reimport_, &QComboBox::activated, this,
                     [this](int index) { model_->setReimport(reimportModes[index]); });
    QObject::connect(reimportDone_, &QPushButton::clicked, this, [this] { tell(model_->reimportDoneRows()); });
    QObject::connect(start_, &QPushButton::clicked, this, [this] { tell(model_->start()); });
    QObject::connect(stop_, &QPushButton::clicked, this, &BulkWindow::confirmStop);
    QObject::connect(close_, &QPushButton::clicked, this, &QWidget::close);
    auto* closeKey = new QShortcut(QKeySequence::Close, this);
    QObject::connect(closeKey, &QShortcut::activated, this, &QWidget::close);

    QPointer<BulkWindow> window(this);
    model_->onChange([window] {
        if (window) window->modelChanged();
    });
    modelChanged();
}

void BulkWindow::open(const std::filesystem::path& input) {
    if (!model_->isRunning()) model_->open(input);
    show();
    raise();
    activateWindow();
}

void BulkWindow::tell(const std::optional<app::BulkProblem>& problem) {
    if (problem) libraryDialogs::tell(this, text(problem->title), text(problem->message));
}

void BulkWindow::confirmStop() {
    libraryDialogs::confirm(this, app::BulkWords::stopQuestion, app::BulkWords::stopExplanation, "Stop",
                            [this] { model_->stop(); });
}

void BulkWindow::closeEvent(QCloseEvent* event) {
    if (!model_->isRunning()) return QWidget::closeEvent(event);
    event->ignore();
    if (!model_->as<app::BulkRunState>()->isStopping) confirmStop();
}

void BulkWindow::modelChanged() {
    const auto& phase = model_->phase();
    reimportDone_->hide();
    stop_->hide();
    start_->hide();
    close_->setText("Close");
    if (const auto* opening = std::get_if<app::bulkPhase::Opening>(&phase))
        messagePage_.show("Opening " + fileName(opening->input) + "\u2026", QString());
    else if (const auto* unreadable = std::get_if<app::bulkPhase::Unreadable>(&phase))
        messagePage_.show(text(unreadable->problem.title), text(unreadable->problem.message));
    else if (std::holds_alternative<app::bulkPhase::Empty>(phase))
        messagePage_.show(app::BulkWords::cannotOpen, app::BulkWords::empty);
    else if (const auto* failed = std::get_if<app::bulkPhase::Failed>(&phase))
        messagePage_.show(text(failed->problem.title), text(failed->problem.message));
    else if (const auto* mapping = std::get_if<app::BulkMappingState>(&phase))
        showMapping(*mapping);
    else if (const auto* run = std::get_if<app::BulkRunState>(&phase))
        showRun(*run);
    else if (const auto* end = std::get_if<app::BulkEndState>(&phase))
        showEnd(*end);
}

void BulkWindow::showMapping(const app::BulkMappingState& mapping) {
    close_->setText("Cancel");
    start_->show();
    reimportDone_->show();
    sheetName_->setText("Publish the Rows of " + fileName(mapping.sheet.input));
    origin_->setText(text(mapping.origin));
    newRows_->setText(mapping.newRows ? text(*mapping.newRows) : QString());
    newRows_->setVisible(mapping.newRows.has_value());

    auto choice = mapping.choice;
    for (std::size_t at = 0; at < columnChoices_.size(); ++at) {
        auto* combo = columnChoices_[at];
        const QSignalBlocker blocker(combo);
        combo->clear();
        combo->addItem("None", -1);
        const auto& chosen = choice[app::bulkColumnRoles[at]];
        for (std::size_t column = 0; column < mapping.columns.size(); ++column) {
            combo->addItem(text(mapping.columns[column].name), int(column));
            if (chosen && *chosen == mapping.columns[column]) combo->setCurrentIndex(combo->count() - 1);
        }
    }
    reimport_->setCurrentIndex(int(std::find(std::begin(reimportModes), std::end(reimportModes), mapping.reimport) -
                                   std::begin(reimportModes)));

    const auto* plan = std::get_if<BulkPlan>(&mapping.plan);
    if (plan)
        plan_->setText(text(app::BulkWords::plan(*plan)));
    else if (const auto* failed = std::get_if<app::BulkMappingState::Failed>(&mapping.plan))
        plan_->setText(text(failed->message));
    else
        plan_->setText(app::BulkWords::needsFile);
    const char* planRole = plan ? "" : "error";
    if (plan_->property("role").toString() != planRole) setRole(plan_, planRole);
    start_->setEnabled(plan && plan->rowCount + plan->newRowCount > plan->doneCount);
    reimportDone_->setEnabled(plan && plan->doneCount > 0);

    samples_->clear();
    samples_->setColumnCount(int(mapping.columns.size()));
    samples_->setRowCount(int(mapping.sampleRows.size()));
    QStringList names;
    for (const auto& column : mapping.columns) names << text(column.name);
    samples_->setHorizontalHeaderLabels(names);
    for (std::size_t row = 0; row < mapping.sampleRows.size(); ++row)
        for (std::size_t cell = 0; cell < mapping.sampleRows[row].size(); ++cell)
            samples_->setItem(int(row), int(cell), new QTableWidgetItem(text(mapping.sampleRows[row][cell])));
    pages_->setCurrentWidget(mappingPage_);
}

void BulkWindow::showRun(const app::BulkRunState& run) {
    stop_->show();
    stop_->setEnabled(!run.isStopping);
    close_->hide();
    runTitle_->setText("Publishing the Rows of " + fileName(run.request.input));
    report_->hide();
    const auto& progress = run.progress;
    counts_->setText(progress ? text(app::BulkWords::counts(progress->counts)) : QString());
    if (run.isStopping)
        estimate_->setText(app::BulkWords::stopping);
    else if (!progress)
        estimate_->setText("Preparing the results and reading the site\u2026");
    else
        estimate_->setText(progress->eta ? "About " + format::clock(*progress->eta) + " left"
                                         : QString("Estimating the time left\u2026"));
    estimate_->show();
    if (progress)
        table_->show(progress->results, progress->activeItems, cellsOf(run.rows, run.durations));
    else
        table_->clear();
    pages_->setCurrentWidget(runPage_);
}

void BulkWindow::showEnd(const app::BulkEndState& end) {
    close_->show();
    const bool stopped = end.ending == app::BulkEndState::Ending::stopped;
    runTitle_->setText(stopped ? QString("Bulk") + app::BulkWords::uploadStoppedSuffix : app::BulkWords::completedTitle);
    counts_->setText(text(app::BulkWords::counts(end.counts)));
    estimate_->hide();
    QStringList report{"Results: " + text(end.output.string())};
    if (end.counts.alreadyDone > 0) report << text(app::BulkWords::doneEarlier(end.counts.alreadyDone));
    if (end.addedRowCount > 0) report << text(app::BulkWords::addedRows(end.addedRowCount));
    report_->setText(report.join('\n'));
    report_->show();
    table_->show(end.results, {}, cellsOf(end.rows, end.durations));
    pages_->setCurrentWidget(runPage_);
}

}  // namespace vorlen::shell
