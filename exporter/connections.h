// The open connections, with the time that each has.
//
// A request has to be there, whole, 5 s after the connection began or after the answer before; an answer has to be
// taken within 15 s. Progress buys no more time: a client that sends or reads a byte a second is cut off like one that
// does nothing. When there are as many connections as there may be, a new one takes the place of the oldest that waits
// for a request, so that slow clients cannot keep others out.
#pragma once

#include <microhttpd.h>

#include <chrono>
#include <cstddef>
#include <list>

class Connections {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::size_t kMost = 256;
  static constexpr std::chrono::seconds kRequestTime{5}, kAnswerTime{15};

  struct Connection {
    int socket;
    bool answering;
    bool cut;
    Clock::time_point deadline;
    std::list<Connection>::iterator self;
  };

  Connection* Add(int socket);
  void Remove(Connection* connection) { connections_.erase(connection->self); }

  void BeginAnswer(Connection* connection);
  void EndAnswer(Connection* connection);

  std::size_t Count() const { return connections_.size(); }

  // Cuts off those whose time is over.
  void CutLate(Clock::time_point now);
  // Cuts off the oldest, before those that take an answer those that do not. False when all are cut already.
  bool CutOldest();
  bool CutOldestAnswer();
  // When the next one's time is over; the far future when there is none.
  Clock::time_point NextDeadline() const;

 private:
  bool CutOldestOf(bool answering);

  std::list<Connection> connections_;
};
