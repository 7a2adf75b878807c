#include "theme/Theme.hpp"

namespace vorlan::app::theme {

void install(QApplication&) {}
QIcon glyphIcon() { return {}; }

}  // namespace vorlan::app::theme
