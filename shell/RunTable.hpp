#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <QAbstractTableModel>
#include <QStringList>

#include "core/batch/BatchRun.hpp"

namespace vorlen::shell {

// The items of a batch run that are in work or done, a line each: the item's own
// cells, then its state, in the colour of failures when the item failed.
class RunTable : public QAbstractTableModel {
public:
    // An item's cells before its state; absent for an item that the run does not know.
    using Cells = std::function<std::optional<QStringList>(std::int64_t item)>;
    // "Encodes", "Downloads": a phase in the run's own words.
    using PhaseWords = std::function<std::string(BatchPhase)>;

    // The headers end with the state's.
    RunTable(QStringList headers, PhaseWords phaseWords, QObject* parent);

    // The items with a result or in work, in the order of the run.
    void show(const std::map<std::int64_t, BulkRowOutcome>& results, const std::vector<BatchActiveItem>& active,
              const Cells& cells);
    void clear() { show({}, {}, nullptr); }

    int rowCount(const QModelIndex& parent) const override;
    int columnCount(const QModelIndex& parent) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    struct Line {
        QStringList cells;  // the state last
        bool isFailure = false;
    };

    QStringList headers_;
    PhaseWords phaseWords_;
    std::vector<Line> lines_;
};

}  // namespace vorlen::shell
