#include "theme/Icons.hpp"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>

namespace vorlan::app::theme {
namespace {

QPen strokePen(const QColor& c, double width = 2.0) {
  QPen pen(c, width);
  pen.setCapStyle(Qt::RoundCap);
  pen.setJoinStyle(Qt::RoundJoin);
  return pen;
}

QPainterPath shield() {
  QPainterPath p;
  p.moveTo(12, 2.5);
  p.lineTo(20, 5.5);
  p.lineTo(20, 11);
  p.cubicTo(20, 16, 16.5, 19.5, 12, 21.5);
  p.cubicTo(7.5, 19.5, 4, 16, 4, 11);
  p.lineTo(4, 5.5);
  p.closeSubpath();
  return p;
}

void check(QPainter& p, const QColor& c, double width = 2.2) {
  p.setPen(strokePen(c, width));
  p.setBrush(Qt::NoBrush);
  p.drawPolyline(QPolygonF({{7.5, 12.5}, {10.8, 15.6}, {16.5, 9}}));
}

void lockShape(QPainter& p, const QColor& c, const QRectF& body) {
  p.setPen(strokePen(c, body.width() / 5.5));
  p.setBrush(Qt::NoBrush);
  const double w = body.width() * 0.62;
  const QRectF shackle(body.center().x() - w / 2, body.top() - w * 0.75, w, w * 1.4);
  p.drawArc(shackle, 0, 180 * 16);
  p.drawLine(QPointF(shackle.left(), shackle.center().y()), QPointF(shackle.left(), body.top()));
  p.drawLine(QPointF(shackle.right(), shackle.center().y()), QPointF(shackle.right(), body.top()));
  p.setPen(Qt::NoPen);
  p.setBrush(c);
  p.drawRoundedRect(body, body.width() * 0.12, body.width() * 0.12);
}

void filledCircle(QPainter& p, const QColor& c) {
  p.setPen(Qt::NoPen);
  p.setBrush(c);
  p.drawEllipse(QRectF(2, 2, 20, 20));
}

void draw(QPainter& p, const QString& name, const QColor& c, const QColor& onFill) {
  if (name == "checkmark.shield" || name == "lock.shield") {
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawPath(shield());
    if (name == "checkmark.shield")
      check(p, c, 2.0);
    else
      lockShape(p, c, QRectF(9, 11, 6, 5));
  } else if (name == "checkmark.circle") {
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QRectF(3, 3, 18, 18));
    check(p, c, 2.0);
  } else if (name == "checkmark.circle.fill") {
    filledCircle(p, c);
    check(p, onFill);
  } else if (name == "magnifyingglass.circle.fill") {
    filledCircle(p, c);
    p.setPen(strokePen(onFill, 2.0));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QRectF(7, 7, 7.5, 7.5));
    p.drawLine(QPointF(13.6, 13.6), QPointF(17, 17));
  } else if (name == "lock.fill") {
    lockShape(p, c, QRectF(5, 10.5, 14, 11));
  } else if (name == "lock.circle.fill") {
    filledCircle(p, c);
    lockShape(p, onFill, QRectF(8.5, 11.5, 7, 6));
  } else if (name == "circle.dashed") {
    QPen pen = strokePen(c, 2.0);
    pen.setCapStyle(Qt::FlatCap);
    pen.setDashPattern({1.6, 1.4});
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QRectF(3, 3, 18, 18));
  } else if (name == "exclamationmark.triangle.fill") {
    QPainterPath t;
    t.moveTo(12, 2.5);
    t.lineTo(22.5, 20.5);
    t.lineTo(1.5, 20.5);
    t.closeSubpath();
    p.setPen(strokePen(c, 1.5));
    p.setBrush(c);
    p.drawPath(t);
    p.setPen(strokePen(onFill, 2.2));
    p.drawLine(QPointF(12, 8.5), QPointF(12, 13.5));
    p.drawPoint(QPointF(12, 17));
  } else if (name == "arrow.right.circle.fill") {
    filledCircle(p, c);
    p.setPen(strokePen(onFill, 2.0));
    p.drawLine(QPointF(7, 12), QPointF(16.5, 12));
    p.drawPolyline(QPolygonF({{12.5, 8}, {16.5, 12}, {12.5, 16}}));
  } else if (name == "antenna.radiowaves.left.and.right") {
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawLine(QPointF(12, 12), QPointF(12, 21));
    p.setBrush(c);
    p.drawEllipse(QPointF(12, 10.5), 1.6, 1.6);
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(6.5, 5, 11, 11), 130 * 16, 100 * 16);
    p.drawArc(QRectF(6.5, 5, 11, 11), -50 * 16, 100 * 16);
    p.drawArc(QRectF(2.5, 1, 19, 19), 135 * 16, 90 * 16);
    p.drawArc(QRectF(2.5, 1, 19, 19), -45 * 16, 90 * 16);
  } else if (name == "wifi.slash") {
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(2.5, 5, 19, 19), 45 * 16, 90 * 16);
    p.drawArc(QRectF(6.5, 9, 11, 11), 45 * 16, 90 * 16);
    p.setBrush(c);
    p.drawEllipse(QPointF(12, 18), 1.3, 1.3);
    p.drawLine(QPointF(4, 3.5), QPointF(20, 20.5));
  } else if (name == "text.bubble" || name == "questionmark.bubble") {
    // A speech bubble with its tail at the lower left; inside, lines of text or a question.
    QPainterPath bubble;
    bubble.addRoundedRect(QRectF(2.5, 3.5, 19, 14), 4, 4);
    QPainterPath tail;
    tail.moveTo(6, 16);
    tail.lineTo(5, 21.5);
    tail.lineTo(11, 16.5);
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawPath(bubble.united(tail).simplified());
    if (name == "text.bubble") {
      p.drawLine(QPointF(7, 8.5), QPointF(17, 8.5));
      p.drawLine(QPointF(7, 12.5), QPointF(13.5, 12.5));
    } else {
      QPainterPath hook;
      hook.moveTo(9.6, 8.6);
      hook.cubicTo(9.6, 6.6, 14.4, 6.6, 14.4, 8.6);
      hook.cubicTo(14.4, 10.2, 12, 10.2, 12, 12);
      p.drawPath(hook);
      p.setBrush(c);
      p.setPen(Qt::NoPen);
      p.drawEllipse(QPointF(12, 14.6), 1.1, 1.1);
    }
  } else if (name == "square.and.arrow.down") {
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawPolyline(QPolygonF({{8, 9}, {5, 9}, {5, 21}, {19, 21}, {19, 9}, {16, 9}}));
    p.drawLine(QPointF(12, 2.5), QPointF(12, 15));
    p.drawPolyline(QPolygonF({{8.5, 11.5}, {12, 15}, {15.5, 11.5}}));
  } else if (name == "arrow.down.circle") {
    p.setPen(strokePen(c, 1.8));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QRectF(3, 3, 18, 18));
    p.drawLine(QPointF(12, 7.5), QPointF(12, 16));
    p.drawPolyline(QPolygonF({{8.5, 12.5}, {12, 16}, {15.5, 12.5}}));
  } else if (name == "xmark") {
    p.setPen(strokePen(c, 2.0));
    p.drawLine(QPointF(6.5, 6.5), QPointF(17.5, 17.5));
    p.drawLine(QPointF(17.5, 6.5), QPointF(6.5, 17.5));
  } else if (name == "chevron.right" || name == "chevron.down") {
    p.setPen(strokePen(c, 2.0));
    p.setBrush(Qt::NoBrush);
    if (name == "chevron.right")
      p.drawPolyline(QPolygonF({{9, 6}, {15, 12}, {9, 18}}));
    else
      p.drawPolyline(QPolygonF({{6, 9}, {12, 15}, {18, 9}}));
  }
}

class SymbolEngine : public QIconEngine {
 public:
  SymbolEngine(QString name, DynamicColor color) : name_(std::move(name)), color_(color) {}
  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
    QColor c = color_.current();
    if (mode == QIcon::Disabled) c.setAlphaF(0.4);
    paintSymbol(*painter, rect, name_, c);
  }
  QIconEngine* clone() const override { return new SymbolEngine(name_, color_); }
  // Drawn afresh for each request, so the icon follows the appearance.
  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap pm(size);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    paint(&p, QRect(QPoint(0, 0), size), mode, state);
    return pm;
  }

 private:
  QString name_;
  DynamicColor color_;
};

}  // namespace

void paintSymbol(QPainter& painter, const QRectF& rect, const QString& name, const QColor& color,
                 const QColor& inner) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  // Symbols are drawn on a 24×24 grid, centred in the target rectangle.
  const double side = std::min(rect.width(), rect.height());
  painter.translate(rect.x() + (rect.width() - side) / 2, rect.y() + (rect.height() - side) / 2);
  painter.scale(side / 24.0, side / 24.0);
  draw(painter, name, color, inner);
  painter.restore();
}

QIcon symbolIcon(const QString& name, DynamicColor color) {
  return QIcon(new SymbolEngine(name, color));
}

SymbolView::SymbolView(QString name, DynamicColor color, int size, QWidget* parent)
    : QWidget(parent), name_(std::move(name)), color_(color) {
  setFixedSize(size, size);
}

void SymbolView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  paintSymbol(p, rect(), name_, color_.current());
}

Spinner::Spinner(int size, QWidget* parent) : QWidget(parent) {
  setFixedSize(size, size);
  startTimer(80);
}

void Spinner::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  const QRectF r = QRectF(rect()).adjusted(2, 2, -2, -2);
  p.setPen(QPen(vlLine.current(), 2));
  p.drawEllipse(r);
  QPen arc(vlMuted.current(), 2);
  arc.setCapStyle(Qt::RoundCap);
  p.setPen(arc);
  p.drawArc(r, -angle_ * 16, 90 * 16);
}

void Spinner::timerEvent(QTimerEvent*) {
  angle_ = (angle_ + 30) % 360;
  update();
}

}  // namespace vorlan::app::theme
