#include "screens/ReportView.hpp"

#include <QClipboard>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>
#include <ctime>
#include <fmt/format.h>

#include "flow/AppFlow.hpp"
#include "flow/OpenSettings.hpp"
#include "report/Ledger.hpp"
#include "report/MarkdownReport.hpp"
#include "report/TextReport.hpp"
#include "theme/Components.hpp"
#include "theme/Icons.hpp"

namespace vorlan::app {

using namespace theme;

namespace {

QString qs(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// "%.1fGB" of a gigabyte figure; through bytes, so a sum a hair below zero reads 0.0.
QString gbText(double gb) { return qs(formatGB(static_cast<int64_t>(std::llround(gb * GB)))); }

QStringList toQStringList(const std::vector<std::string>& items) {
  QStringList list;
  for (const auto& item : items) list << qs(item);
  return list;
}

// A line of text with a symbol before it.
QWidget* iconLine(const QString& symbol, DynamicColor color, const QString& text, Text style) {
  auto* line = new QWidget;
  auto* row = new QHBoxLayout(line);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(8);
  row->addWidget(new SymbolView(symbol, color, 17), 0, Qt::AlignTop);
  row->addWidget(label(text, style), 1);
  return line;
}

VLMinorCard* balanceCard(const BalanceSummary& s) {
  auto* card = new VLMinorCard;
  card->setObjectName("balanceCard");
  card->column()->addWidget(new VLFigLabel("FIG. 01 — 저장 공간"));
  card->column()->addWidget(label(
      qs(fmt::format("전체 데이터 합계  {}  (설정 기준, 근사)", gbText(s.usedGB).toStdString())),
      Text::headline));
  if (s.systemGB)
    card->column()->addWidget(label(
        qs(fmt::format("시스템 데이터 합계  {}  ← 애플도 내역을 안 보여주는 영역, Vorlan이 분석했습니다",
                       gbText(*s.systemGB).toStdString())),
        Text::body));
  else
    card->column()->addWidget(label(
        "└─ '시스템 데이터' 규모는 설정 > 일반 > 저장 공간에서 확인해 다음 스캔에 입력하세요",
        Text::body));
  return card;
}

VLMinorCard* ledgerCard(const LedgerSummary& s) {
  auto* card = new VLMinorCard;
  card->setObjectName("ledgerCard");
  QVBoxLayout* c = card->column();
  const auto gb = [](double v) { return gbText(v).toStdString(); };
  c->addWidget(new VLFigLabel("FIG. 02 — 숨은 데이터 색출"));
  c->addWidget(label(qs(fmt::format("설정이 말하는 시스템 데이터 {}", gb(s.claimedGB))), Text::muted));
  c->addWidget(label(qs(s.overshootGB > 0
                            ? fmt::format("{}의 정체를 찾았습니다", gb(s.identifiedGB))
                            : fmt::format("{}의 정체를 찾았습니다 ({:.0f}%)", gb(s.identifiedGB),
                                          s.coveragePercent)),
                     Text::title));
  c->addWidget(iconLine("checkmark.circle.fill", gradeTint(Grade::safe),
                        qs(fmt::format("즉시 안전 삭제 가능 {}", gb(s.safeGB))), Text::body));
  c->addWidget(iconLine("magnifyingglass.circle.fill", gradeTint(Grade::review),
                        qs(fmt::format("확인 후 삭제 후보 {}", gb(s.candidateGB()))), Text::body));
  if (s.neverGB > 0)
    c->addWidget(iconLine("lock.fill", gradeTint(Grade::never),
                          qs(fmt::format("지울 수 없는 실데이터 {} — {}", gb(s.neverGB), s.neverBreakdown)),
                          Text::body));
  if (s.overshootGB > 0)
    c->addWidget(label(qs(fmt::format("설정 수치보다 {} 많게 잡힌 이유 — 애플은 iCloud Drive 등을 "
                                      "시스템 데이터가 아닌 다른 칸으로 셉니다",
                                      gb(s.overshootGB))),
                       Text::muted));
  else
    c->addWidget(label(qs(fmt::format("아직 못 찾은 {} — macOS 시스템 영역, /private/var 등 (근사치)",
                                      gb(s.remainderGB))),
                       Text::muted));
  if (s.showsPhantomTriage()) c->addWidget(label(qs(phantomTriageNote), Text::muted));
  return card;
}

VLMinorCard* safeTotalCard(const std::vector<GradeGroup>& groups) {
  std::vector<Finding> listed;
  for (const GradeGroup& g : groups) listed.insert(listed.end(), g.findings.begin(), g.findings.end());
  const auto totals = gradeTotals(listed);
  auto* card = new VLMinorCard;
  card->setObjectName("safeTotalCard");
  card->column()->addWidget(new VLFigLabel("FIG. 02 — 이번 스캔에서 찾은 것"));
  card->column()->addWidget(iconLine("checkmark.circle.fill", gradeTint(Grade::safe),
                                     "즉시 안전 삭제 가능 " + qs(formatGB(totals.at(Grade::safe))),
                                     Text::headline));
  card->column()->addWidget(iconLine("magnifyingglass.circle.fill", gradeTint(Grade::review),
                                     "확인 후 삭제 후보 " + qs(formatGB(totals.at(Grade::review))),
                                     Text::headline));
  return card;
}

// The ledger as one picture: the measured space by grade, and the part not yet found when a
// figure was typed, side by side in one bar.
struct Segment {
  DynamicColor color;
  QString name;
  int64_t bytes;
};

class StackedBar : public QWidget {
 public:
  explicit StackedBar(std::vector<Segment> segments) : segments_(std::move(segments)) {
    setFixedHeight(26);
    setMinimumWidth(120);
  }

 protected:
  void paintEvent(QPaintEvent*) override {
    int64_t total = 0;
    for (const Segment& s : segments_) total += s.bytes;
    if (total <= 0) return;
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(rect()), 4, 4);
    p.setClipPath(clip);
    p.setFont(figureFont(11, QFont::DemiBold));
    double x = 0;
    for (const Segment& s : segments_) {
      const double w = width() * static_cast<double>(s.bytes) / static_cast<double>(total);
      const QRectF r(x, 0, w, height());
      p.fillRect(r, s.color.current());
      const QString text = qs(formatGB(s.bytes));
      // A label only where it fits; the legend always carries every figure.
      if (p.fontMetrics().horizontalAdvance(text) + 8 <= w) {
        p.setPen(s.color.light == vlLine.light ? vlMuted.current() : QColor(Qt::white));
        p.drawText(r, Qt::AlignCenter, text);
      }
      x += w;
    }
  }

 private:
  std::vector<Segment> segments_;
};

class Swatch : public QWidget {
 public:
  explicit Swatch(DynamicColor color) : color_(color) { setFixedSize(10, 10); }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color_.current());
    p.drawRoundedRect(QRectF(rect()), 2, 2);
  }

 private:
  DynamicColor color_;
};

QWidget* ledgerPicture(const DeepScanResult& result, const std::optional<LedgerSummary>& ledger) {
  const auto totals = systemDataTotals(result);
  std::vector<Segment> segments{
      {gradeTint(Grade::safe), "즉시 안전 삭제 가능", totals.at(Grade::safe)},
      {gradeTint(Grade::review), "확인 후 삭제 후보", totals.at(Grade::review)},
      {gradeTint(Grade::unknown), "미분류", totals.at(Grade::unknown)},
      {gradeTint(Grade::never), "지울 수 없는 실데이터", totals.at(Grade::never)},
  };
  if (ledger && ledger->remainderGB > 0)
    segments.push_back({vlLine, "아직 못 찾은", static_cast<int64_t>(std::llround(ledger->remainderGB * GB))});
  std::erase_if(segments, [](const Segment& s) { return s.bytes <= 0; });
  if (segments.empty()) return nullptr;

  auto* card = new VLMinorCard;
  card->setObjectName("ledgerPicture");
  card->column()->addWidget(new StackedBar(segments));
  auto* legend = new QGridLayout;
  legend->setHorizontalSpacing(18);
  legend->setVerticalSpacing(4);
  for (size_t i = 0; i < segments.size(); ++i) {
    auto* item = new QHBoxLayout;
    item->setSpacing(6);
    item->addWidget(new Swatch(segments[i].color));
    item->addWidget(label(segments[i].name, Text::footnote));
    item->addWidget(label(qs(formatGB(segments[i].bytes)), Text::figure));
    item->addStretch();
    legend->addLayout(item, static_cast<int>(i / 2), static_cast<int>(i % 2));
  }
  card->column()->addLayout(legend);
  return card;
}

VLMinorCard* cleanupCTA(AppFlow& flow) {
  auto* card = new VLMinorCard;
  card->setObjectName("cleanupCTA");
  card->column()->addWidget(iconLine(
      "exclamationmark.triangle.fill", gradeTint(Grade::review),
      "이 리포트는 아직 아무것도 삭제하지 않았습니다 — 다음 화면에서 항목을 보고 직접 고릅니다. 안내는 "
      "실측에 기반한 참고 정보이며, 삭제 실행과 그 결과는 사용자 책임입니다. 진행 전 중요한 데이터는 "
      "백업하세요.",
      Text::body));
  auto* go = primaryButton("세부 정보 확인 및 삭제 내역 선택하기");
  go->setObjectName("cleanupButton");
  go->setSymbol("arrow.right.circle.fill");
  card->column()->addWidget(go, 0, Qt::AlignLeft);
  QObject::connect(go, &QPushButton::clicked, &flow, [&flow] { flow.setStep(AppFlow::Step::cleanupPlan); });
  return card;
}

VLMinorCard* productionBanner(int64_t count) {
  auto* card = new VLMinorCard;
  card->setObjectName("productionBanner");
  card->column()->addWidget(iconLine(
      "exclamationmark.triangle.fill", vlAccent,
      qs(fmt::format("지금 돌아가는 Docker 컨테이너 {}개 감지 — 실서비스 중일 수 있습니다. Docker 정리는 "
                     "내역을 확인한 뒤에만 진행하세요.",
                     count)),
      Text::body));
  return card;
}

QWidget* findingRow(const Finding& f) {
  auto* row = new QWidget;
  auto* h = new QHBoxLayout(row);
  h->setContentsMargins(0, 6, 0, 6);
  h->setSpacing(12);
  auto* size = label(qs(formatGB(f.sizeBytes.value_or(0))), Text::figure);
  size->setMinimumWidth(76);
  size->setAlignment(Qt::AlignRight | Qt::AlignTop);
  h->addWidget(size, 0, Qt::AlignTop);

  auto* text = new QVBoxLayout;
  text->setSpacing(3);
  auto* path = new ElidedLabel(Text::headline);
  path->setFullText(qs(f.path.starts_with('/') ? f.path : "~/" + f.path));
  text->addWidget(path);
  if (!f.note.empty()) text->addWidget(label(qs(f.note), Text::muted));
  if (!f.hint.empty()) {
    auto* hintRow = new QHBoxLayout;
    hintRow->addWidget(label(qs(f.hint), Text::footnote), 1);
    auto* copy = new QPushButton("복사");
    asLink(copy);
    copy->setObjectName("copyHint");
    const QString hint = qs(f.hint);
    QObject::connect(copy, &QPushButton::clicked, copy, [copy, hint] {
      QGuiApplication::clipboard()->setText(hint);
      copy->setText("복사됨");
    });
    hintRow->addWidget(copy, 0, Qt::AlignTop);
    text->addLayout(hintRow);
  }
  if (auto action = settingsAction(f.path)) {
    auto* actionRow = new QHBoxLayout;
    auto* open = new QPushButton(qs(action->label));
    asLink(open);
    const QStringList urls = toQStringList(action->urlCandidates);
    QObject::connect(open, &QPushButton::clicked, open, [urls] { openSettings(urls); });
    actionRow->addWidget(open, 0, Qt::AlignTop);
    actionRow->addWidget(label(qs(action->caption), Text::footnote), 1);
    text->addLayout(actionRow);
  }
  h->addLayout(text, 1);
  return row;
}

struct SectionLook {
  const char* heading;
  const char* symbol;
};

SectionLook sectionLook(Grade grade) {
  switch (grade) {
    case Grade::safe: return {"즉시 삭제 가능 — 지워도 다시 생기는 캐시 데이터", "checkmark.circle.fill"};
    case Grade::review: return {"확인 후 삭제 후보 — 내역 확인 후 진행", "magnifyingglass.circle.fill"};
    case Grade::never: return {"건드리지 않음 — 실데이터", "lock.circle.fill"};
    case Grade::unknown: break;
  }
  return {"미분류 — 직접 확인 필요", "circle.dashed"};
}

VLMinorCard* gradeSection(const GradeGroup& group) {
  auto* card = new VLMinorCard;
  card->setObjectName(QStringLiteral("section-") + qs(rawValue(group.grade)));
  const SectionLook look = sectionLook(group.grade);
  card->column()->addWidget(
      iconLine(look.symbol, gradeTint(group.grade), QString::fromUtf8(look.heading), Text::headline));
  for (const Finding& f : group.findings) {
    auto* hairline = new QFrame;
    hairline->setFrameShape(QFrame::HLine);
    hairline->setFixedHeight(1);
    hairline->setStyleSheet("background: transparent;");
    hairline->setForegroundRole(QPalette::Mid);
    card->column()->addWidget(hairline);
    card->column()->addWidget(findingRow(f));
  }
  return card;
}

QWidget* telemetryStatus(bool sent, const std::optional<QString>& preview) {
  if (!sent)
    return iconLine("wifi.slash", vlMuted, "익명 통계 전송 실패 (진단 결과에는 영향 없음)", Text::muted);
  auto* box = new QWidget;
  box->setObjectName("telemetryStatus");
  auto* column = new QVBoxLayout(box);
  column->setContentsMargins(0, 0, 0, 0);
  auto* toggle = new QPushButton("익명 통계 전송됨 — 전송된 내용 그대로 보기");
  asLink(toggle);
  toggle->setIcon(symbolIcon("antenna.radiowaves.left.and.right", vlAccent));
  toggle->setCheckable(true);
  auto* text = new QPlainTextEdit(preview.value_or(QString()));
  text->setReadOnly(true);
  text->setFont(figureFont(12));
  text->setFixedHeight(170);
  text->setVisible(false);
  column->addWidget(toggle, 0, Qt::AlignLeft);
  column->addWidget(text);
  QObject::connect(toggle, &QPushButton::toggled, text, &QWidget::setVisible);
  return box;
}

}  // namespace

ReportView::ReportView(AppFlow& flow, QWidget* parent) : QWidget(parent), flow_(flow) {
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);

  // The screen's toolbar: the save button, and where the last save went.
  bar_ = new QWidget;
  auto* barColumn = new QVBoxLayout(bar_);
  barColumn->setContentsMargins(28, 8, 28, 0);
  auto* barRow = new QHBoxLayout;
  barRow->addStretch();
  saveButton_ = new QPushButton("리포트 저장");
  saveButton_->setObjectName("saveButton");
  saveButton_->setIcon(symbolIcon("square.and.arrow.down", vlInk));
  asToolbar(saveButton_);
  barRow->addWidget(saveButton_);
  barColumn->addLayout(barRow);
  savedRow_ = new QWidget;
  auto* savedLine = new QHBoxLayout(savedRow_);
  savedLine->setContentsMargins(0, 0, 0, 0);
  savedLine->setSpacing(6);
  savedLine->addWidget(new SymbolView("checkmark.circle", gradeTint(Grade::safe), 15));
  savedLabel_ = new ElidedLabel(Text::footnote);
  savedLabel_->setObjectName("savedLabel");
  savedLine->addWidget(savedLabel_, 1);
  savedRow_->setVisible(false);
  barColumn->addWidget(savedRow_);
  outer->addWidget(bar_);

  auto* body = new QWidget;
  column_ = scrollingColumn(body, 700, new TrustFooter);
  outer->addWidget(body, 1);

  connect(saveButton_, &QPushButton::clicked, this, &ReportView::save);
  for (auto signal : {&AppFlow::resultChanged, &AppFlow::systemDataGBChanged,
                      &AppFlow::telemetrySentChanged, &AppFlow::telemetryPreviewChanged})
    connect(&flow_, signal, this, &ReportView::rebuild);
  rebuild();
}

void ReportView::rebuild() {
  clearLayout(column_);
  const auto& result = flow_.result();
  bar_->setVisible(result.has_value());
  if (!result) {
    column_->addStretch();
    auto* none = label("스캔 결과가 없습니다", Text::muted);
    none->setAlignment(Qt::AlignHCenter);
    column_->addWidget(none);
    column_->addStretch();
    return;
  }
  const auto gb = flow_.systemDataGB();
  const auto groups = gradeGroups(result->findings);
  if (auto balance = balanceSummary(*result, gb)) column_->addWidget(balanceCard(*balance));
  const auto ledger = ledgerSummary(*result, gb);
  column_->addWidget(ledger ? ledgerCard(*ledger) : safeTotalCard(groups));
  if (QWidget* picture = ledgerPicture(*result, ledger)) column_->addWidget(picture);
  column_->addWidget(cleanupCTA(flow_));
  if (result->runningContainers && *result->runningContainers >= 1)
    column_->addWidget(productionBanner(*result->runningContainers));
  for (const GradeGroup& group : groups) column_->addWidget(gradeSection(group));
  if (auto sent = flow_.telemetrySent()) column_->addWidget(telemetryStatus(*sent, flow_.telemetryPreview()));
  column_->addStretch();
}

void ReportView::save() {
  const auto& result = flow_.result();
  if (!result) return;
  const AppEnvironment& env = flow_.environment();
  const std::string date = isoToday(env.now ? env.now() : std::time(nullptr));
  try {
    const std::string markdown =
        renderMarkdown(*result, flow_.systemDataGB(), flow_.scanDuration(), date);
    savedURL_ = writeReportFile(markdown, env.home / "Desktop", date);
    showSaved();
  } catch (const std::system_error& e) {
    // The system's own words for the failure (in the user's language where it has them),
    // and the folder it happened in.
    saveError_ = QString::fromLocal8Bit(e.code().message()) + " — " +
                 QString::fromStdString((env.home / "Desktop").string());
    QMessageBox* box = alert(this, "저장 실패", *saveError_);
    connect(box, &QMessageBox::finished, this, [this] { saveError_.reset(); });
    box->open();
  }
}

void ReportView::showSaved() {
  savedLabel_->setFullText("저장됨: " + QString::fromStdString(savedURL_->string()));
  savedRow_->setVisible(true);
}

}  // namespace vorlan::app
