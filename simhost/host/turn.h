// Turns of readers and writers.
//
// A reader takes the time, and answers for it by the settings that hold then; a writer decides from which time on other
// settings hold. SQLite lets both happen at once, so a reader might answer for a later time by settings that end before
// it, and whoever reads next would see counters fall. Hence readers share a lock from taking the time to the end of
// their counting, and writers hold it alone from taking theirs to their commit. The kernel gives it back when a process
// ends, however it ends.
#pragma once

#include <string>

namespace simhost {

// The file that is locked: the store's write-ahead log, which is there as long as a connection is. (Not the store
// itself: closing a descriptor of it would take SQLite its own locks.)
class TurnFile {
 public:
  explicit TurnFile(const std::string& store_path);
  ~TurnFile();
  TurnFile(const TurnFile&) = delete;
  TurnFile& operator=(const TurnFile&) = delete;

  // A child must not touch the lock, which it shares with its parent.
  void Abandon() { descriptor_ = -1; }

 private:
  friend class Turn;
  std::string path_;
  int descriptor_ = -1;
};

enum class TurnTo { kRead, kWrite };

// Waits for the turn, and gives it back at the end. Throws StoreError when others hold it for longer than any of them
// should.
class Turn {
 public:
  Turn(TurnFile& file, TurnTo what);
  ~Turn();
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  int descriptor_;
};

}  // namespace simhost
