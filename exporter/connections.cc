#include "exporter/connections.h"

#include <sys/socket.h>

#include <algorithm>

namespace {

// The server sees the end of the connection and closes it.
void Cut(Connections::Connection* connection) {
  connection->cut = true;
  shutdown(connection->socket, SHUT_RDWR);
}

}  // namespace

Connections::Connection* Connections::Add(int socket) {
  connections_.push_back({socket, false, false, Clock::now() + kRequestTime, {}});
  connections_.back().self = std::prev(connections_.end());
  return &connections_.back();
}

void Connections::BeginAnswer(Connection* connection) {
  connection->answering = true;
  connection->deadline = Clock::now() + kAnswerTime;
}

void Connections::EndAnswer(Connection* connection) {
  connection->answering = false;
  connection->deadline = Clock::now() + kRequestTime;
}

void Connections::CutLate(Clock::time_point now) {
  for (Connection& connection : connections_) {
    if (!connection.cut && connection.deadline <= now)
      Cut(&connection);
  }
}

bool Connections::CutOldestOf(bool answering) {
  Connection* oldest = nullptr;
  for (Connection& connection : connections_) {
    if (!connection.cut && connection.answering == answering && (!oldest || connection.deadline < oldest->deadline))
      oldest = &connection;
  }
  if (oldest)
    Cut(oldest);
  return oldest != nullptr;
}

bool Connections::CutOldest() { return CutOldestOf(false) || CutOldestOf(true); }

bool Connections::CutOldestAnswer() { return CutOldestOf(true); }

Connections::Clock::time_point Connections::NextDeadline() const {
  Clock::time_point next = Clock::time_point::max();
  for (const Connection& connection : connections_) {
    if (!connection.cut)
      next = std::min(next, connection.deadline);
  }
  return next;
}
