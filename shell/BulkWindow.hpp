#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include <QWidget>

#include "app/BulkUploadModel.hpp"
#include "shell/WindowParts.hpp"

class QComboBox;
class QLabel;
class QPushButton;
class QStackedWidget;
class QTableView;
class QTableWidget;

namespace vorlen::shell {

class RunTable;

// The bulk upload of one site in a window of its own: the columns of a
// spreadsheet to confirm, then its rows as they are published, then the report.
class BulkWindow : public QWidget {
public:
    BulkWindow(std::shared_ptr<app::BulkUploadModel> model, QWidget* parent);

    app::BulkUploadModel& model() const { return *model_; }
    // Opens a spreadsheet in this window; while a run goes on the window only comes forward.
    void open(const std::filesystem::path& input);
    QTableView* rows() const { return rows_; }

protected:
    // A run is stopped, after a question, before its window can go.
    void closeEvent(QCloseEvent* event) override;

private:
    void modelChanged();
    void showMapping(const app::BulkMappingState& mapping);
    void showRun(const app::BulkRunState& run);
    void showEnd(const app::BulkEndState& end);
    void tell(const std::optional<app::BulkProblem>& problem);
    void confirmStop();

    std::shared_ptr<app::BulkUploadModel> model_;
    QStackedWidget* pages_;

    windowParts::MessagePage messagePage_;

    QWidget* mappingPage_;
    QLabel* sheetName_;
    QLabel* origin_;
    QLabel* newRows_;
    std::vector<QComboBox*> columnChoices_;  // in the order of the roles
    QLabel* plan_;
    QComboBox* reimport_;
    QTableWidget* samples_;
    QPushButton* reimportDone_;
    QPushButton* start_;

    QWidget* runPage_;
    QLabel* runTitle_;
    QLabel* counts_;
    QLabel* estimate_;
    QLabel* report_;
    RunTable* table_;
    QTableView* rows_;
    QPushButton* stop_;
    QPushButton* close_;
};

}  // namespace vorlen::shell
