// The small icons, by the platform's symbol names ("lock.fill", "checkmark.circle.fill", …),
// drawn with QPainter so they look the same everywhere and take the current colours.
#pragma once
#include <QIcon>
#include <QString>
#include <QWidget>

#include "theme/Palette.hpp"

class QPainter;

namespace vorlan::app::theme {

// Draws the symbol `name` into `rect`; an unknown name draws nothing. The marks inside the
// filled symbols ("….fill") take `inner`.
void paintSymbol(QPainter& painter, const QRectF& rect, const QString& name, const QColor& color,
                 const QColor& inner = Qt::white);

// An icon for buttons that repaints in the colour of the current appearance.
QIcon symbolIcon(const QString& name, DynamicColor color);

// A fixed-size symbol in a layout.
class SymbolView : public QWidget {
  Q_OBJECT

 public:
  SymbolView(QString name, DynamicColor color, int size, QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent*) override;

 private:
  QString name_;
  DynamicColor color_;
};

// A small turning arc for "waiting".
class Spinner : public QWidget {
  Q_OBJECT

 public:
  explicit Spinner(int size, QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent*) override;
  void timerEvent(QTimerEvent*) override;

 private:
  int angle_ = 0;
};

}  // namespace vorlan::app::theme
