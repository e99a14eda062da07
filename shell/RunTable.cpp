#include "shell/RunTable.hpp"

#include "app/BulkWords.hpp"
#include "shell/Appearance.hpp"
#include "shell/Format.hpp"

namespace vorlen::shell {

namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

// "Encodes  ·  42%  “folder”"
QString activeText(const BatchActiveItem& active, const std::string& phase) {
    QString words = text(phase);
    const auto fraction = active.phase == BatchPhase::downloading ? active.downloadFraction
                          : active.progress                       ? std::optional(active.progress->stageFraction)
                                                                  : std::nullopt;
    if (fraction) words += QString("  \u00b7  %1%").arg(int(*fraction * 100));
    if (active.folder) words += "  " + format::quoted(text(*active.folder));
    return words;
}

}  // namespace

RunTable::RunTable(QStringList headers, PhaseWords phaseWords, QObject* parent)
    : QAbstractTableModel(parent), headers_(std::move(headers)), phaseWords_(std::move(phaseWords)) {}

void RunTable::show(const std::map<std::int64_t, BulkRowOutcome>& results, const std::vector<BatchActiveItem>& active,
                    const Cells& cells) {
    std::map<std::int64_t, Line> lines;
    auto lineOf = [&](std::int64_t item) -> Line* {
        if (const auto found = lines.find(item); found != lines.end()) return &found->second;
        auto known = cells(item);
        if (!known) return nullptr;
        known->append(QString());
        return &(lines[item] = Line{*known, false});
    };
    for (const auto& [item, outcome] : results) {
        if (auto* line = lineOf(item)) {
            line->cells.back() = text(app::BulkWords::outcome(outcome));
            line->isFailure = std::holds_alternative<bulkOutcome::Failed>(outcome);
        }
    }
    for (const auto& each : active)
        if (auto* line = lineOf(each.item)) line->cells.back() = activeText(each, phaseWords_(each.phase));
    beginResetModel();
    lines_.clear();
    for (auto& [item, line] : lines) lines_.push_back(std::move(line));
    endResetModel();
}

int RunTable::rowCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(lines_.size()); }

int RunTable::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : int(headers_.size()); }

QVariant RunTable::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section >= headers_.size()) return {};
    return headers_[section];
}

QVariant RunTable::data(const QModelIndex& index, int role) const {
    const auto& line = lines_[std::size_t(index.row())];
    const bool isState = index.column() == headers_.size() - 1;
    if (role == Qt::ForegroundRole && isState && line.isFailure) return Colors::of(currentColorScheme()).error;
    if ((role == Qt::ToolTipRole && isState) || role == Qt::DisplayRole) return line.cells.value(index.column());
    return {};
}

}  // namespace vorlen::shell
