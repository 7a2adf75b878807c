// The cleanup screen's offer to have unknown folder names explained, and what came of it:
// nothing, the offer with its three choices, the wait, or a link to what was sent. Everything
// it does it asks of CleanupFlow; its one state of its own is whether the request sheet is open.
#pragma once
#include <QPointer>
#include <QWidget>

class QVBoxLayout;

namespace vorlan::app {

class CleanupFlow;
class ExplainRequestSheet;

class ExplainCard : public QWidget {
  Q_OBJECT

 public:
  explicit ExplainCard(CleanupFlow& flow, QWidget* parent = nullptr);

  bool showingRequest() const;
  // Opens the sheet with the flow's latest request text.
  void showRequest();

 private:
  void rebuild();

  CleanupFlow& flow_;
  QVBoxLayout* column_;
  bool hiddenForEmpty_ = false;
  QPointer<ExplainRequestSheet> sheet_;
};

}  // namespace vorlan::app
