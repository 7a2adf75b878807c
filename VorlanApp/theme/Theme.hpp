// The look of every screen: palette, grade tints, the glyph, card, buttons, figure label and
// trust footer. Installed once on the application; repaints when the appearance changes.
#pragma once
#include <QApplication>
#include <QIcon>

namespace vorlan::app::theme {

// The palette, the style sheet and the Korean-capable application font.
void install(QApplication& app);
// The glyph as the window's and the desktop's icon.
QIcon glyphIcon();

}  // namespace vorlan::app::theme
