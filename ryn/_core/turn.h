// Whose turn it is: one platform operation at a time in a process, and calls that may be given up.
//
// Nothing says that the platform bears two operations at a time. So each operation is made in its turn, by a thread
// that has released the interpreter lock first and takes it again only after its turn: whoever waits for a turn never
// holds the interpreter lock.
//
// A call without a time limit is made by the thread that wants it. One with a limit is made by a worker, into memory
// that caller and worker share: when the limit has passed, or a signal handler has raised, the caller leaves it to the
// worker, and until that operation returns every other one fails at once and names it. Workers are native threads that
// never touch the interpreter, are detached, and so delay nobody's exit. A forked child starts with no call out.
#pragma once

#include <time.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

#include "host/status.h"
#include "ryn/_core/operation.h"
#include "ryn/_core/values.h"

namespace ryn {

// Why a call came to no result.
struct Failure {
  enum class Kind {
    kNone,
    kStatus,  // `operation` answered `status`
    kOut,     // `out` has not returned for `seconds`; `refused` was therefore not called, unless it is null
    kRaised,  // Python's error is set: a signal handler has raised
  };

  Failure() : operation("") {}

  Kind kind = Kind::kNone;
  Status status;
  Operation operation;  // its bytes are the work's
  OperationCopy out;
  double seconds = 0;
  const char* refused = nullptr;
};

// Raises the error of a failure.
void Raise(const Failure& failure);

// What caller and worker share of a call with a time limit. Fields are guarded by the turn's mutex unless they say
// otherwise.
struct Job {
  using Run = void (*)(Job* job);

  Run run = nullptr;
  Run destroy = nullptr;
  std::atomic<int> references{2};  // the caller's and the worker's; not guarded
  Failure failure;                 // the worker's until `done`
  bool done = false;
  bool given_up = false;                 // the worker is to make no further operation
  const Operation* operation = nullptr;  // that it makes or waits for
  timespec since = {};                   // when it began to
  Job* next = nullptr;                   // of the jobs that wait for a worker
};

// The operations that a piece of work makes, one after the other, without the interpreter lock. After the first one
// that fails no other is made.
class Line {
 public:
  // For the calling thread, or for a job.
  Line(Failure* failure, PyThreadState** state) : failure_(failure), state_(state), job_(nullptr) {}
  Line(Failure* failure, Job* job) : failure_(failure), state_(nullptr), job_(job) {}

  // Makes an operation in its turn. False when it failed, or was not made.
  template <class Make>
  bool Call(const Operation& operation, Make make) {
    if (!Enter(operation))
      return false;
    const Status status = make();
    Leave();
    return status.Ok() || Fail(operation, status);
  }

  // The same for an operation whose failure is the work's to judge. False only when it was not made.
  template <class Make>
  bool Try(const Operation& operation, Status* status, Make make) {
    if (!Enter(operation))
      return false;
    *status = make();
    Leave();
    return true;
  }

  // Ends the work with a failure of its own. Returns false.
  bool Fail(const Operation& operation, const Status& status);

 private:
  bool Enter(const Operation& operation);
  void Leave();

  Failure* failure_;
  PyThreadState** state_;  // of the calling thread, whose interpreter lock is released
  Job* job_;
};

// Hands a job to a worker and waits, without the interpreter lock, until it is done or given up.
void WaitFor(Job* job, double timeout, Failure* failure);
void DropJob(Job* job);

constexpr double kNoTimeout = -1;

// Runs `work.Run(line)` without the interpreter lock, then returns `make(work)` with it; null with Python's error set
// when an operation failed. Work holds native values only, and may be moved before it runs.
template <class Work, class Make>
PyObject* Perform(double timeout, Work work, Make make) {
  if (timeout == kNoTimeout) {
    Failure failure;
    PyThreadState* state = PyEval_SaveThread();
    Line line(&failure, &state);
    work.Run(line);
    PyEval_RestoreThread(state);
    if (failure.kind == Failure::Kind::kNone)
      return make(work);
    Raise(failure);
    return nullptr;
  }

  struct WorkJob : Job {
    explicit WorkJob(Work&& given) : work(std::move(given)) {}
    Work work;
  };
  void* const memory = std::malloc(sizeof(WorkJob));
  if (!memory)
    return PyErr_NoMemory();
  auto* const job = new (memory) WorkJob(std::move(work));
  job->run = [](Job* shared) {
    Line line(&shared->failure, shared);
    static_cast<WorkJob*>(shared)->work.Run(line);
  };
  job->destroy = [](Job* shared) {
    static_cast<WorkJob*>(shared)->~WorkJob();
    std::free(shared);
  };
  Failure failure;
  PyObject* result = nullptr;
  WaitFor(job, timeout, &failure);
  if (failure.kind != Failure::Kind::kNone)
    Raise(failure);
  else if (job->failure.kind != Failure::Kind::kNone)
    Raise(job->failure);
  else
    result = make(job->work);
  DropJob(job);
  return result;
}

}  // namespace ryn
