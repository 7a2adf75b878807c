#include "theme/Palette.hpp"

namespace vorlan::app::theme {

DynamicColor gradeTint(Grade grade) {
  switch (grade) {
    case Grade::safe: return vlDynamic(0x1E7F5C, 0x34A97E);
    case Grade::review: return vlDynamic(0xA8730A, 0xD29A2B);
    case Grade::never: return vlDynamic(0x46688C, 0x7396BC);
    case Grade::unknown: break;
  }
  return vlDynamic(0x6E7681, 0x8B939E);
}

QPalette widgetPalette(Appearance a) {
  QPalette p;
  const auto set = [&](QPalette::ColorRole role, DynamicColor c) {
    p.setColor(QPalette::All, role, c.in(a));
  };
  set(QPalette::Window, vlBg);
  set(QPalette::WindowText, vlInk);
  set(QPalette::Base, vlCard);
  set(QPalette::AlternateBase, vlBg);
  set(QPalette::Text, vlInk);
  set(QPalette::PlaceholderText, vlFaint);
  set(QPalette::Button, vlCard);
  set(QPalette::ButtonText, vlInk);
  set(QPalette::BrightText, vlWhite);
  set(QPalette::Highlight, vlAccent);
  set(QPalette::HighlightedText, vlWhite);
  set(QPalette::Link, vlAccent);
  set(QPalette::LinkVisited, vlAccent);
  set(QPalette::ToolTipBase, vlCard);
  set(QPalette::ToolTipText, vlInk);
  set(QPalette::Light, vlCard);
  set(QPalette::Midlight, vlLine);
  set(QPalette::Mid, vlLine);
  set(QPalette::Dark, vlMuted);
  set(QPalette::Shadow, vlInk);
  // Disabled text fades to the faintest grey in both appearances, never to the platform's.
  for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
    p.setColor(QPalette::Disabled, role, vlFaint.in(a));
  return p;
}

}  // namespace vorlan::app::theme
