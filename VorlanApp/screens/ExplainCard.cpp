#include "screens/ExplainCard.hpp"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QVBoxLayout>

#include <functional>

#include "flow/CleanupFlow.hpp"
#include "screens/ExplainRequestSheet.hpp"
#include "theme/Components.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

// A link of a symbol and words that wrap, where a push button would demand one long line.
class LinkLine : public QWidget {
 public:
  LinkLine(const QString& symbol, const QString& text, std::function<void()> onClick)
      : onClick_(std::move(onClick)) {
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::StrongFocus);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 2, 0, 2);
    row->setSpacing(6);
    row->addWidget(new SymbolView(symbol, vlAccent, 17), 0, Qt::AlignTop);
    auto* words = label(text, Text::body);
    words->setTextInteractionFlags(Qt::NoTextInteraction);
    tint(words, Tint::accent);
    QFont f = words->font();
    f.setWeight(QFont::DemiBold);
    words->setFont(f);
    row->addWidget(words, 1);
  }

 protected:
  void mouseReleaseEvent(QMouseEvent* event) override {
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) onClick_();
  }
  void keyPressEvent(QKeyEvent* event) override {
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
      onClick_();
    else
      QWidget::keyPressEvent(event);
  }

 private:
  std::function<void()> onClick_;
};

}  // namespace

ExplainCard::ExplainCard(CleanupFlow& flow, QWidget* parent)
    : QWidget(parent), flow_(flow), column_(new QVBoxLayout(this)) {
  column_->setContentsMargins(0, 0, 0, 0);
  column_->setSpacing(8);
  for (auto signal : {&CleanupFlow::isExplainingChanged, &CleanupFlow::explainCandidatesChanged,
                      &CleanupFlow::explainOutcomeChanged})
    connect(&flow_, signal, this, &ExplainCard::rebuild);
  rebuild();
}

bool ExplainCard::showingRequest() const { return sheet_ && sheet_->isVisible(); }

void ExplainCard::showRequest() {
  if (showingRequest()) return;
  sheet_ = new ExplainRequestSheet(flow_.explainRequestPreview().value_or(QString()), this);
  sheet_->setAttribute(Qt::WA_DeleteOnClose);
  sheet_->open();
}

void ExplainCard::rebuild() {
  clearLayout(column_);
  if (flow_.isExplaining()) {
    auto* wait = new QWidget;
    wait->setObjectName("explaining");
    auto* row = new QHBoxLayout(wait);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(8);
    row->addWidget(new Spinner(16), 0, Qt::AlignTop);
    row->addWidget(label("설명을 받는 중입니다… 판정과 체크는 바뀌지 않습니다", Text::muted), 1);
    column_->addWidget(wait);
  } else if (const size_t count = flow_.explainCandidates().size(); count > 0) {
    auto* card = new VLMinorCard;
    card->setObjectName("explainOffer");
    auto* row = new QHBoxLayout;
    row->setSpacing(12);
    row->addWidget(new SymbolView("questionmark.bubble", vlAccent, 22), 0, Qt::AlignTop);
    auto* words = new QVBoxLayout;
    words->setSpacing(6);
    words->addWidget(label(QStringLiteral("아직 무엇인지 모르는 항목 %1개가 있습니다. 폴더 이름만 보내 설명을 받을까요?")
                               .arg(count),
                           Text::headline));
    words->addWidget(label("보내는 것은 아래 폴더 이름뿐입니다 — 파일 이름·내용·개인 폴더 이름은 보내지 않습니다. "
                           "설명만 붙고 판정·체크는 그대로입니다. 이름은 설명 생성을 위해 Anthropic API로 "
                           "전달됩니다.",
                           Text::muted));
    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(10);
    auto* preview = new QPushButton("보낼 이름 보기");
    preview->setObjectName("previewRequest");
    asSecondary(preview);
    auto* send = accentButton("보내기");
    send->setObjectName("sendExplain");
    auto* decline = new QPushButton("이번엔 안 보내기");
    decline->setObjectName("declineExplain");
    asLink(decline);
    buttons->addWidget(preview, 0, Qt::AlignTop);
    buttons->addWidget(send, 0, Qt::AlignTop);
    buttons->addWidget(decline, 0, Qt::AlignTop);
    buttons->addStretch();
    words->addLayout(buttons);
    row->addLayout(words, 1);
    card->column()->addLayout(row);
    column_->addWidget(card);
    connect(preview, &QPushButton::clicked, this, [this] {
      flow_.previewExplainRequest();
      showRequest();
    });
    connect(send, &QPushButton::clicked, &flow_, &CleanupFlow::explainUnknowns);
    connect(decline, &QPushButton::clicked, &flow_, &CleanupFlow::declineExplain);
  }
  // After a failure the names are still on offer; the link tells why the offer is back.
  if (const auto& outcome = flow_.explainOutcome(); outcome && !flow_.isExplaining()) {
    const QString text =
        !outcome->received ? QStringLiteral("설명을 받지 못했습니다 (판정에는 영향 없음) — 보낸 내용 그대로 보기")
        : outcome->count > 0
            ? QStringLiteral("설명 %1개를 받았습니다 — 보낸 내용 그대로 보기").arg(outcome->count)
            : QStringLiteral("이번엔 알아본 이름이 없습니다 (판정에는 영향 없음) — 보낸 내용 그대로 보기");
    auto* link = new LinkLine(outcome->received ? "text.bubble" : "wifi.slash", text, [this] { showRequest(); });
    link->setObjectName("explainOutcome");
    column_->addWidget(link);
  }
  // Nothing to say, no room taken; shown again once there is.
  if (column_->count() == 0) {
    hiddenForEmpty_ = true;
    hide();
  } else if (hiddenForEmpty_) {
    hiddenForEmpty_ = false;
    show();
  }
}

}  // namespace vorlan::app
