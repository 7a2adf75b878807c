#include "theme/Glyph.hpp"

#include <algorithm>

namespace vorlan::app::theme {

QPainterPath VLGlyph::path(const QRectF& rect) {
  const double s = std::min(rect.width() / 96.0, rect.height() / 100.0);
  const double ox = rect.x() + (rect.width() - 96 * s) / 2;
  const double oy = rect.y() + (rect.height() - 100 * s) / 2;
  const auto grid = [&](double x, double y, double w, double h) {
    return QRectF(ox + x * s, oy + y * s, w * s, h * s);
  };
  QPainterPath p;
  p.setFillRule(Qt::OddEvenFill);
  p.addRect(grid(0, 0, 96, 100));      // body
  p.addRect(grid(28, 74, 40, 26));     // lower opening, open at the bottom edge
  p.addRect(grid(28, 28, 40, 20));     // upper opening
  p.addEllipse(grid(27.5, 7.5, 13, 13));  // left eye
  p.addEllipse(grid(55.5, 7.5, 13, 13));  // right eye
  return p;
}

}  // namespace vorlan::app::theme
