#include "exporter/server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include "exporter/journal.h"
#include "exporter/version.h"

namespace {

constexpr std::size_t kHeaderBytes = 8192;             // of a request
constexpr std::size_t kConnectionMemory = 16384;       // what the library keeps of one
constexpr std::size_t kUnreadBytes = 6 * 1024 * 1024;  // of texts that slow clients hold, before they are cut off
constexpr int kBacklog = 1024;

constexpr char kTextType[] = "text/plain; charset=utf-8";
constexpr char kMetricsType[] = "text/plain; version=0.0.4; charset=utf-8";
constexpr char kOpenMetricsType[] = "application/openmetrics-text; version=1.0.0; charset=utf-8";

// An answer's bytes, kept until they are sent.
struct Sent {
  std::shared_ptr<const Body> body;
  std::string tail;
};

// The texts of all headers of that name, joined by commas.
std::string HeaderOf(MHD_Connection* connection, const char* name) {
  struct Search {
    const char* name;
    std::string text;
  } search{name, {}};
  MHD_get_connection_values(
      connection, MHD_HEADER_KIND,
      [](void* context, MHD_ValueKind, const char* key, const char* value) {
        Search& wanted = *static_cast<Search*>(context);
        if (strcasecmp(key, wanted.name) == 0 && value)
          wanted.text.append(wanted.text.empty() ? "" : ",").append(value);
        return MHD_YES;
      },
      &search);
  return std::move(search.text);
}

// The numeric address of this end of a connection
std::string OwnAddress(int socket) {
  sockaddr_storage address = {};
  socklen_t length = sizeof(address);
  char text[INET6_ADDRSTRLEN] = "";
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return {};
  if (address.ss_family == AF_INET)
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(&address)->sin_addr, text, sizeof(text));
  else if (address.ss_family == AF_INET6)
    inet_ntop(AF_INET6, &reinterpret_cast<sockaddr_in6*>(&address)->sin6_addr, text, sizeof(text));
  return text;
}

int PortOf(int socket) {
  sockaddr_storage address = {};
  socklen_t length = sizeof(address);
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    return 0;
  return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                             : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
}

int SocketOf(MHD_Connection* connection) {
  const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  return info ? info->connect_fd : -1;
}

Connections::Connection* RecordOf(MHD_Connection* connection) {
  const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return info ? static_cast<Connections::Connection*>(info->socket_context) : nullptr;
}

bool IsRead(const char* method) {
  return std::strcmp(method, MHD_HTTP_METHOD_GET) == 0 || std::strcmp(method, MHD_HTTP_METHOD_HEAD) == 0;
}

bool ReadFile(const std::string& path, std::string* text) {
  std::ifstream file(path, std::ios::binary);
  if (file)
    text->assign(std::istreambuf_iterator<char>(file), {});
  if (!file) {
    LogError("%s: %s", path.c_str(), std::strerror(errno));
    return false;
  }
  return true;
}

}  // namespace

Server::~Server() {
  if (daemon_)
    MHD_stop_daemon(daemon_);
  for (const int listener : listeners_)
    close(listener);
}

int Server::Open() {
  constexpr int kFailed = 1, kBadFile = 2;
  if (!options_.usersFile.empty() && !users_.Read(options_.usersFile))
    return kBadFile;
  if (!options_.keyFile.empty() &&
      (!ReadFile(options_.certificateFile, &certificate_) || !ReadFile(options_.keyFile, &key_)))
    return kBadFile;
  for (const ListenAddress& address : options_.listen) {
    if (!Bind(address))
      return kFailed;
  }
  if (StartDaemon())
    return 0;
  if (options_.keyFile.empty()) {
    LogError("the HTTP server could not be started");
    return kFailed;
  }
  LogError("the HTTP server could not be started with the certificate %s and the key %s",
           options_.certificateFile.c_str(), options_.keyFile.c_str());
  return kBadFile;
}

bool Server::Bind(const ListenAddress& address) {
  const auto* const name = reinterpret_cast<const sockaddr*>(&address.address);
  const int on = 1;
  const int listener = socket(name->sa_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (listener >= 0) {
    listeners_.push_back(listener);
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (name->sa_family == AF_INET6)
      setsockopt(listener, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof(on));
    if (bind(listener, name, address.length) == 0 && listen(listener, kBacklog) == 0) {
      LogInfo("listening on %s%s", address.text.c_str(),
              address.text.ends_with(":0") ? (", port " + std::to_string(PortOf(listener))).c_str() : "");
      return true;
    }
  }
  LogError("cannot listen on %s: %s", address.text.c_str(), std::strerror(errno));
  return false;
}

// The library gets connections that are open already: how many there may be, and which one has to go, is decided here.
bool Server::StartDaemon() {
  const bool tls = !options_.keyFile.empty();
  const unsigned flags = MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | (tls ? MHD_USE_TLS : MHD_NO_FLAG);
  std::vector<MHD_OptionItem> items;
  if (tls) {
    items.push_back({MHD_OPTION_HTTPS_MEM_CERT, 0, certificate_.data()});
    items.push_back({MHD_OPTION_HTTPS_MEM_KEY, 0, key_.data()});
  }
  items.push_back({MHD_OPTION_END, 0, nullptr});
  daemon_ = MHD_start_daemon(flags, 0, nullptr, nullptr, &OnRequest, this, MHD_OPTION_NOTIFY_COMPLETED, &OnCompleted,
                             this, MHD_OPTION_NOTIFY_CONNECTION, &OnConnection, this, MHD_OPTION_CONNECTION_LIMIT,
                             static_cast<unsigned>(Connections::kMost), MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                             kConnectionMemory, MHD_OPTION_ARRAY, items.data(), MHD_OPTION_END);
  return daemon_ != nullptr;
}

void Server::Serve(int stopping, Connections::Clock::duration tickTime, const std::function<void()>& tick) {
  std::vector<pollfd> waits;
  for (const int listener : listeners_)
    waits.push_back({listener, POLLIN, 0});
  waits.push_back({stopping, POLLIN, 0});
  waits.push_back({MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd, POLLIN, 0});

  auto next = Connections::Clock::now();
  while (true) {
    poll(waits.data(), waits.size(), WaitTime(next));
    if (waits[listeners_.size()].revents != 0)
      return;
    for (std::size_t i = 0; i < listeners_.size(); ++i) {
      if (waits[i].revents != 0)
        Accept(waits[i].fd);
    }
    Turn();
    if (Connections::Clock::now() >= next) {
      tick();
      next = Connections::Clock::now() + tickTime;
    }
  }
}

// Milliseconds until something is due, at most until `until`.
int Server::WaitTime(Connections::Clock::time_point until) const {
  const auto due = std::min(until, connections_.NextDeadline()) - Connections::Clock::now();
  auto wait = std::max<long long>(std::chrono::ceil<std::chrono::milliseconds>(due).count(), 0);
  MHD_UNSIGNED_LONG_LONG library = 0;
  if (MHD_get_timeout(daemon_, &library) == MHD_YES)
    wait = std::min(wait, static_cast<long long>(library));
  return static_cast<int>(std::min(wait, 60000LL));
}

// At most as many at a time as there may be, so that a crowd at the door does not keep those inside from being served.
void Server::Accept(int listener) {
  for (std::size_t i = 0; i < Connections::kMost; ++i) {
    sockaddr_storage address = {};
    socklen_t length = sizeof(address);
    const int socket = accept4(listener, reinterpret_cast<sockaddr*>(&address), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (socket < 0)
      return;
    Adopt(socket, reinterpret_cast<sockaddr*>(&address), length);
  }
}

void Server::Adopt(int socket, const sockaddr* address, socklen_t length) {
  for (int tries = 0; connections_.Count() >= Connections::kMost && tries < 3; ++tries) {
    connections_.CutOldest();
    MHD_run(daemon_);
  }
  if (connections_.Count() < Connections::kMost)
    MHD_add_connection(daemon_, socket, address, length);
  else
    close(socket);
}

void Server::Turn() {
  MHD_run(daemon_);
  connections_.CutLate(Connections::Clock::now());
  CutSlowReaders();
}

void Server::CutSlowReaders() {
  if (bodies_.Unread() > kUnreadBytes)
    connections_.CutOldestAnswer();
}

void Server::OnConnection(void* self, MHD_Connection* connection, void** state, MHD_ConnectionNotificationCode code) {
  Server& server = *static_cast<Server*>(self);
  if (code == MHD_CONNECTION_NOTIFY_STARTED)
    *state = server.connections_.Add(SocketOf(connection));
  else if (*state)
    server.connections_.Remove(static_cast<Connections::Connection*>(*state));
}

void Server::OnCompleted(void* self, MHD_Connection* connection, void**, MHD_RequestTerminationCode) {
  if (Connections::Connection* const record = RecordOf(connection))
    static_cast<Server*>(self)->connections_.EndAnswer(record);
}

// The library calls this when all headers have come, and again with a body or without one. An answer to the first call
// closes the connection after it, which is right where a body may follow: nothing here takes one.
MHD_Result Server::OnRequest(void* self, MHD_Connection* connection, const char* path, const char* method, const char*,
                             const char*, std::size_t*, void** state) {
  static const char called = 0;
  if (IsRead(method) && !*state) {
    *state = const_cast<char*>(&called);
    return MHD_YES;
  }
  Server& server = *static_cast<Server*>(self);
  if (Connections::Connection* const record = RecordOf(connection))
    server.connections_.BeginAnswer(record);
  return server.Handle(connection, path, method);
}

bool Server::IsOwnHostNamed(MHD_Connection* connection) const {
  const char* const host = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
  if (!host)
    return true;  // HTTP/1.0 knows none; with 1.1 the library has refused the request
  return HeaderOf(connection, MHD_HTTP_HEADER_HOST) == host &&  // one only
         IsOwnHost(host, OwnAddress(SocketOf(connection)), options_.hostName);
}

MHD_Result Server::Handle(MHD_Connection* connection, const char* path, const char* method) {
  const MHD_ConnectionInfo* const header = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
  if (header && header->header_size > kHeaderBytes)
    return Send(connection, MHD_HTTP_REQUEST_HEADER_FIELDS_TOO_LARGE, "Headers of more than 8 KiB\n", kTextType,
                {{MHD_HTTP_HEADER_CONNECTION, "close"}});
  if (!IsOwnHostNamed(connection))
    return Send(connection, MHD_HTTP_FORBIDDEN, "This is another host than the one that was asked for\n", kTextType);
  if (!users_.Empty()) {
    char* password = nullptr;
    char* const name = MHD_basic_auth_get_username_password(connection, &password);
    const Users::Verdict verdict = name && password ? users_.Check(name, password) : Users::Verdict::kWrong;
    MHD_free(name);
    MHD_free(password);
    if (verdict == Users::Verdict::kTooMany)
      return Send(connection, MHD_HTTP_TOO_MANY_REQUESTS, "Too many wrong passwords; try again in a second\n",
                  kTextType, {{MHD_HTTP_HEADER_RETRY_AFTER, "1"}});
    if (verdict != Users::Verdict::kRight)
      return Send(connection, MHD_HTTP_UNAUTHORIZED, "A name and a password are needed\n", kTextType,
                  {{MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Basic realm=\"ryn-exporter\", charset=\"UTF-8\""}});
  }

  const bool metrics = std::strcmp(path, "/metrics") == 0, health = std::strcmp(path, "/healthy") == 0;
  if (!metrics && !health && std::strcmp(path, "/") != 0)
    return Send(connection, MHD_HTTP_NOT_FOUND, "There are /, /metrics and /healthy\n", kTextType);
  if (!IsRead(method))
    return Send(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "Only GET and HEAD\n", kTextType,
                {{MHD_HTTP_HEADER_ALLOW, "GET, HEAD"}});
  if (metrics)
    return SendMetrics(connection);
  if (!health)
    return Send(connection, MHD_HTTP_OK, LandingPage(), "text/html; charset=utf-8",
                {{"Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'"}});
  if (collecting_.Look(Clock::now()).healthy)
    return Send(connection, MHD_HTTP_OK, "ok\n", kTextType);
  return Send(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "No round of the collectors has ended for three intervals\n",
              kTextType);
}

MHD_Result Server::Send(MHD_Connection* connection, unsigned status, std::string text, const char* type,
                        std::initializer_list<std::pair<const char*, const char*>> headers) {
  MHD_Response* const response = MHD_create_response_from_buffer(text.size(), text.data(), MHD_RESPMEM_MUST_COPY);
  if (!response)
    return MHD_NO;  // closes the connection
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, type);
  MHD_add_response_header(response, "X-Content-Type-Options", "nosniff");
  for (const auto& [name, value] : headers)
    MHD_add_response_header(response, name, value);
  const MHD_Result result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

MHD_Result Server::SendMetrics(MHD_Connection* connection) {
  const Format format = ChooseFormat(HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT));
  const bool gzip = WantsGzip(HeaderOf(connection, MHD_HTTP_HEADER_ACCEPT_ENCODING));
  const Overview view = collecting_.Look(Clock::now());
  auto sent = std::make_unique<Sent>();
  sent->body = bodies_.Get(view, format, gzip);
  sent->tail = bodies_.Tail(view, *sent->body);

  const std::string_view text = sent->body->bytes.Text();
  const MHD_IoVec parts[] = {{text.data(), text.size()}, {sent->tail.data(), sent->tail.size()}};
  const bool empty = text.empty();
  MHD_Response* const response = MHD_create_response_from_iovec(
      parts + empty, empty ? 1 : 2, [](void* done) { delete static_cast<Sent*>(done); }, sent.get());
  if (!response)
    return MHD_NO;
  static_cast<void>(sent.release());  // the response's now
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE,
                          format == Format::kOpenMetrics ? kOpenMetricsType : kMetricsType);
  MHD_add_response_header(response, MHD_HTTP_HEADER_VARY, "Accept, Accept-Encoding");
  if (gzip)
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_ENCODING, "gzip");
  const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
  MHD_destroy_response(response);
  return result;
}

std::string Server::LandingPage() const {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>ryn-exporter</title>\n<style>\n"
      "body { font-family: sans-serif; max-width: 40em; margin: 2em auto; padding: 0 1em; line-height: 1.5 }\n"
      "table { border-collapse: collapse } td, th { padding: 0.2em 1.5em 0.2em 0; text-align: left }\n"
      "td + td { font-variant-numeric: tabular-nums } .failed { color: #b00020; font-weight: bold }\n"
      "</style>\n</head>\n<body>\n<h1>ryn-exporter</h1>\n<p>Version ";
  page += std::string(kVersion) + ", on the " + backend_ + " platform. The metrics of this host for Prometheus are at ";
  page +=
      "<a href=\"/metrics\">/metrics</a>; <a href=\"/healthy\">/healthy</a> says whether they are being "
      "collected.</p>\n"
      "<table>\n<tr><th>Collector</th><th>State</th><th>Took</th><th>Age</th></tr>\n";
  for (const CollectorView& seen : collecting_.Look(Clock::now()).collectors) {
    char took[32], age[32] = "none";
    std::snprintf(took, sizeof(took), "%.1f ms", seen.duration * 1e3);
    if (seen.age)
      std::snprintf(age, sizeof(age), "%.1f s", *seen.age);
    page += "<tr><td>" + std::string(seen.collector->name) +
            (seen.success ? "</td><td>ok" : "</td><td class=\"failed\">failed") + "</td><td>" + took + "</td><td>" +
            age + "</td></tr>\n";
  }
  return page + "</table>\n</body>\n</html>\n";
}
