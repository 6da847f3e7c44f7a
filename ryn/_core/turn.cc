#include "ryn/_core/turn.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <cerrno>

namespace ryn {
namespace {

constexpr double kSignalInterval = 0.05;  // seconds between two looks at signals while a thread waits

// ---- Time ---------------------------------------------------------------------------------------------------------

timespec Now() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now;
}

// To a few milliseconds, for a fifth of the price: an operation may take no longer than asking for the exact time.
timespec RoughlyNow() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now;
}

double Between(const timespec& earlier, const timespec& later) {
  return static_cast<double>(later.tv_sec - earlier.tv_sec) +
         static_cast<double>(later.tv_nsec - earlier.tv_nsec) / 1e9;
}

timespec After(timespec time, double seconds) {
  const auto whole = static_cast<time_t>(seconds);
  time.tv_sec += whole;
  time.tv_nsec += static_cast<long>((seconds - static_cast<double>(whole)) * 1e9);
  if (time.tv_nsec >= 1000000000) {
    ++time.tv_sec;
    time.tv_nsec -= 1000000000;
  }
  return time;
}

// ---- The turn -----------------------------------------------------------------------------------------------------

struct Worker {
  pthread_cond_t wake;
  Job* job;
  Worker* next;
};

// All fields but the mutex are guarded by it.
struct Turn {
  pthread_mutex_t mutex;
  pthread_cond_t changed;  // the turn is free, a job is done, or something was given up
  int waiting;             // for `changed`
  bool taken;
  bool given_up;               // whoever has the turn is no longer waited for
  const Operation* operation;  // while taken; also the job whose it is, null for a calling thread's
  const Job* job;
  timespec since;
  Worker* idle;
};

Turn turn;

void MakeCondition(pthread_cond_t* condition) {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(condition, &attributes);
  pthread_condattr_destroy(&attributes);
}

void StartAnew() {
  turn = {};
  pthread_mutex_init(&turn.mutex, nullptr);
  MakeCondition(&turn.changed);
}

void Lock() { pthread_mutex_lock(&turn.mutex); }
void Unlock() { pthread_mutex_unlock(&turn.mutex); }

// With the mutex held, which it gives back.
void Tell() {
  const bool anybody = turn.waiting > 0;
  Unlock();
  if (anybody)
    pthread_cond_broadcast(&turn.changed);
}

// Waits for a change, with the mutex held, until a time at most, or without limit.
void Wait(const timespec* until) {
  ++turn.waiting;
  if (until)
    pthread_cond_timedwait(&turn.changed, &turn.mutex, until);
  else
    pthread_cond_wait(&turn.changed, &turn.mutex);
  --turn.waiting;
}

// A forked child has none of the workers, and nobody who could give the turn back.
[[gnu::constructor]] void SetUp() {
  StartAnew();
  pthread_atfork(Lock, Unlock, StartAnew);
}

// ---- Waiting for the turn -----------------------------------------------------------------------------------------

// With the mutex held: the operation that is out, and for how long.
void CopyOut(Failure* failure, const char* refused) {
  failure->kind = Failure::Kind::kOut;
  failure->out.CopyFrom(*turn.operation);
  failure->seconds = Between(turn.since, Now());
  failure->refused = refused;
}

// Lets Python's signal handlers run, without the mutex. False when one has raised.
bool LookAtSignals(PyThreadState** state) {
  PyEval_RestoreThread(*state);
  const bool raised = PyErr_CheckSignals() != 0;
  *state = PyEval_SaveThread();
  return !raised;
}

}  // namespace

bool Line::Enter(const Operation& operation) {
  Lock();
  if (job_) {
    job_->operation = &operation;
    job_->since = Now();
  }
  while (turn.taken && !turn.given_up && !(job_ && job_->given_up)) {
    if (job_) {
      Wait(nullptr);
      continue;
    }
    const timespec until = After(Now(), kSignalInterval);
    Wait(&until);
    Unlock();
    if (!LookAtSignals(state_)) {
      failure_->kind = Failure::Kind::kRaised;
      return false;
    }
    Lock();
  }
  if (turn.taken || (job_ && job_->given_up)) {
    if (turn.taken)
      CopyOut(failure_, operation.name);
    else
      failure_->kind = Failure::Kind::kOut;  // its caller has gone and looks at nothing
    if (job_)
      job_->operation = nullptr;  // it ends with the call, the job's caller may still look
    Unlock();
    return false;
  }
  turn.taken = true;
  turn.operation = &operation;
  turn.job = job_;
  turn.since = RoughlyNow();
  Unlock();
  return true;
}

void Line::Leave() {
  Lock();
  turn.taken = false;
  turn.given_up = false;
  turn.operation = nullptr;
  turn.job = nullptr;
  if (job_)
    job_->operation = nullptr;
  Tell();
}

bool Line::Fail(const Operation& operation, const Status& status) {
  failure_->kind = Failure::Kind::kStatus;
  failure_->status = status;
  failure_->operation = operation;
  return false;
}

// ---- Workers ------------------------------------------------------------------------------------------------------

namespace {

void Finish(Job* job) {
  Lock();
  job->done = true;
  Tell();
  DropJob(job);
}

void* WorkerMain(void* given) {
  auto* const worker = static_cast<Worker*>(given);
  for (;;) {
    worker->job->run(worker->job);
    Finish(worker->job);
    Lock();
    worker->job = nullptr;
    worker->next = turn.idle;
    turn.idle = worker;
    while (!worker->job)
      pthread_cond_wait(&worker->wake, &turn.mutex);
    Unlock();
  }
}

// Signals are for the threads of the interpreter.
bool StartThread(Worker* worker) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const int failed = pthread_create(&thread, &attributes, WorkerMain, worker);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return failed == 0;
}

// A worker lives as long as the process: there are at most as many as calls were made at the same time.
bool StartWorker(Job* job) {
  auto* const worker = static_cast<Worker*>(std::calloc(1, sizeof(Worker)));
  if (!worker)
    return false;
  MakeCondition(&worker->wake);
  worker->job = job;
  if (StartThread(worker))
    return true;
  pthread_cond_destroy(&worker->wake);
  std::free(worker);
  return false;
}

bool HandOver(Job* job) {
  Lock();
  Worker* const worker = turn.idle;
  if (worker) {
    turn.idle = worker->next;
    worker->job = job;
    pthread_cond_signal(&worker->wake);
  }
  Unlock();
  return worker || StartWorker(job);
}

// With the mutex held, which it gives back: the caller does not wait for its job any longer.
void GiveUp(Job* job) {
  job->given_up = true;
  if (turn.taken && turn.job == job)
    turn.given_up = true;
  Tell();
}

// With the mutex held: the job's operation has not returned in time, or another one keeps it waiting.
void CopyTimeout(Job* job, double timeout, Failure* failure) {
  if (turn.taken && turn.job != job)
    return CopyOut(failure, job->operation->name);
  failure->kind = Failure::Kind::kOut;
  failure->seconds = timeout;
  failure->out.CopyFrom(*job->operation);
}

}  // namespace

void WaitFor(Job* job, double timeout, Failure* failure) {
  PyThreadState* state = PyEval_SaveThread();
  if (!HandOver(job)) {
    PyEval_RestoreThread(state);
    DropJob(job);  // the worker's
    PyErr_NoMemory();
    failure->kind = Failure::Kind::kRaised;
    return;
  }
  Lock();
  while (!job->done) {
    const timespec now = Now();
    // The limit is the operation's: a worker that a busy machine has not let come to it is waited for.
    const double left = job->operation ? timeout - Between(job->since, now) : kSignalInterval;
    if (job->operation && left <= 0) {
      CopyTimeout(job, timeout, failure);
      GiveUp(job);
      PyEval_RestoreThread(state);
      return;
    }
    const timespec until = After(now, std::min(left, kSignalInterval));
    Wait(&until);
    if (job->done)
      break;
    Unlock();
    if (!LookAtSignals(&state)) {
      failure->kind = Failure::Kind::kRaised;
      Lock();
      GiveUp(job);
      PyEval_RestoreThread(state);
      return;
    }
    Lock();
  }
  Unlock();
  PyEval_RestoreThread(state);
}

void DropJob(Job* job) {
  if (job->references.fetch_sub(1) == 1)
    job->destroy(job);
}

// ---- Errors -------------------------------------------------------------------------------------------------------

namespace {

Ref ArgumentValue(const Argument& argument) {
  const auto* const bytes = static_cast<const unsigned char*>(argument.bytes);
  switch (argument.kind) {
    case Argument::Kind::kNumber:
      return Int(argument.number);
    case Argument::Kind::kNumbers:
      return Tuple(argument.size / sizeof(std::uint32_t), [&](std::size_t i) {
        std::uint32_t number;
        std::memcpy(&number, bytes + i * sizeof(number), sizeof(number));
        return Int(number);
      });
    case Argument::Kind::kText:
      return Text({static_cast<const char*>(argument.bytes), argument.size});
    case Argument::Kind::kHex:
    case Argument::Kind::kMac:
      break;
  }
  const bool mac = argument.kind == Argument::Kind::kMac;
  const Ref value = Bytes(bytes, argument.size);
  return Ref(!value ? nullptr
             : mac  ? PyObject_CallMethod(value.get(), "hex", "s", ":")
                    : PyObject_CallMethod(value.get(), "hex", nullptr));
}

Ref ArgumentsOf(const Operation& operation) {
  return Tuple(operation.count, [&](std::size_t i) { return ArgumentValue(operation.arguments[i]); });
}

void RaiseMade(const Ref& error) {
  if (error)
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.get())), error.get());
}

void RaiseStatus(const Failure& failure) {
  if (failure.status.kind == Status::Kind::kNoMemory) {
    PyErr_NoMemory();
    return;
  }
  const bool failed = failure.status.kind == Status::Kind::kFailed;
  const Ref make = Imported("ryn.errors", failed ? "platform_error" : "InvalidResponse");
  const Ref arguments = make ? ArgumentsOf(failure.operation) : nullptr;
  if (!arguments)
    return;
  if (failed)
    RaiseMade(
        Ref(PyObject_CallFunction(make.get(), "sOI", failure.operation.name, arguments.get(), failure.status.code)));
  else
    RaiseMade(Ref(PyObject_CallFunction(make.get(), "sOs", failure.operation.name, arguments.get(),
                                        "its answer contradicts itself or reaches past its own end")));
}

void RaiseOut(const Failure& failure) {
  const Ref make = Imported("ryn.errors", "TimeoutError");
  const Ref arguments = make ? ArgumentsOf(failure.out.Get()) : nullptr;
  if (arguments)
    RaiseMade(Ref(PyObject_CallFunction(make.get(), "sOdz", failure.out.Get().name, arguments.get(), failure.seconds,
                                        failure.refused)));
}

}  // namespace

void Raise(const Failure& failure) {
  if (failure.kind == Failure::Kind::kStatus)
    RaiseStatus(failure);
  else if (failure.kind == Failure::Kind::kOut)
    RaiseOut(failure);
}

}  // namespace ryn
