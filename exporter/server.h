// The HTTP side: /metrics, /healthy and a landing page.
#pragma once

#include <microhttpd.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "exporter/bodies.h"
#include "exporter/collecting.h"
#include "exporter/connections.h"
#include "exporter/options.h"
#include "exporter/users.h"

class Server {
 public:
  Server(const Options& options, const Collecting& collecting, std::string backend)
      : options_(options), collecting_(collecting), backend_(std::move(backend)), bodies_(backend_) {}
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  // Binds the addresses and reads the files that the options name. 0, or after a message the exit code.
  int Open();

  // Serves until `stopping` (a descriptor) can be read; calls `tick` every `tickTime`.
  void Serve(int stopping, Connections::Clock::duration tickTime, const std::function<void()>& tick);

  // The parts of Serve: takes an open connection over, which may cost the oldest one its place; does what is due now.
  void Adopt(int socket, const sockaddr* address, socklen_t length);
  void Turn();
  std::size_t ConnectionCount() const { return connections_.Count(); }

 private:
  bool Bind(const ListenAddress& address);
  bool StartDaemon();
  void Accept(int listener);
  void CutSlowReaders();
  int WaitTime(Connections::Clock::time_point until) const;

  MHD_Result Handle(MHD_Connection* connection, const char* path, const char* method);
  MHD_Result Send(MHD_Connection* connection, unsigned status, std::string text, const char* type,
                  std::initializer_list<std::pair<const char*, const char*>> headers = {});
  MHD_Result SendMetrics(MHD_Connection* connection);
  std::string LandingPage() const;
  bool IsOwnHostNamed(MHD_Connection* connection) const;

  static MHD_Result OnRequest(void* self, MHD_Connection* connection, const char* path, const char* method,
                              const char* version, const char* upload, std::size_t* uploadSize, void** state);
  static void OnCompleted(void* self, MHD_Connection* connection, void** state, MHD_RequestTerminationCode code);
  static void OnConnection(void* self, MHD_Connection* connection, void** state, MHD_ConnectionNotificationCode code);

  const Options& options_;
  const Collecting& collecting_;
  const std::string backend_;
  Bodies bodies_;
  Users users_;
  std::string certificate_, key_;
  Connections connections_;
  std::vector<int> listeners_;
  MHD_Daemon* daemon_ = nullptr;
};
