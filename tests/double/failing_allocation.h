// Lets an allocation of the interpreter fail.
#pragma once

#include <Python.h>

#include <array>

// While one is alive, the interpreter's allocations are counted from 0, and number `failing` fails; with `following`,
// all after it fail too.
class FailingAllocation {
 public:
  explicit FailingAllocation(Py_ssize_t failing, bool following = false) : failing_(failing), following_(following) {
    for (std::size_t i = 0; i < kDomains.size(); ++i) {
      auto& hook = hooks_[i];
      hook.owner = this;
      PyMem_GetAllocator(kDomains[i], &hook.original);
      PyMemAllocatorEx allocator = {&hook, Malloc, Calloc, Realloc, Free};
      PyMem_SetAllocator(kDomains[i], &allocator);
    }
  }

  ~FailingAllocation() {
    for (std::size_t i = 0; i < kDomains.size(); ++i)
      PyMem_SetAllocator(kDomains[i], &hooks_[i].original);
  }

  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;

  bool HasFailed() const { return count_ > failing_; }

 private:
  static constexpr std::array kDomains = {PYMEM_DOMAIN_RAW, PYMEM_DOMAIN_MEM, PYMEM_DOMAIN_OBJ};

  struct Hook {
    FailingAllocation* owner;
    PyMemAllocatorEx original;

    bool Fails() {
      const Py_ssize_t number = owner->count_++;
      return number == owner->failing_ || (owner->following_ && number > owner->failing_);
    }
  };

  static void* Malloc(void* context, std::size_t size) {
    auto* hook = static_cast<Hook*>(context);
    return hook->Fails() ? nullptr : hook->original.malloc(hook->original.ctx, size);
  }

  static void* Calloc(void* context, std::size_t count, std::size_t size) {
    auto* hook = static_cast<Hook*>(context);
    return hook->Fails() ? nullptr : hook->original.calloc(hook->original.ctx, count, size);
  }

  static void* Realloc(void* context, void* block, std::size_t size) {
    auto* hook = static_cast<Hook*>(context);
    return hook->Fails() ? nullptr : hook->original.realloc(hook->original.ctx, block, size);
  }

  static void Free(void* context, void* block) {
    auto* hook = static_cast<Hook*>(context);
    hook->original.free(hook->original.ctx, block);
  }

  std::array<Hook, kDomains.size()> hooks_;
  Py_ssize_t count_ = 0;
  const Py_ssize_t failing_;
  const bool following_;
};
