#include "src/platform/worker_pool.h"

#include <algorithm>

#include "src/platform/platform.h"

namespace vorlith::platform {
namespace {

// Set on the pool's own threads: a task that runs more parallel work runs it
// itself instead of waiting on workers that may all be waiting too.
thread_local bool t_worker = false;

}  // namespace

// A caller's job, on the caller's stack: the caller cannot return before
// every part is done, and a worker touches the job only under the mutex.
struct WorkerPool::Job {
  const std::function<void(int)>* task = nullptr;
  int parts = 0;
  int next = 0;  // parts handed out
  int done = 0;
  Job* link = nullptr;
  std::condition_variable finished;
};

WorkerPool& WorkerPool::Shared() {
  // Destroyed, and its threads joined, when the library is unloaded or the
  // process exits: no thread may outlive the code it runs.
  static WorkerPool pool(UsableCpus());
  return pool;
}

WorkerPool::WorkerPool(int workers) { Reserve(workers); }

WorkerPool::~WorkerPool() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  work_.notify_all();
  for (std::thread& t : workers_) t.join();
}

void WorkerPool::Reserve(int workers) {
  std::lock_guard<std::mutex> lock(mutex_);
  workers = std::min(workers, kMaxWorkers);
  while (static_cast<int>(workers_.size()) < workers) workers_.emplace_back([this] { Work(); });
}

int WorkerPool::Workers() {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(workers_.size());
}

void WorkerPool::Run(int parts, const std::function<void(int)>& task) {
  if (parts <= 1 || t_worker) {
    for (int i = 0; i < parts; ++i) task(i);
    return;
  }
  Job job;
  job.task = &task;
  job.parts = parts;
  std::unique_lock<std::mutex> lock(mutex_);
  (tail_ != nullptr ? tail_->link : head_) = &job;
  tail_ = &job;
  work_.notify_all();
  job.finished.wait(lock, [&job] { return job.done == job.parts; });
}

void WorkerPool::Work() {
  t_worker = true;
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    work_.wait(lock, [this] { return stop_ || head_ != nullptr; });
    if (stop_) return;
    Job* job = head_;
    const int part = job->next++;
    if (job->next == job->parts) {
      head_ = job->link;
      if (head_ == nullptr) tail_ = nullptr;
    }
    lock.unlock();
    (*job->task)(part);
    lock.lock();
    // Notified under the mutex: the caller may destroy the job as soon as it
    // can take the mutex back.
    if (++job->done == job->parts) job->finished.notify_one();
  }
}

}  // namespace vorlith::platform
