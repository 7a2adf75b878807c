// The pieces every screen is built from: text in the theme's roles, the card, the primary and
// accent buttons, the figure label, the trust footer and a screen's scrolling column.
#pragma once
#include <QFrame>
#include <QLabel>
#include <QPushButton>

class QMessageBox;
class QLayout;
class QVBoxLayout;

namespace vorlan::app::theme {

// How a line of text looks; the application style sheet gives each its font and colour.
// `title3` heads a sheet, `callout` is a strip's text, `error` a failure's words on a sheet.
enum class Text { largeTitle, title, title3, headline, body, callout, muted, footnote, error, figure };

// A word-wrapping label in `style` (a figure does not wrap).
QLabel* label(const QString& text, Text style, QWidget* parent = nullptr);

// A label's colour in place of its role's, keeping its size: the accent for warnings, the
// faintest grey for what matters least. Listed after the roles, so it wins over them.
enum class Tint { accent, faint };
void tint(QLabel* label, Tint tint);

// One line that keeps its beginning and end and drops the middle when it has no room (a long
// path); the whole text stays in the tooltip.
class ElidedLabel : public QLabel {
  Q_OBJECT

 public:
  ElidedLabel(Text style, QWidget* parent = nullptr);
  void setFullText(const QString& text);
  QSize minimumSizeHint() const override { return {0, QLabel::minimumSizeHint().height()}; }

 protected:
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  void elide();
  QString full_;
};

// Marks a plain QPushButton as a text link or an outlined secondary button.
void asLink(QPushButton* button);
void asSecondary(QPushButton* button);
// A small outlined button for a screen's toolbar.
void asToolbar(QPushButton* button);

// An alert over `parent`'s window with the one button "확인": `title` in bold as its first
// line (a window title alone is not shown by every desktop), `text` under it. Closes itself.
QMessageBox* alert(QWidget* parent, const QString& title, const QString& text);

// A monospaced font of `pixelSize` for figures.
QFont figureFont(int pixelSize, QFont::Weight weight = QFont::Normal);

// A card: rounded corners of 4, filled with vlCard, a hairline in vlLine. Its layout is a
// column with the card's padding.
class VLMinorCard : public QFrame {
  Q_OBJECT

 public:
  explicit VLMinorCard(QWidget* parent = nullptr);
  QVBoxLayout* column() const { return column_; }

 protected:
  void paintEvent(QPaintEvent*) override;

 private:
  QVBoxLayout* column_;
};

enum class ButtonKind { primary, accent };

// How opaque a button draws: pressed is tested before enabled, so a disabled button that is
// held down still shows pressed.
double buttonOpacity(ButtonKind kind, bool pressed, bool enabled);

// The two filled buttons: the primary (ink on each screen) and the accent (a screen's one
// great action).
class VLButton : public QPushButton {
  Q_OBJECT

 public:
  VLButton(ButtonKind kind, const QString& text, QWidget* parent = nullptr);
  // A symbol before the text, in the text's colour.
  void setSymbol(const QString& name);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent*) override;

 private:
  ButtonKind kind_;
  QString symbol_;
};

inline VLButton* primaryButton(const QString& text, QWidget* parent = nullptr) {
  return new VLButton(ButtonKind::primary, text, parent);
}
inline VLButton* accentButton(const QString& text, QWidget* parent = nullptr) {
  return new VLButton(ButtonKind::accent, text, parent);
}

// A card's small heading, "FIG. 01 — …", monospaced and spaced.
class VLFigLabel : public QLabel {
  Q_OBJECT

 public:
  explicit VLFigLabel(const QString& text, QWidget* parent = nullptr);
};

// The promise at the bottom of the scan and report screens.
class TrustFooter : public QWidget {
  Q_OBJECT

 public:
  explicit TrustFooter(QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent*) override;
};

// Empties `layout`, dropping its widgets later rather than now: the button that led here may
// still be inside its own click.
void clearLayout(QLayout* layout);

// Gives `screen` a scrolling column at most `maxWidth` wide, centred, with `footer` (if any)
// fixed below it; returns the column's layout.
QVBoxLayout* scrollingColumn(QWidget* screen, int maxWidth, QWidget* footer = nullptr);

}  // namespace vorlan::app::theme
