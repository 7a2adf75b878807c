// One row of the plan, painted: the toggle, the name with its size, what the folder is, why
// it got its verdict, what deleting does, and the path. Rows wrap their sentences, so each
// row's height depends on the width; heights are kept per width and are not touched by a
// tick, which repaints one row and nothing else.
#pragma once
#include <QListView>
#include <QStyledItemDelegate>

#include <optional>
#include <vector>

namespace vorlan::app {

class CleanupRowDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  explicit CleanupRowDelegate(QListView* view);

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  // A click on the toggle, or the space bar on the current row, asks the model to flip it.
  bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

  int rowHeight(const QModelIndex& index, int width) const;
  // Where the toggle of a row drawn in `row` sits.
  static QRect toggleRect(const QRect& row);
  // Heights are measured anew (a new width or new words).
  void forget();
  // Keeps the heights in step with `model`'s rows and words.
  void follow(QAbstractItemModel* model);

 private:
  // The faces of a row, from the view's own (the application's Korean-capable) font.
  struct Faces {
    explicit Faces(const QFont& base);
    QFont from, name, small, muted, figure;
    QFontMetrics smallMetrics, mutedMetrics;
    int nameLine;  // the name's line, tall enough for the size beside it
  };
  const Faces& faces() const;

  QListView* view_;
  mutable std::optional<Faces> faces_;
  mutable std::vector<int> heights_;  // by row, -1 when not yet measured
  mutable int measuredWidth_ = -1;
};

// The plan's rows in a list that is as tall as its rows, for a scrolling column around it:
// only the rows in sight are painted.
class CleanupRowList : public QListView {
  Q_OBJECT

 public:
  explicit CleanupRowList(QWidget* parent = nullptr);
  void setModel(QAbstractItemModel* model) override;
  CleanupRowDelegate* rowDelegate() const { return delegate_; }

 signals:
  // The current row moved (by keyboard): the column should bring `rect` (in this widget's
  // coordinates) into sight.
  void wantsInSight(const QRect& rect);

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;

 private:
  void fit();

  CleanupRowDelegate* delegate_;
  int laidOutWidth_ = -1;
};

}  // namespace vorlan::app
