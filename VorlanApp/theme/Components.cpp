#include "theme/Components.hpp"

#include <QEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPainter>
#include <QScrollArea>
#include <QStyleOptionButton>
#include <QVBoxLayout>

#include "theme/Icons.hpp"
#include "theme/Palette.hpp"

namespace vorlan::app::theme {
namespace {

const char* styleName(Text style) {
  switch (style) {
    case Text::largeTitle: return "largeTitle";
    case Text::title: return "title";
    case Text::title3: return "title3";
    case Text::headline: return "headline";
    case Text::body: return "body";
    case Text::callout: return "callout";
    case Text::muted: return "muted";
    case Text::footnote: return "footnote";
    case Text::error: return "error";
    case Text::figure: return "figure";
  }
  return "body";
}

struct ButtonLook {
  int fontPx, padX, padY, radius;
};

ButtonLook look(ButtonKind kind) {
  return kind == ButtonKind::primary ? ButtonLook{14, 26, 11, 8} : ButtonLook{17, 28, 14, 10};
}

// Room under the accent button for its shadow.
constexpr int shadowRoom = 8;
constexpr int symbolSize = 17;

}  // namespace

QLabel* label(const QString& text, Text style, QWidget* parent) {
  auto* l = new QLabel(text, parent);
  // Plain always: "<masked>" and paths must never be taken for markup.
  l->setTextFormat(Qt::PlainText);
  l->setProperty("vl", styleName(style));
  if (style == Text::figure) {
    l->setFont(figureFont(14, QFont::DemiBold));
  } else {
    l->setWordWrap(true);
  }
  l->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return l;
}

void tint(QLabel* l, Tint tint) { l->setProperty("tint", tint == Tint::accent ? "accent" : "faint"); }

ElidedLabel::ElidedLabel(Text style, QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  setProperty("vl", styleName(style));
  if (style == Text::figure) setFont(figureFont(14, QFont::DemiBold));
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
}

void ElidedLabel::setFullText(const QString& text) {
  full_ = text;
  setToolTip(text);
  elide();
}

void ElidedLabel::resizeEvent(QResizeEvent* event) {
  QLabel::resizeEvent(event);
  elide();
}

void ElidedLabel::changeEvent(QEvent* event) {
  QLabel::changeEvent(event);
  // The style sheet may give a new font after the text was first cut.
  if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) elide();
}

void ElidedLabel::elide() {
  setText(fontMetrics().elidedText(full_, Qt::ElideMiddle, std::max(width(), 1)));
}

void asLink(QPushButton* button) {
  button->setProperty("vl", "link");
  button->setCursor(Qt::PointingHandCursor);
  button->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
}

void asSecondary(QPushButton* button) { button->setProperty("vl", "secondary"); }
void asToolbar(QPushButton* button) { button->setProperty("vl", "toolbar"); }

QMessageBox* alert(QWidget* parent, const QString& title, const QString& text) {
  auto* box = new QMessageBox(parent);
  box->setWindowTitle(title);
  box->setTextFormat(Qt::PlainText);
  box->setText(title);
  box->setInformativeText(text);
  QFont bold = box->font();
  bold.setBold(true);
  if (auto* heading = box->findChild<QLabel*>("qt_msgbox_label")) heading->setFont(bold);
  QPixmap icon(40, 40);
  icon.fill(Qt::transparent);
  QPainter p(&icon);
  paintSymbol(p, QRectF(icon.rect()), "exclamationmark.triangle.fill", vlAccent.current());
  p.end();
  box->setIconPixmap(icon);
  box->addButton("확인", QMessageBox::AcceptRole);
  box->setWindowModality(Qt::WindowModal);
  box->setAttribute(Qt::WA_DeleteOnClose);
  return box;
}

QFont figureFont(int pixelSize, QFont::Weight weight) {
  // The Korean monospaced face keeps "GB" and digits even beside Hangul.
  QFont f = QFontDatabase::hasFamily("Noto Sans Mono CJK KR")
                ? QFont("Noto Sans Mono CJK KR")
                : QFontDatabase::systemFont(QFontDatabase::FixedFont);
  f.setStyleHint(QFont::Monospace);
  f.setPixelSize(pixelSize);
  f.setWeight(weight);
  return f;
}

VLMinorCard::VLMinorCard(QWidget* parent) : QFrame(parent), column_(new QVBoxLayout(this)) {
  column_->setContentsMargins(18, 16, 18, 16);
  column_->setSpacing(8);
}

void VLMinorCard::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  p.setPen(QPen(vlLine.current(), 1));
  p.setBrush(vlCard.current());
  p.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 4, 4);
}

double buttonOpacity(ButtonKind kind, bool pressed, bool enabled) {
  if (pressed) return kind == ButtonKind::primary ? 0.8 : 0.85;
  return enabled ? 1.0 : 0.4;
}

VLButton::VLButton(ButtonKind kind, const QString& text, QWidget* parent)
    : QPushButton(text, parent), kind_(kind) {
  QFont f = font();
  f.setPixelSize(look(kind).fontPx);
  f.setBold(true);
  setFont(f);
  setCursor(Qt::PointingHandCursor);
  setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
}

void VLButton::setSymbol(const QString& name) {
  symbol_ = name;
  updateGeometry();
  update();
}

QSize VLButton::sizeHint() const {
  const ButtonLook l = look(kind_);
  const QFontMetrics fm(font());
  int w = fm.horizontalAdvance(text()) + 2 * l.padX;
  if (!symbol_.isEmpty()) w += symbolSize + 8;
  const int h = fm.height() + 2 * l.padY + (kind_ == ButtonKind::accent ? shadowRoom : 0);
  return {w, h};
}

void VLButton::paintEvent(QPaintEvent*) {
  const ButtonLook l = look(kind_);
  const bool pressed = isDown();
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  p.setOpacity(buttonOpacity(kind_, pressed, isEnabled()));
  QRectF shape = rect();
  const QColor fill = kind_ == ButtonKind::primary ? vlPrimaryButtonBg.current() : vlAccent.current();
  const QColor ink = kind_ == ButtonKind::primary ? vlPrimaryButtonFg.current() : QColor(Qt::white);
  if (kind_ == ButtonKind::accent) {
    shape.adjust(0, 0, 0, -shadowRoom);
    if (!pressed) {
      // A soft shadow in the accent: a few widening layers, 3 down.
      for (int i = 4; i >= 1; --i) {
        QColor shadow = fill;
        shadow.setAlphaF(0.35 / 4);
        p.setPen(Qt::NoPen);
        p.setBrush(shadow);
        p.drawRoundedRect(shape.translated(0, 3).adjusted(-i, -i + 2, i, i), l.radius + i, l.radius + i);
      }
    }
  }
  p.setPen(Qt::NoPen);
  p.setBrush(fill);
  p.drawRoundedRect(shape, l.radius, l.radius);

  p.setPen(ink);
  p.setFont(font());
  const QFontMetrics fm(font());
  const int textW = fm.horizontalAdvance(text());
  const int iconW = symbol_.isEmpty() ? 0 : symbolSize + 8;
  const double x = shape.center().x() - (textW + iconW) / 2.0;
  if (iconW > 0)
    paintSymbol(p, QRectF(x, shape.center().y() - symbolSize / 2.0, symbolSize, symbolSize), symbol_, ink, fill);
  p.drawText(QRectF(x + iconW, shape.top(), textW + 2, shape.height()), Qt::AlignVCenter | Qt::AlignLeft, text());
}

VLFigLabel::VLFigLabel(const QString& text, QWidget* parent) : QLabel(text, parent) {
  setProperty("vl", "fig");
  QFont f = figureFont(11, QFont::DemiBold);
  f.setLetterSpacing(QFont::AbsoluteSpacing, 0.8);
  setFont(f);
}

TrustFooter::TrustFooter(QWidget* parent) : QWidget(parent) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(16, 8, 16, 8);
  row->setSpacing(6);
  row->addWidget(new SymbolView("lock.shield", vlMuted, 15), 0, Qt::AlignVCenter);
  row->addWidget(label("자세히 진단해드립니다 — 동의 없이는 절대 삭제하지 않습니다", Text::footnote), 1,
                 Qt::AlignVCenter);
}

void TrustFooter::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), vlBg.current());
  p.fillRect(QRect(0, 0, width(), 1), vlLine.current());
}

QVBoxLayout* scrollingColumn(QWidget* screen, int maxWidth, QWidget* footer) {
  auto* outer = new QVBoxLayout(screen);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);

  auto* area = new QScrollArea(screen);
  area->setFrameShape(QFrame::NoFrame);
  area->setWidgetResizable(true);
  area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  area->viewport()->setBackgroundRole(QPalette::Window);

  auto* page = new QWidget;
  auto* centring = new QHBoxLayout(page);
  centring->setContentsMargins(28, 24, 28, 24);
  auto* columnWidget = new QWidget;
  columnWidget->setMaximumWidth(maxWidth);
  auto* column = new QVBoxLayout(columnWidget);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(12);
  centring->addStretch();
  centring->addWidget(columnWidget, 100);
  centring->addStretch();
  area->setWidget(page);

  outer->addWidget(area, 1);
  if (footer) outer->addWidget(footer);
  return column;
}

void clearLayout(QLayout* layout) {
  while (QLayoutItem* item = layout->takeAt(0)) {
    if (QWidget* old = item->widget()) {
      old->hide();
      old->setParent(nullptr);
      old->deleteLater();
    }
    delete item;
  }
}

}  // namespace vorlan::app::theme
