// Opens a system-settings pane from a list of candidate URLs, the first that opens winning.
#pragma once
#include <QStringList>
#include <QUrl>

#include <functional>

namespace vorlan::app {

using UrlOpener = std::function<bool(const QUrl&)>;

// Walks `urls` in order, skipping what does not parse, and stops at the first that opens.
// Where the system has no such panes nothing opens; the screens' own words still guide.
void openSettings(const QStringList& urls, const UrlOpener& open = {});

}  // namespace vorlan::app
