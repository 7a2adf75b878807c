#include "screens/CleanupRowModel.hpp"

#include "flow/CleanupFlow.hpp"

namespace vorlan::app {
namespace {

QString qs(const std::string& text) { return QString::fromStdString(text); }

bool shown(const CleanupItem& item) { return item.bytes >= CleanupPolicy::minVisibleBytes; }

}  // namespace

QString consequenceLine(const CleanupItem& item) {
  if (item.verdict == CleanupVerdict::keep || item.verdict == CleanupVerdict::inUse)
    return qs(item.consequence);
  return QStringLiteral("지우면 · ") + qs(item.consequence);
}

CleanupRowModel::CleanupRowModel(CleanupFlow& flow, QObject* parent)
    : QAbstractListModel(parent), flow_(flow) {
  connect(&flow_, &CleanupFlow::itemsChanged, this, &CleanupRowModel::reset);
  connect(&flow_, &CleanupFlow::rowArrived, this, &CleanupRowModel::append);
  connect(&flow_, &CleanupFlow::checkedChanged, this, &CleanupRowModel::followTicks);
  reset();
}

int CleanupRowModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant CleanupRowModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const size_t row = static_cast<size_t>(index.row());
  const CleanupItem& item = rows_[row];
  switch (role) {
    case Qt::DisplayRole: return qs(item.name);
    case Qt::CheckStateRole: return ticked_[row] ? Qt::Checked : Qt::Unchecked;
    case sizeRole: return qs(formatGB(item.bytes));
    case whatRole: return qs(item.what);
    case reasonRole: return qs(item.reason);
    case consequenceRole: return consequenceLine(item);
    case consequenceAccentRole: return item.verdict == CleanupVerdict::needsReview;
    case pathRole: return QStringLiteral("~/") + qs(item.path);
    case canToggleRole: return item.isExecutable();
    default: return {};
  }
}

bool CleanupRowModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (role != Qt::CheckStateRole || !index.isValid() || index.row() >= rowCount()) return false;
  const size_t row = static_cast<size_t>(index.row());
  if (!rows_[row].isExecutable()) return false;
  const bool want = value.value<Qt::CheckState>() == Qt::Checked;
  // The tick lives in the flow; its checkedChanged brings the row's new state back here.
  if (want != ticked_[row]) flow_.toggle(rows_[row].path);
  return true;
}

Qt::ItemFlags CleanupRowModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) return Qt::NoItemFlags;
  Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
  if (item(index.row()).isExecutable()) f |= Qt::ItemIsUserCheckable;
  return f;
}

void CleanupRowModel::reset() {
  beginResetModel();
  rows_.clear();
  ticked_.clear();
  const auto& checked = flow_.checked();
  for (const CleanupItem& item : flow_.items()) {
    if (!shown(item)) continue;
    rows_.push_back(item);
    ticked_.push_back(checked.contains(item.path));
  }
  endResetModel();
}

void CleanupRowModel::append(const CleanupItem& row) {
  if (!shown(row)) return;
  const int at = rowCount();
  beginInsertRows({}, at, at);
  rows_.push_back(row);
  ticked_.push_back(flow_.checked().contains(row.path));
  endInsertRows();
}

void CleanupRowModel::followTicks() {
  const auto& checked = flow_.checked();
  for (size_t row = 0; row < rows_.size(); ++row) {
    const bool now = checked.contains(rows_[row].path);
    if (now == ticked_[row]) continue;
    ticked_[row] = now;
    const QModelIndex at = index(static_cast<int>(row));
    emit dataChanged(at, at, {Qt::CheckStateRole});
  }
}

}  // namespace vorlan::app
