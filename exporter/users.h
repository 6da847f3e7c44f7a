// Names and passwords that --users names.
#pragma once

#include <crypt.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class Users {
 public:
  // Reads lines of NAME:HASH, HASH as crypt(3) makes it; empty lines and such that begin with # do not count. False
  // after a message.
  bool Read(const std::string& file);

  bool Empty() const { return users_.empty(); }

  enum class Verdict { kRight, kWrong, kTooMany };
  // kTooMany: there were so many wrong passwords lately that this one was not tried.
  Verdict Check(std::string_view name, std::string_view password);

 private:
  struct User {
    std::string name, hash;
    std::string right;  // the password, once it was given: hashing it again with each scrape would take too long
  };
  std::vector<User> users_;
  std::unique_ptr<crypt_data> area_ = std::make_unique<crypt_data>();
  std::chrono::steady_clock::time_point second_ = {};
  int wrong_ = 0;  // since then
};
