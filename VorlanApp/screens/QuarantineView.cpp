#include "screens/QuarantineView.hpp"

#include <QHBoxLayout>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>

#include "flow/QuarantineStore.hpp"
#include "report/CleanupLedger.hpp"
#include "theme/Components.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

QString qs(const std::string& text) { return QString::fromStdString(text); }

QLabel* footnote(const QString& text, bool accent) {
  QLabel* l = label(text, Text::footnote);
  if (accent) tint(l, Tint::accent);
  return l;
}

}  // namespace

QuarantineView::QuarantineView(QuarantineStore& store, std::function<int64_t()> now, QWidget* parent)
    : QWidget(parent), store_(store), now_(std::move(now)), column_(new QVBoxLayout(this)) {
  column_->setContentsMargins(0, 0, 0, 0);
  column_->setSpacing(12);
  for (auto signal : {&QuarantineStore::batchesChanged, &QuarantineStore::freedBytesChanged,
                      &QuarantineStore::isPurgingChanged, &QuarantineStore::expireNoticeChanged,
                      &QuarantineStore::restoreNoticesChanged, &QuarantineStore::restoringIDChanged})
    connect(&store_, signal, this, &QuarantineView::rebuild);
  rebuild();
}

void QuarantineView::setRefreshToken(std::optional<std::string> token) {
  if (token == refreshToken_) return;
  refreshToken_ = std::move(token);
  store_.reload();
}

void QuarantineView::appeared() { store_.expireOverdue(); }

void QuarantineView::rebuild() {
  clearLayout(column_);
  const auto& batches = store_.batches();

  const auto lines = renderCleanupLedger(cleanupLedger(batches, store_.freedBytes()));
  if (!lines.empty()) {
    auto* ledger = new QWidget;
    ledger->setObjectName("ledger");
    auto* block = new QVBoxLayout(ledger);
    block->setContentsMargins(0, 0, 0, 0);
    block->setSpacing(2);
    for (const auto& line : lines) block->addWidget(label(qs(line), Text::body));
    column_->addWidget(ledger);
  }
  if (const auto& notice = store_.expireNotice()) {
    QLabel* l = footnote(*notice, true);
    l->setObjectName("expireNotice");
    column_->addWidget(l);
  }
  if (!batches.empty()) {
    auto* row = new QHBoxLayout;
    row->setSpacing(10);
    auto* empty = new QPushButton("지금 비우기");
    empty->setObjectName("emptyButton");
    asToolbar(empty);
    empty->setEnabled(!store_.isPurging());
    connect(empty, &QPushButton::clicked, &store_, &QuarantineStore::purgeAll);
    row->addWidget(empty);
    row->addWidget(footnote("사라지고 되돌릴 수 없습니다", false), 1);
    auto* holder = new QWidget;
    holder->setLayout(row);
    row->setContentsMargins(0, 0, 0, 0);
    column_->addWidget(holder);
  }
  for (const QuarantineBatch& batch : batches) column_->addWidget(batchRow(batch));

  // Nothing to say, no room taken; shown again once there is.
  setVisible(column_->count() > 0);
}

QWidget* QuarantineView::batchRow(const QuarantineBatch& batch) {
  auto* row = new QWidget;
  row->setObjectName(qs("batch-" + batch.id));
  auto* column = new QVBoxLayout(row);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(4);

  auto* top = new QHBoxLayout;
  top->setSpacing(12);
  auto* left = new QVBoxLayout;
  left->setSpacing(2);
  left->addWidget(label(QStringLiteral("%1개 항목").arg(batch.items.size()), Text::headline));
  QStringList originals;
  for (const auto& item : batch.items) originals << qs(item.original);
  QLabel* paths = label(originals.join(", "), Text::footnote);
  paths->setObjectName("batchPaths");
  paths->setFont(figureFont(11));
  left->addWidget(paths);
  top->addLayout(left, 1);
  auto* restore = new QPushButton("되돌리기");
  restore->setObjectName("restoreButton");
  asToolbar(restore);
  // One restore at a time: the store is locked while one runs.
  restore->setEnabled(!store_.restoringID());
  connect(restore, &QPushButton::clicked, &store_, [this, batch] { store_.restore(batch); });
  top->addWidget(restore, 0, Qt::AlignTop);
  column->addLayout(top);

  const auto& notices = store_.restoreNotices();
  if (const auto found = notices.find(batch.id); found != notices.end()) {
    QLabel* message = footnote(found->second.message, false);
    message->setObjectName("restoreNotice");
    column->addWidget(message);
    for (const auto& path : found->second.failed) {
      QLabel* failed = footnote("~/" + qs(path), false);
      failed->setObjectName("failedPath");
      column->addWidget(failed);
    }
  }
  if (batch.expiresSoon(now_())) {
    QLabel* soon = footnote("곧 자동으로 비워집니다", true);
    soon->setObjectName("expiresSoon");
    column->addWidget(soon);
  }
  return row;
}

}  // namespace vorlan::app
