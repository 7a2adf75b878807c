// The quarantine panel at the top of the cleanup screen: the account of the cleanup, any
// warning from a sweep or an emptying, a way to empty everything at once, and one row per
// batch with its way back. It holds no state of its own; all it shows is QuarantineStore's.
#pragma once
#include <QWidget>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

class QVBoxLayout;

namespace vorlan {
struct QuarantineBatch;
}

namespace vorlan::app {

class QuarantineStore;

class QuarantineView : public QWidget {
  Q_OBJECT

 public:
  // `now` gives the current time in whole seconds since 1970, for the "expires soon" line.
  QuarantineView(QuarantineStore& store, std::function<int64_t()> now, QWidget* parent = nullptr);

  // The parent's sign that a new batch was written (the last batch's id): a change reloads.
  void setRefreshToken(std::optional<std::string> token);

  // The screen that holds the panel has appeared: sweep out overdue batches (the store ignores
  // a sweep while one runs). The screen says so, not the panel's own showing: a panel with
  // nothing to show yet is hidden, and the batches it would list come from this very sweep.
  void appeared();

 private:
  void rebuild();
  QWidget* batchRow(const QuarantineBatch& batch);

  QuarantineStore& store_;
  std::function<int64_t()> now_;
  std::optional<std::string> refreshToken_;
  QVBoxLayout* column_;
};

}  // namespace vorlan::app
