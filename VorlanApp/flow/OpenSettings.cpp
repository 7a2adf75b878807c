#include "flow/OpenSettings.hpp"

#include <QDesktopServices>

namespace vorlan::app {

void openSettings(const QStringList& urls, const UrlOpener& open) {
  const UrlOpener opener = open ? open : [](const QUrl& url) { return QDesktopServices::openUrl(url); };
  for (const QString& text : urls) {
    const QUrl url(text, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty()) continue;
    if (opener(url)) return;
  }
}

}  // namespace vorlan::app
