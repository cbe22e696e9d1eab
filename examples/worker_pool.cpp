// A pool of worker threads taking jobs from a queue guarded and signalled by
// a CondVar (which is itself the mutex it waits with).
//
//   worker_pool [WORKERS [JOBS]]    (default 4 workers, 100 jobs)
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <vector>

#include <quorel/quorel.h>

using namespace quorel::sal::exec;

namespace {

// The jobs (numbers to square) and the sum of the results.
struct Queue {
  CondVar ready;
  std::deque<int> jobs;
  bool closed = false;
  long long sum = 0;
};

class Worker : public i::Task {
 public:
  explicit Worker(Queue& queue) : queue_(queue) {}
  int run() override {
    for (;;) {
      queue_.ready.lock();
      while (queue_.jobs.empty() && !queue_.closed) queue_.ready.wait();
      if (queue_.jobs.empty()) {
        queue_.ready.unlock();
        return 0;
      }
      const int job = queue_.jobs.front();
      queue_.jobs.pop_front();
      queue_.ready.unlock();

      const long long result = static_cast<long long>(job) * job;  // the work, outside the lock
      queue_.ready.lock();
      queue_.sum += result;
      queue_.ready.unlock();
    }
  }

 private:
  Queue& queue_;
};

}  // namespace

int main(int argc, char** argv) {
  const int workers = argc > 1 ? std::atoi(argv[1]) : 4;
  const int jobs = argc > 2 ? std::atoi(argv[2]) : 100;
  try {
    Queue queue;
    std::vector<std::unique_ptr<Thread>> threads;
    for (int n = 0; n < workers; ++n) {
      threads.emplace_back(new Thread(TaskHandle(new Worker(queue)), 0, 0));
      threads.back()->start();
    }
    for (int job = 1; job <= jobs; ++job) {
      queue.ready.lock();
      queue.jobs.push_back(job);
      queue.ready.signalOne();
      queue.ready.unlock();
    }
    queue.ready.lock();
    queue.closed = true;
    queue.ready.signalAll();
    queue.ready.unlock();
    for (auto& thread : threads) thread->wait();

    const long long expected = static_cast<long long>(jobs) * (jobs + 1) * (2 * jobs + 1) / 6;
    std::cout << workers << " workers squared " << jobs << " numbers: sum " << queue.sum
              << (queue.sum == expected ? " (right)" : " (WRONG)") << "\n";
    return queue.sum == expected ? 0 : 1;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
