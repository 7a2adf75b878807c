#include <QApplication>
#include <QPalette>

#include <gtest/gtest.h>

#include "app/ScreenTestSupport.hpp"
#include "theme/Components.hpp"
#include "theme/Glyph.hpp"
#include "theme/Theme.hpp"

namespace vorlan::app::theme {
namespace {

QPalette systemPalette(QColor window, QColor text) {
  QPalette p;
  p.setColor(QPalette::Window, window);
  p.setColor(QPalette::WindowText, text);
  return p;
}

TEST(Theme, FollowsThePlatformsPaletteChanges) {
  install(*qApp);
  VLMinorCard card;  // a widget that exists while the appearance changes
  for (Appearance expected : {Appearance::dark, Appearance::light, Appearance::dark}) {
    const bool dark = expected == Appearance::dark;
    QGuiApplication::setPalette(dark ? systemPalette(Qt::black, Qt::white)
                                     : systemPalette(Qt::white, Qt::black));
    EXPECT_EQ(appearance(), expected);
    EXPECT_EQ(card.palette().color(QPalette::Window), vlBg.in(expected));
  }
  QGuiApplication::setPalette(QPalette());  // back to the platform's own
  setAppearance(Appearance::light);
}

TEST(Theme, PressedIsTestedBeforeEnabled) {
  struct Case {
    ButtonKind kind;
    bool pressed, enabled;
    double opacity;
  };
  for (const Case& c : {Case{ButtonKind::primary, true, false, 0.8},
                        Case{ButtonKind::primary, false, false, 0.4},
                        Case{ButtonKind::primary, false, true, 1.0},
                        Case{ButtonKind::accent, true, false, 0.85},
                        Case{ButtonKind::accent, false, false, 0.4}})
    EXPECT_DOUBLE_EQ(buttonOpacity(c.kind, c.pressed, c.enabled), c.opacity)
        << c.pressed << c.enabled;
}

TEST(Theme, GlyphIsCentredAtTheScaleThatFits) {
  struct Case {
    QRectF rect, body;
  };
  for (const Case& c : {Case{{0, 0, 96, 200}, {0, 50, 96, 100}},
                        Case{{0, 0, 192, 100}, {48, 0, 96, 100}},
                        Case{{10, 20, 48, 50}, {10, 20, 48, 50}}})
    EXPECT_EQ(VLGlyph::path(c.rect).boundingRect(), c.body);
}

}  // namespace
}  // namespace vorlan::app::theme
