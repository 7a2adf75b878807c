// The colours of every screen: each name holds a light and a dark value, asked for the
// current appearance whenever something is drawn, so a change of appearance needs no restart.
#pragma once
#include <QColor>
#include <QPalette>

#include "scan/ScanRecords.hpp"

namespace vorlan::app::theme {

enum class Appearance { light, dark };

// The appearance in force now (see Theme.hpp for how it is decided).
Appearance appearance();

struct DynamicColor {
  QRgb light = 0;
  QRgb dark = 0;
  QColor in(Appearance a) const { return QColor::fromRgb(a == Appearance::dark ? dark : light); }
  QColor current() const { return in(appearance()); }
};

constexpr DynamicColor vlDynamic(QRgb light, QRgb dark) { return {light, dark}; }

inline constexpr DynamicColor vlBg = vlDynamic(0xFFFFFF, 0x171614);
inline constexpr DynamicColor vlCard = vlDynamic(0xFFFFFF, 0x242320);
inline constexpr DynamicColor vlInk = vlDynamic(0x211E19, 0xF2F1EC);
inline constexpr DynamicColor vlBody = vlDynamic(0x46423A, 0xC9C6BD);
inline constexpr DynamicColor vlMuted = vlDynamic(0x6E6A5F, 0x9B968A);
inline constexpr DynamicColor vlFaint = vlDynamic(0x9B968A, 0x6E6A5F);
inline constexpr DynamicColor vlLine = vlDynamic(0xE2E1DC, 0x35332E);
inline constexpr DynamicColor vlAccent = vlDynamic(0xD9541E, 0xE8622C);
inline constexpr DynamicColor vorlanAccent = vlAccent;
inline constexpr DynamicColor vlPrimaryButtonBg = vlInk;
inline constexpr DynamicColor vlPrimaryButtonFg = vlBg;
inline constexpr DynamicColor vlWhite = vlDynamic(0xFFFFFF, 0xFFFFFF);

DynamicColor gradeTint(Grade grade);

// The widgets' palette in one appearance: the Qt roles filled from the names above.
QPalette widgetPalette(Appearance a);

}  // namespace vorlan::app::theme
