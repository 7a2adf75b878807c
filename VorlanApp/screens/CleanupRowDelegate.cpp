#include "screens/CleanupRowDelegate.hpp"

#include <QAbstractScrollArea>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyleOptionButton>

#include <algorithm>

#include "screens/CleanupRowModel.hpp"
#include "theme/Components.hpp"
#include "theme/Palette.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

constexpr int padX = 16;
constexpr int padY = 12;
constexpr int toggleSide = 18;
constexpr int textX = padX + toggleSide + 12;
constexpr int lineGap = 3;
constexpr int sizeGap = 12;


// The height of `text` wrapped into `width`; one line is the common case and the cheap one.
int wrappedHeight(const QFontMetrics& fm, const QString& text, int width) {
  if (fm.horizontalAdvance(text) <= width) return fm.height();
  return fm.boundingRect(QRect(0, 0, width, 1 << 20), Qt::TextWordWrap, text).height();
}


}  // namespace

CleanupRowDelegate::Faces::Faces(const QFont& base)
    : from(base), name(base), small(base), muted(base), figure(figureFont(13, QFont::DemiBold)),
      smallMetrics(base), mutedMetrics(base) {
  name.setPixelSize(14);
  name.setWeight(QFont::Medium);
  small.setPixelSize(12);
  muted.setPixelSize(13);
  smallMetrics = QFontMetrics(small);
  mutedMetrics = QFontMetrics(muted);
  nameLine = std::max(QFontMetrics(name).height(), QFontMetrics(figure).height());
}

CleanupRowDelegate::CleanupRowDelegate(QListView* view) : QStyledItemDelegate(view), view_(view) {}

const CleanupRowDelegate::Faces& CleanupRowDelegate::faces() const {
  // Made once per font: looking up faces is far dearer than measuring with them.
  if (!faces_ || faces_->from != view_->font()) faces_.emplace(view_->font());
  return *faces_;
}

void CleanupRowDelegate::follow(QAbstractItemModel* model) {
  connect(model, &QAbstractItemModel::modelReset, this, &CleanupRowDelegate::forget);
  connect(model, &QAbstractItemModel::layoutChanged, this, &CleanupRowDelegate::forget);
  connect(model, &QAbstractItemModel::rowsInserted, this, [this](const QModelIndex&, int first, int last) {
    if (measuredWidth_ < 0 || static_cast<size_t>(first) > heights_.size()) return forget();
    heights_.insert(heights_.begin() + first, static_cast<size_t>(last - first + 1), -1);
  });
  connect(model, &QAbstractItemModel::rowsRemoved, this, &CleanupRowDelegate::forget);
  connect(model, &QAbstractItemModel::dataChanged, this,
          [this](const QModelIndex& from, const QModelIndex& to, const QList<int>& roles) {
            // A tick changes no words, so no height.
            if (roles == QList<int>{Qt::CheckStateRole}) return;
            for (int row = from.row(); row <= to.row() && static_cast<size_t>(row) < heights_.size(); ++row)
              heights_[static_cast<size_t>(row)] = -1;
          });
}

void CleanupRowDelegate::forget() {
  heights_.clear();
  measuredWidth_ = -1;
}

QRect CleanupRowDelegate::toggleRect(const QRect& row) {
  return {row.left() + padX, row.top() + padY + 1, toggleSide, toggleSide};
}

int CleanupRowDelegate::rowHeight(const QModelIndex& index, int width) const {
  if (width != measuredWidth_) {
    heights_.clear();
    measuredWidth_ = width;
  }
  const size_t row = static_cast<size_t>(index.row());
  const size_t rows = static_cast<size_t>(index.model()->rowCount());
  if (heights_.size() < rows) heights_.resize(rows, -1);
  if (row < heights_.size() && heights_[row] >= 0) return heights_[row];

  const Faces& f = faces();
  const QFontMetrics& small = f.smallMetrics;
  const QFontMetrics& muted = f.mutedMetrics;
  const int textWidth = std::max(40, width - textX - padX);
  int h = padY + f.nameLine;
  const QString what = index.data(CleanupRowModel::whatRole).toString();
  if (!what.isEmpty()) h += lineGap + wrappedHeight(small, what, textWidth);
  const QString reason = index.data(CleanupRowModel::reasonRole).toString();
  if (!reason.isEmpty()) h += lineGap + wrappedHeight(muted, reason, textWidth);
  h += lineGap + wrappedHeight(muted, index.data(CleanupRowModel::consequenceRole).toString(), textWidth);
  h += lineGap + small.height() + padY;
  if (row < heights_.size()) heights_[row] = h;
  return h;
}

QSize CleanupRowDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex& index) const {
  const int width = view_->viewport()->width();
  return {width, rowHeight(index, width)};
}

void CleanupRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
  const QRect r = option.rect;
  const Faces& f = faces();
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  painter->setRenderHint(QPainter::TextAntialiasing);
  if (index.row() > 0) painter->fillRect(QRect(r.left() + padX, r.top(), r.width() - 2 * padX, 1), vlLine.current());

  // The toggle, in the theme's own check box; faded when the row can't be carried out.
  const bool canToggle = index.data(CleanupRowModel::canToggleRole).toBool();
  QStyleOptionButton box;
  box.rect = toggleRect(r);
  box.state = (index.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked ? QStyle::State_On
                                                                                     : QStyle::State_Off);
  if (canToggle && view_->isEnabled()) box.state |= QStyle::State_Enabled;
  view_->style()->drawPrimitive(QStyle::PE_IndicatorCheckBox, &box, painter, view_);
  if (canToggle && (option.state & QStyle::State_HasFocus) && view_->hasFocus()) {
    painter->setPen(QPen(vlAccent.current(), 1.5));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(box.rect).adjusted(-3, -3, 3, 3), 5, 5);
  }

  const int textWidth = std::max(40, r.width() - textX - padX);
  const int x = r.left() + textX;
  int y = r.top() + padY;
  const int lineH = f.nameLine;

  // The name, then the size at the right end of the same line.
  const QString size = index.data(CleanupRowModel::sizeRole).toString();
  painter->setFont(f.figure);
  const int sizeW = painter->fontMetrics().horizontalAdvance(size);
  painter->setPen(vlInk.current());
  painter->drawText(QRect(x + textWidth - sizeW, y, sizeW, lineH), Qt::AlignRight | Qt::AlignVCenter, size);
  painter->setFont(f.name);
  const int nameW = std::max(0, textWidth - sizeW - sizeGap);
  painter->drawText(QRect(x, y, nameW, lineH), Qt::AlignLeft | Qt::AlignVCenter,
                    painter->fontMetrics().elidedText(index.data().toString(), Qt::ElideRight, nameW));
  y += lineH;

  const auto block = [&](const QFont& font, const QColor& color, const QString& text) {
    painter->setFont(font);
    painter->setPen(color);
    const int h = wrappedHeight(painter->fontMetrics(), text, textWidth);
    y += lineGap;
    painter->drawText(QRect(x, y, textWidth, h), Qt::TextWordWrap | Qt::AlignLeft | Qt::AlignTop, text);
    y += h;
  };
  const QString what = index.data(CleanupRowModel::whatRole).toString();
  if (!what.isEmpty()) block(f.small, vlMuted.current(), what);
  const QString reason = index.data(CleanupRowModel::reasonRole).toString();
  if (!reason.isEmpty()) block(f.muted, vlMuted.current(), reason);
  block(f.muted,
        index.data(CleanupRowModel::consequenceAccentRole).toBool() ? vlAccent.current() : vlMuted.current(),
        index.data(CleanupRowModel::consequenceRole).toString());

  painter->setFont(f.small);
  painter->setPen(vlFaint.current());
  y += lineGap;
  painter->drawText(QRect(x, y, textWidth, painter->fontMetrics().height()), Qt::AlignLeft | Qt::AlignTop,
                    painter->fontMetrics().elidedText(index.data(CleanupRowModel::pathRole).toString(),
                                                      Qt::ElideMiddle, textWidth));
  painter->restore();
}

bool CleanupRowDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                     const QStyleOptionViewItem& option, const QModelIndex& index) {
  if (!(model->flags(index) & Qt::ItemIsUserCheckable)) return false;
  const auto flip = [&] {
    const bool on = index.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
    return model->setData(index, on ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
  };
  switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::MouseButtonRelease: {
      const auto* mouse = static_cast<QMouseEvent*>(event);
      // The whole leading column answers, not only the small box.
      const QRect hit(option.rect.left(), option.rect.top(), textX - 4, option.rect.height());
      if (mouse->button() != Qt::LeftButton || !hit.contains(mouse->position().toPoint())) return false;
      return event->type() == QEvent::MouseButtonRelease ? flip() : true;
    }
    case QEvent::KeyPress: {
      const int key = static_cast<QKeyEvent*>(event)->key();
      return (key == Qt::Key_Space || key == Qt::Key_Select) && flip();
    }
    default: return false;
  }
}

CleanupRowList::CleanupRowList(QWidget* parent) : QListView(parent), delegate_(new CleanupRowDelegate(this)) {
  setItemDelegate(delegate_);
  setFrameShape(QFrame::NoFrame);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  setSelectionMode(QAbstractItemView::NoSelection);
  setEditTriggers(QAbstractItemView::NoEditTriggers);
  setAutoScroll(false);
  setUniformItemSizes(false);
  // The card behind shows through: no fill of its own.
  setAutoFillBackground(false);
  viewport()->setAutoFillBackground(false);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setFixedHeight(0);
}

void CleanupRowList::setModel(QAbstractItemModel* model) {
  QListView::setModel(model);
  delegate_->follow(model);
  connect(model, &QAbstractItemModel::modelReset, this, &CleanupRowList::fit);
  connect(model, &QAbstractItemModel::rowsInserted, this, &CleanupRowList::fit);
  connect(model, &QAbstractItemModel::rowsRemoved, this, &CleanupRowList::fit);
  fit();
}

void CleanupRowList::fit() {
  const QAbstractItemModel* m = model();
  int total = 0;
  const int width = viewport()->width();
  for (int row = 0, n = m ? m->rowCount() : 0; row < n; ++row)
    total += delegate_->rowHeight(m->index(row, 0), width);
  if (total != height()) setFixedHeight(total);
}

void CleanupRowList::resizeEvent(QResizeEvent* event) {
  QListView::resizeEvent(event);
  if (viewport()->width() == laidOutWidth_) return;
  // A new width wraps the sentences anew: new heights, laid out now rather than after the
  // view's own delay, so rows never overlap.
  laidOutWidth_ = viewport()->width();
  delegate_->forget();
  doItemsLayout();
  fit();
}

void CleanupRowList::wheelEvent(QWheelEvent* event) {
  // The column around scrolls; this list never does. Handed on outright: Qt passes a wheel
  // event upwards only in some cases (not for every phase or source), and a list that eats
  // the wheel would stop the whole screen from scrolling under the pointer.
  for (QWidget* w = parentWidget(); w; w = w->parentWidget()) {
    auto* area = qobject_cast<QAbstractScrollArea*>(w);
    if (!area) continue;
    QWheelEvent handedOn(area->viewport()->mapFromGlobal(event->globalPosition()), event->globalPosition(),
                         event->pixelDelta(), event->angleDelta(), event->buttons(), event->modifiers(),
                         event->phase(), event->inverted(), event->source());
    QCoreApplication::sendEvent(area->viewport(), &handedOn);
    event->setAccepted(handedOn.isAccepted());
    return;
  }
  event->ignore();
}

void CleanupRowList::currentChanged(const QModelIndex& current, const QModelIndex& previous) {
  QListView::currentChanged(current, previous);
  if (current.isValid()) emit wantsInSight(visualRect(current));
}

}  // namespace vorlan::app
