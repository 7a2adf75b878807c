// The plan's shown rows as a list model: the rows of CleanupFlow's visibleItems, each with the
// words the screen puts where, whether it is ticked and whether its tick can move. It follows
// the flow: a new plan resets it, a row measured during a load is appended, and a change of
// ticks touches only the rows whose tick changed, so a plan of thousands of rows stays quick.
#pragma once
#include <QAbstractListModel>

#include <vector>

#include "cleanup/CleanupPlan.hpp"

namespace vorlan::app {

class CleanupFlow;

class CleanupRowModel : public QAbstractListModel {
  Q_OBJECT

 public:
  enum Role {
    sizeRole = Qt::UserRole + 1,  // "%.1fGB"
    whatRole,                     // empty when the row has none
    reasonRole,
    consequenceRole,              // the line as shown, "지우면 · " where deleting is on offer
    consequenceAccentRole,        // bool: the line stands in the accent
    pathRole,                     // "~/…"
    canToggleRole,                // bool
  };

  explicit CleanupRowModel(CleanupFlow& flow, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  // Qt::CheckStateRole asks the flow to toggle the row; rows that can't be carried out refuse.
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

  const CleanupItem& item(int row) const { return rows_[static_cast<size_t>(row)]; }

 private:
  void reset();
  void append(const CleanupItem& row);
  void followTicks();

  CleanupFlow& flow_;
  std::vector<CleanupItem> rows_;
  std::vector<bool> ticked_;  // per row, as last told
};

// The consequence line of a row: kept and running rows state theirs alone, every other row
// says what deleting does.
QString consequenceLine(const CleanupItem& item);

}  // namespace vorlan::app
