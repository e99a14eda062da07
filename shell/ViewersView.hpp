#pragma once

#include <memory>
#include <optional>

#include <QWidget>

#include "app/ViewersModel.hpp"

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QStandardItemModel;
class QTableView;

namespace vorlen::shell {

// Who may watch the site: the viewers with their invite or passkey, and the
// invite link of a viewer just added, shown once.
class ViewersView : public QWidget {
public:
    explicit ViewersView(std::shared_ptr<app::ViewersModel> model, QWidget* parent = nullptr);

    void show(const app::ViewersModel& model);
    QTableView* table() const { return table_; }

    void addViewer();
    void renameViewer();
    void removeViewer();

private:
    std::optional<ViewerID> selected() const;
    void enableButtons();

    std::shared_ptr<app::ViewersModel> model_;
    QStandardItemModel* rows_;
    QTableView* table_;
    QCheckBox* private_;
    QLabel* empty_;
    QWidget* invitation_;
    QLabel* linkNote_;
    QLineEdit* link_;
    QPushButton* add_;
    QPushButton* rename_;
    QPushButton* renew_;
    QPushButton* remove_;
};

}  // namespace vorlen::shell
