// The state behind double.h that both libraries of the double share.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct Answer {
  std::uint32_t status = 0;
  std::int64_t length = -1;
  bool fills = false;
  bool overrun = false;
  std::vector<unsigned char> area;
};

// Answers for a number of calls come first, in order; then the standing one, if there is one.
struct Script {
  struct Counted {
    Answer answer;
    std::int32_t left;
    int entered = -1;  // not -1: tells here that it was called,
    int go_on = -1;    // and waits here, before the next answer is taken
  };
  std::deque<Counted> counted;
  std::unique_ptr<Answer> standing;
};

// Bytes that end at the end of a page, with a page behind them that cannot be read.
struct Unmap {
  std::size_t size = 0;
  void operator()(unsigned char* bytes) const;
};
using PageEnd = std::unique_ptr<unsigned char, Unmap>;

struct Property {
  std::string name;
  PageEnd value;
  std::uint32_t size;
};

struct Switch {
  std::string alias, class_name, identifier;
  PageEnd id;                         // the identifier's bytes
  std::deque<Property> host, global;  // a deque: handles stay valid
};

struct Double {
  std::map<std::string, Script> scripts;  // none is ever removed
  std::deque<Switch> switches, unloaded;
  std::string calls;
  bool recording = true, visit_all = false, find_port = false, log_hooks = false;
  std::uint64_t blocks_out = 0, blocks_freed = 0;
};

Double& TheDouble();

// Between a reset of the configuration and the next load there are no switches, and those that are there then stand in
// other memory: a handle that was kept is good for nothing.
void UnloadSwitches();
void LoadSwitches();
