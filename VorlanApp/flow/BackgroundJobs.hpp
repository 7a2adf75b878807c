// Work off the main thread for an object that lives on it: each job runs on its own
// std::jthread and hands its result back through the main thread's event queue. Owned by the
// object whose fields the results touch, and declared after those fields, so that it goes
// first: its destructor stops every job and joins its thread before anything they use is gone.
#pragma once
#include <QMetaObject>
#include <QObject>
#include <QPointer>

#include <cstdint>
#include <functional>
#include <stop_token>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorlan::app {

class BackgroundJobs : public QObject {
 public:
  BackgroundJobs() = default;
  ~BackgroundJobs() override;  // stops every job, then joins them all

  // Runs `work(stop)` on a new thread, then `done(result)` on the main thread. `work` gets
  // copies, never the owner, and must not throw. A stopped job's `done` still runs, so that
  // its owner learns it ended; once the jobs object is gone, no `done` runs any more.
  template <typename Work, typename Done>
  uint64_t start(Work work, Done done);

  // Queues `fn` to run on the main thread, behind everything queued before it. Callable from
  // any thread while this object lives; what a job posts arrives in the order posted.
  void post(std::function<void()> fn);

  void requestStop(uint64_t id);

 private:
  struct Job {
    uint64_t id;
    std::jthread thread;
  };
  // Joins a job whose result has arrived: its thread is at its very end.
  void reap(uint64_t id);

  uint64_t lastId_ = 0;
  std::vector<Job> jobs_;  // touched on the main thread only
};

template <typename Work, typename Done>
uint64_t BackgroundJobs::start(Work work, Done done) {
  const uint64_t id = ++lastId_;
  auto run = [this, guard = QPointer<BackgroundJobs>(this), id, work = std::move(work),
              done = std::move(done)](std::stop_token stop) mutable {
    auto result = work(stop);
    // `this` is only the queue's address here: the destructor joins this thread first.
    QMetaObject::invokeMethod(
        this,
        [guard, id, done = std::move(done), result = std::move(result)]() mutable {
          if (!guard) return;
          guard->reap(id);
          done(std::move(result));
        },
        Qt::QueuedConnection);
  };
  jobs_.push_back({id, std::jthread(std::move(run))});
  return id;
}

}  // namespace vorlan::app
