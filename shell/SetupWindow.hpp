#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QDialog>

#include "app/SetupModel.hpp"
#include "shell/QtMainQueue.hpp"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;
class QStackedWidget;
class QWidget;

namespace vorlen::shell {

// The setup of a site in a Cloudflare account, page by page: the Account API
// Token, the choice of account, bucket and hostnames, the twelve steps as they
// run, and the R2 API Token that the person makes when Vorlen may not. The same
// window shows a check of a site, read-only. The run goes on a task; closing the
// window cancels it.
class SetupWindow : public QDialog {
public:
    // A new site, or one of this computer set up again.
    explicit SetupWindow(app::AppModel& model, QWidget* parent = nullptr);
    // A check of a site of this computer with the Account API Token.
    SetupWindow(app::AppModel& model, const app::SiteID& site, APIToken token, QWidget* parent = nullptr);
    ~SetupWindow() override;

    // A run has ended: the site is in the list, set up completely or not yet.
    std::function<void(const app::SiteID&, bool isComplete)> onRunEnded;

    const app::SetupModel& setupModel() const { return *setup_; }
    QLineEdit* field(const QString& accessibleName) const;
    QComboBox* choiceBox(const QString& accessibleName) const;
    // The text of each of the twelve rows, as shown.
    QStringList rowTexts() const;

private:
    struct Row {
        QLabel* mark;
        QLabel* label;
        QLabel* text;
    };

    void build();
    QWidget* buildTokenPage();
    QWidget* buildChoicePage();
    QWidget* buildRunPage();
    QWidget* buildManualPage();
    void connectChoice();
    void refresh();
    void showToken(const app::TokenEntry& entry);
    void showChoice(const app::SiteChoice& choice);
    void showRun(const app::SetupRun& run);
    void showManual(const app::ManualTokenEntry& entry);
    void useBucketKind();

    // The model's answers come through this queue; it outlives the model, which is dropped first.
    QtMainQueue queue_;
    std::shared_ptr<app::SetupModel> setup_;
    bool wasRunning_ = false;

    QStackedWidget* pages_ = nullptr;
    QWidget* tokenPage_ = nullptr;
    QWidget* choicePage_ = nullptr;
    QWidget* runPage_ = nullptr;
    QWidget* manualPage_ = nullptr;

    QCheckBox* manualTokens_ = nullptr;
    QLabel* permissions_ = nullptr;
    QPushButton* openForm_ = nullptr;
    QLineEdit* token_ = nullptr;
    QLabel* tokenProblem_ = nullptr;
    QPushButton* continue_ = nullptr;

    QComboBox* account_ = nullptr;
    QLabel* zones_ = nullptr;
    QRadioButton* newBucket_ = nullptr;
    QRadioButton* existingBucket_ = nullptr;
    QButtonGroup* bucketKind_ = nullptr;
    QLineEdit* bucketName_ = nullptr;
    QComboBox* location_ = nullptr;
    QComboBox* existingBuckets_ = nullptr;
    QLineEdit* mediaHost_ = nullptr;
    QLineEdit* pageHost_ = nullptr;
    QLineEdit* path_ = nullptr;
    QLineEdit* computerName_ = nullptr;
    QLabel* choiceProblem_ = nullptr;
    QPushButton* setUp_ = nullptr;

    QLabel* runHeading_ = nullptr;
    std::vector<Row> rows_;
    QWidget* dashboard_ = nullptr;
    QPushButton* openTask_ = nullptr;
    QLabel* runProblem_ = nullptr;
    QPushButton* runBack_ = nullptr;
    QPushButton* runAgain_ = nullptr;
    QPushButton* repair_ = nullptr;
    QPushButton* done_ = nullptr;

    QLabel* manualMessage_ = nullptr;
    QPushButton* openTokenPage_ = nullptr;
    QLineEdit* manualToken_ = nullptr;
    QLabel* manualProblem_ = nullptr;
};

}  // namespace vorlen::shell
