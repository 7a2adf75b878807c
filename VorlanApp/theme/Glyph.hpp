// The program's face: a blocky body with two openings and two eyes cut out of it.
#pragma once
#include <QPainterPath>
#include <QRectF>

namespace vorlan::app::theme {

struct VLGlyph {
  // The glyph's 96×100 grid scaled to fit `rect` and centred in it, as one path whose inner
  // shapes are holes under the odd-even fill rule.
  static QPainterPath path(const QRectF& rect);
};

}  // namespace vorlan::app::theme
