#include "theme/Theme.hpp"

#include <QEvent>
#include <QFontDatabase>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QProxyStyle>
#include <QStyleFactory>
#include <QStyleOption>
#include <QWidget>

#include "theme/Glyph.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app::theme {
namespace {

Appearance current = Appearance::light;

QString hex(DynamicColor c) { return c.current().name(); }

QString styleSheet() {
  // One rule per text role and per plain button look; filled buttons, cards and icons paint
  // themselves from the palette names.
  return QStringLiteral(R"(
QLabel[vl="largeTitle"] { font-size: 30px; font-weight: 700; color: %1; }
QLabel[vl="title"] { font-size: 21px; font-weight: 700; color: %1; }
QLabel[vl="title3"] { font-size: 17px; font-weight: 700; color: %1; }
QLabel[vl="headline"] { font-size: 15px; font-weight: 600; color: %1; }
QLabel[vl="body"] { font-size: 14px; color: %2; }
QLabel[vl="callout"] { font-size: 13px; color: %1; }
QLabel[vl="muted"] { font-size: 13px; color: %3; }
QLabel[vl="footnote"] { font-size: 12px; color: %3; }
QLabel[vl="error"] { font-size: 12px; color: %4; }
QLabel[vl="figure"] { color: %1; }
QLabel[vl="fig"] { color: %3; }
QPushButton[vl="link"] { background: transparent; border: none; padding: 3px 0px;
  color: %4; font-weight: 600; text-align: left; }
QPushButton[vl="link"]:pressed { color: %3; }
QPushButton[vl="link"]:disabled { color: %5; }
QPushButton[vl="secondary"] { background: %6; color: %1; border: 1px solid %7; border-radius: 8px;
  padding: 10px 22px; font-size: 14px; font-weight: 600; }
QPushButton[vl="secondary"]:pressed { background: %7; }
QPushButton[vl="secondary"]:disabled { color: %5; }
QPushButton[vl="toolbar"] { background: %6; color: %1; border: 1px solid %7; border-radius: 6px;
  padding: 5px 12px; font-size: 13px; font-weight: 600; }
QPushButton[vl="toolbar"]:pressed { background: %7; }
QLineEdit { background: %6; color: %1; border: 1px solid %8; border-radius: 6px; padding: 4px 10px; }
QLineEdit:focus { border-color: %4; }
QProgressBar { background: %7; border: none; border-radius: 4px; min-height: 8px; max-height: 8px; }
QProgressBar::chunk { background: %4; border-radius: 4px; }
QLabel[tint="accent"] { color: %4; }
QLabel[tint="faint"] { color: %5; }
QMessageBox QLabel { color: %1; }
QMessageBox QLabel#qt_msgbox_informativelabel { min-width: 320px; }
)")
      .arg(hex(vlInk), hex(vlBody), hex(vlMuted), hex(vlAccent), hex(vlFaint), hex(vlCard),
           hex(vlLine), hex(vlFaint));
}

// Fusion, but the check box in the theme's colours: Fusion draws its frame from the window
// colour, which vanishes on the dark background.
class VorlanStyle : public QProxyStyle {
 public:
  VorlanStyle() : QProxyStyle(QStyleFactory::create("Fusion")) {}

  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
    if (element != PE_IndicatorCheckBox) {
      QProxyStyle::drawPrimitive(element, option, painter, widget);
      return;
    }
    const bool on = option->state & State_On;
    const bool enabled = option->state & State_Enabled;
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setOpacity(enabled ? 1.0 : 0.4);
    const QRectF box = QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5);
    painter->setPen(QPen(on ? vlAccent.current() : vlMuted.current(), 1));
    painter->setBrush(on ? vlAccent.current() : vlCard.current());
    painter->drawRoundedRect(box, 3, 3);
    if (on) {
      QPen tick(Qt::white, box.width() / 7.5);
      tick.setCapStyle(Qt::RoundCap);
      tick.setJoinStyle(Qt::RoundJoin);
      painter->setPen(tick);
      const auto at = [&](double x, double y) {
        return QPointF(box.x() + x * box.width(), box.y() + y * box.height());
      };
      painter->drawPolyline(QPolygonF({at(0.24, 0.52), at(0.42, 0.70), at(0.76, 0.32)}));
    }
    painter->restore();
  }
};

// Follows the system: the platform changes the application palette (and sends ThemeChange)
// when the user switches the appearance. The theme's own palette goes to widgets only, as a
// class palette, so the application palette stays the system's and can always be read.
class AppearanceWatcher : public QObject {
 public:
  using QObject::QObject;

  void apply() {
    applying_ = true;
    QApplication::setPalette(widgetPalette(current), "QWidget");
    qApp->setStyleSheet(styleSheet());
    for (QWidget* w : QApplication::allWidgets()) w->update();
    applying_ = false;
  }

  void follow() {
    const Appearance system = appearanceOf(QGuiApplication::palette());
    if (system != lastSystem_) {
      lastSystem_ = system;
      current = system;
      apply();
    } else if (QApplication::palette("QWidget") != widgetPalette(current)) {
      // A new application palette drops the class palettes: put ours back.
      apply();
    }
  }

  void start() {
    lastSystem_ = current = appearanceOf(QGuiApplication::palette());
    apply();
    qApp->installEventFilter(this);
  }

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    const bool paletteChange = event->type() == QEvent::ApplicationPaletteChange && watched == qApp;
    if ((paletteChange || event->type() == QEvent::ThemeChange) && !applying_) follow();
    return false;
  }

 private:
  bool applying_ = false;
  Appearance lastSystem_ = Appearance::light;
};

AppearanceWatcher* watcher = nullptr;

}  // namespace

Appearance appearance() { return current; }

Appearance appearanceOf(const QPalette& systemPalette) {
  return systemPalette.color(QPalette::Window).lightness() <
                 systemPalette.color(QPalette::WindowText).lightness()
             ? Appearance::dark
             : Appearance::light;
}

void setAppearance(Appearance appearance) {
  current = appearance;
  if (watcher) watcher->apply();
}

void install(QApplication& app) {
  if (watcher) return;
  app.setStyle(new VorlanStyle);
  // The system may have no Korean face of its own; Noto Sans CJK KR covers Hangul fully.
  QFont font = QFontDatabase::hasFamily("Noto Sans CJK KR") ? QFont("Noto Sans CJK KR") : app.font();
  font.setPixelSize(14);
  app.setFont(font);
  watcher = new AppearanceWatcher(&app);
  watcher->start();
}

QIcon glyphIcon() {
  QIcon icon;
  for (int side : {16, 32, 64, 128, 256}) {
    QPixmap pm(side, side);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.fillPath(VLGlyph::path(QRectF(0, 0, side, side)), vlAccent.in(Appearance::light));
    icon.addPixmap(pm);
  }
  return icon;
}

}  // namespace vorlan::app::theme
