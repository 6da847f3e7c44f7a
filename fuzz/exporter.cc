// What clients of ryn-exporter send: whole requests, and the headers that are read here rather than by the library. A
// program of its own, without the interpreter.

#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "exporter/collecting.h"
#include "exporter/negotiation.h"
#include "exporter/options.h"
#include "exporter/samples.h"
#include "exporter/server.h"
#include "main.h"

namespace {

std::string TextOf(Input input) {
  const Bytes bytes = input.Rest();
  return {bytes.begin(), bytes.end()};
}

// A server without addresses; connections are handed to it.
Server& TheServer() {
  static Options options;
  options.listen.clear();
  static Collecting collecting(options);
  static Server server(options, collecting, "simulated");
  static const bool open = server.Open() == 0;
  Expect(open, "the server opens");
  return server;
}

// A client that sends the input and no more.
void FuzzRequest(Input input) {
  const std::string request = TextOf(input);
  int ends[2];
  Expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
  const ssize_t sent = write(ends[0], request.data(), request.size());
  Expect(request.empty() || sent > 0, "the request is sent");
  shutdown(ends[0], SHUT_WR);

  Server& server = TheServer();
  server.Adopt(ends[1], nullptr, 0);
  static char answer[1 << 16];
  std::size_t size = 0;
  for (int turn = 0; turn < 100 && server.ConnectionCount() > 0; ++turn) {
    server.Turn();
    const ssize_t part = read(ends[0], answer + size, sizeof(answer) - size);
    size += part > 0 ? static_cast<std::size_t>(part) : 0;
  }
  close(ends[0]);
  for (int turn = 0; turn < 10 && server.ConnectionCount() > 0; ++turn)
    server.Turn();
  Expect(server.ConnectionCount() == 0, "the connection is closed");
  const std::string_view text(answer, size);
  Expect(text.empty() || text.starts_with("HTTP/1."), "the answer is HTTP");
  // A connection may carry several answers, one after the other.
  for (std::size_t at = text.find("ryn_up"); at != text.npos; at = text.find("ryn_up", at + 1))
    Expect(text.substr(text.rfind("HTTP/1.", at)).substr(8).starts_with(" 200 "), "metrics come with 200 only");
}

// Accept, Accept-Encoding and Host
void FuzzHeaders(Input input) {
  const std::string header = TextOf(input);
  const std::string_view text = header;
  const bool openMetrics = ChooseFormat(text) == Format::kOpenMetrics;
  Expect(!openMetrics || text.find_first_of("aA*") != text.npos, "OpenMetrics only where it is named");
  Expect(!WantsGzip(text) || text.find_first_of("gG*xX") != text.npos, "gzip only where it is named");
  if (IsOwnHost(text, "192.0.2.7", "hv0")) {
    const std::string_view name = text.substr(0, text.rfind(':'));
    Expect(name.size() == 9 || name.size() == 3, "one of three names");
  }
}

// A label is UTF-8 on one line, whatever bytes it is made of.
void FuzzLabels(Input input) {
  const std::string text = Labels().Add("name", TextOf(input)).Text();
  Expect(text.starts_with("{name=\"") && text.ends_with("\"}"), "the label is whole");
  Expect(text.find('\n') == text.npos, "on one line");
  std::string_view value(text);
  value = value.substr(7, value.size() - 9);
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '"')
      Expect(false, "a quote without its backslash");
    if (value[i] == '\\')
      ++i;
  }
}

constexpr Target kTargets[] = {
    {"exporter_headers", FuzzHeaders},
    {"exporter_labels", FuzzLabels},
    {"exporter_request", FuzzRequest},
};

}  // namespace

std::span<const Target> Targets() { return kTargets; }
void SetUp() {}
void Reset() {}
