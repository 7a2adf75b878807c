// The look of every screen: palette, grade tints, the glyph, card, buttons, figure label and
// trust footer. Installed once on the application; repaints when the appearance changes.
#pragma once
#include <QApplication>
#include <QIcon>

#include "theme/Palette.hpp"

namespace vorlan::app::theme {

// Fusion drawn in the theme's colours, the application style sheet, and the Korean-capable
// application font. Follows the system's light or dark appearance from then on.
void install(QApplication& app);
// The glyph as the window's and the desktop's icon.
QIcon glyphIcon();

// Which appearance a system palette stands for: dark when its window is darker than its text.
Appearance appearanceOf(const QPalette& systemPalette);
// An explicit choice, for tests and screenshots; the system's next change of appearance
// overrides it.
void setAppearance(Appearance appearance);

}  // namespace vorlan::app::theme
