// The strip on top of the window that tells of a newer version: a link to get it, and a
// button that closes the strip for the rest of the run (what to do then is the owner's).
#pragma once
#include <QWidget>

#include <functional>

#include "network/UpdateCheck.hpp"

namespace vorlan::app {

class UpdateBanner : public QWidget {
  Q_OBJECT

 public:
  UpdateBanner(const UpdateInfo& info, std::function<void()> onDismiss, QWidget* parent = nullptr);

 protected:
  void paintEvent(QPaintEvent*) override;
};

}  // namespace vorlan::app
