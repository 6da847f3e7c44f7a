#include "simhost/host/turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "simhost/host/store.h"

namespace simhost {

namespace {

constexpr long kPatienceUs = 5'000'000;  // as long as for SQLite's own locks
constexpr long kLongestPauseUs = 1000;   // between two attempts; a turn takes some 3 us to read, a millisecond to write

}  // namespace

TurnFile::TurnFile(const std::string& store_path) : path_(store_path + "-wal") {
  descriptor_ = open(path_.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0600);
  if (descriptor_ < 0)
    throw StoreError(path_ + ": " + std::strerror(errno));
}

TurnFile::~TurnFile() {
  if (descriptor_ >= 0)
    close(descriptor_);
}

// flock() itself would wait, but for ever: another process may have been stopped in the middle of its turn. So the lock
// is tried, first at short intervals and then at longer ones.
Turn::Turn(TurnFile& file, TurnTo what) : descriptor_(file.descriptor_) {
  const int operation = (what == TurnTo::kRead ? LOCK_SH : LOCK_EX) | LOCK_NB;
  long pause_us = 20;
  for (long waited_us = 0; flock(descriptor_, operation) != 0;) {
    if (errno != EWOULDBLOCK && errno != EINTR)
      throw StoreError(file.path_ + ": " + std::strerror(errno));
    if (waited_us >= kPatienceUs)
      throw StoreError("another process has kept the host busy for 5 seconds (it may have been stopped)");
    timespec rest{0, pause_us * 1000};
    nanosleep(&rest, nullptr);
    waited_us += pause_us;
    pause_us = std::min(2 * pause_us, kLongestPauseUs);
  }
}

Turn::~Turn() { flock(descriptor_, LOCK_UN); }

}  // namespace simhost
