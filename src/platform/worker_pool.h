// One pool of worker threads for the whole process. Every network and
// plug-in object hands its parallel work here, so any number of them compute
// on as many threads as the pool has, however many objects a host creates:
// sixteen streams on a two-core machine run on two workers, not on sixty.
#ifndef VORLITH_SRC_PLATFORM_WORKER_POOL_H_
#define VORLITH_SRC_PLATFORM_WORKER_POOL_H_

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace vorlith::platform {

class WorkerPool {
 public:
  // The process's pool: one worker per online core at first.
  static WorkerPool& Shared();

  explicit WorkerPool(int workers);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  // Grows the pool to at least `workers` threads (up to kMaxWorkers); a
  // configuration that asks for more threads than the machine has cores
  // gets them. The pool never shrinks.
  void Reserve(int workers);
  int Workers();

  // Runs task(i) for every i in [0, parts) on the workers and returns when
  // all have finished; the caller only waits, so the machine's work runs on
  // the pool's threads alone. Jobs are served first come, first served: a
  // worker takes the next part of the oldest job that has one left, so
  // concurrent callers interleave and none starves. One part, or a call made
  // from inside a task, runs on the caller. Tasks must not throw.
  void Run(int parts, const std::function<void(int)>& task);

  static constexpr int kMaxWorkers = 256;

 private:
  struct Job;
  void Work();

  std::mutex mutex_;
  std::condition_variable work_;
  Job* head_ = nullptr;  // jobs with parts not yet taken, oldest first
  Job* tail_ = nullptr;
  bool stop_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace vorlith::platform

#endif  // VORLITH_SRC_PLATFORM_WORKER_POOL_H_
