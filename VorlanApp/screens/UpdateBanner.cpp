#include "screens/UpdateBanner.hpp"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QPainter>
#include <QPushButton>
#include <QUrl>

#include "theme/Components.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app {

using namespace theme;

UpdateBanner::UpdateBanner(const UpdateInfo& info, std::function<void()> onDismiss, QWidget* parent)
    : QWidget(parent) {
  // The strip's size of text; the link takes it from here, as styled buttons take their
  // parent's font.
  QFont callout = font();
  callout.setPixelSize(13);
  setFont(callout);
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(16, 8, 16, 8);
  row->setSpacing(10);
  row->addWidget(new SymbolView(QStringLiteral("arrow.down.circle"), vlAccent, 16), 0, Qt::AlignVCenter);
  QLabel* news = label(QStringLiteral("새 버전 %1이 나왔습니다").arg(QString::fromStdString(info.version)),
                       Text::callout);
  news->setWordWrap(false);  // one line: the strip has room for it at the window's least width
  row->addWidget(news, 0, Qt::AlignVCenter);
  row->addStretch();

  auto* get = new QPushButton(QStringLiteral("받기"));
  asLink(get);
  // If no browser opens, nothing happens; the strip stays either way.
  connect(get, &QPushButton::clicked, this, [url = QString::fromStdString(info.url)] {
    QDesktopServices::openUrl(QUrl(url));
  });
  row->addWidget(get, 0, Qt::AlignVCenter);

  auto* close = new QPushButton;
  asLink(close);
  close->setIcon(symbolIcon(QStringLiteral("xmark"), vlMuted));
  close->setIconSize(QSize(12, 12));
  close->setAccessibleName(QStringLiteral("닫기"));
  close->setToolTip(QStringLiteral("닫기"));
  connect(close, &QPushButton::clicked, this, [onDismiss = std::move(onDismiss)] { onDismiss(); });
  row->addWidget(close, 0, Qt::AlignVCenter);
}

void UpdateBanner::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), vlCard.current());
  p.fillRect(QRect(0, height() - 1, width(), 1), vlLine.current());
}

}  // namespace vorlan::app
