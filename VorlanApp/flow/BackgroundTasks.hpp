// Work away from the main thread whose result hops back to a main-thread object. The owner
// holds the tasks as a member; when it goes, every task is asked to stop and joined, so no
// thread outlives the object it reports to, and a late result is simply dropped.
#pragma once
#include <QMetaObject>
#include <QObject>
#include <QPointer>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <stop_token>
#include <thread>
#include <utility>

namespace vorlan::app {

class BackgroundTasks {
 public:
  BackgroundTasks() = default;
  BackgroundTasks(const BackgroundTasks&) = delete;
  BackgroundTasks& operator=(const BackgroundTasks&) = delete;
  ~BackgroundTasks() { stopAll(); }

  // Runs `work(stop)` on a thread of its own; its value is handed to `done` on `receiver`'s
  // thread, in the order the values were posted, unless the receiver is gone by then. Work
  // must catch its own errors: it runs where nobody could show them.
  template <class Work, class Done>
  void start(QObject* receiver, Work work, Done done) {
    pruneFinished();
    auto finished = std::make_shared<std::atomic<bool>>(false);
    QPointer<QObject> guard(receiver);
    threads_.push_back({std::jthread([guard, finished, work = std::move(work),
                                      done = std::move(done)](std::stop_token stop) mutable {
                          auto value = work(stop);
                          if (guard)
                            QMetaObject::invokeMethod(
                                guard.data(),
                                [done = std::move(done), value = std::move(value)]() mutable {
                                  done(std::move(value));
                                },
                                Qt::QueuedConnection);
                          finished->store(true);
                        }),
                        finished});
  }

  // Asks every task to stop and waits for all of them.
  void stopAll() {
    for (auto& task : threads_) task.thread.request_stop();
    threads_.clear();  // jthread joins
  }

 private:
  struct Task {
    std::jthread thread;
    std::shared_ptr<std::atomic<bool>> finished;
  };

  void pruneFinished() {
    threads_.remove_if([](const Task& task) { return task.finished->load(); });
  }

  std::list<Task> threads_;
};

}  // namespace vorlan::app
