// What a program gives to main.cc.
#pragma once

#include <span>

#include "input.h"

struct Target {
  const char* name;
  void (*run)(Input input);
};

std::span<const Target> Targets();
void SetUp();  // once, before the first input
void Reset();  // after each input
