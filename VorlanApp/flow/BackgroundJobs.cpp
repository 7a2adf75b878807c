#include "flow/BackgroundJobs.hpp"

namespace vorlan::app {

BackgroundJobs::~BackgroundJobs() {
  // Ask every job first, so that they wind down side by side; the joins follow.
  for (Job& job : jobs_) job.thread.request_stop();
  jobs_.clear();
}

void BackgroundJobs::post(std::function<void()> fn) {
  QMetaObject::invokeMethod(
      this,
      [self = QPointer<BackgroundJobs>(this), fn = std::move(fn)] {
        if (self) fn();
      },
      Qt::QueuedConnection);
}

void BackgroundJobs::requestStop(uint64_t id) {
  for (Job& job : jobs_)
    if (job.id == id) job.thread.request_stop();
}

void BackgroundJobs::reap(uint64_t id) {
  std::erase_if(jobs_, [id](const Job& job) { return job.id == id; });
}

}  // namespace vorlan::app
