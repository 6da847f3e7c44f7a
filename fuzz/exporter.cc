// What clients of ryn-exporter send: whole requests, and the headers that are read here rather than by the library. A
// program of its own for libFuzzer: fuzz/exporter_fuzz. The first byte of an input picks the target.

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "exporter/collecting.h"
#include "exporter/negotiation.h"
#include "exporter/options.h"
#include "exporter/samples.h"
#include "exporter/server.h"

namespace {

void Check(bool holds, const char* what) {
  if (holds)
    return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// A server without addresses; connections are handed to it.
Server& TheServer() {
  static Options options;
  options.listen.clear();
  static Collecting collecting(options);
  static Server server(options, collecting, "simulated");
  static const bool open = server.Open() == 0;
  Check(open, "the server opens");
  return server;
}

// A client that sends the input and no more.
void FuzzRequest(std::string_view input) {
  int ends[2];
  Check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
  const ssize_t sent = write(ends[0], input.data(), input.size());
  Check(input.empty() || sent > 0, "the request is sent");
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
  Check(server.ConnectionCount() == 0, "the connection is closed");
  const std::string_view text(answer, size);
  Check(text.empty() || text.starts_with("HTTP/1."), "the answer is HTTP");
  Check(text.find("ryn_up") == text.npos || text.starts_with("HTTP/1.1 200 "), "metrics come with 200 only");
}

// Accept, Accept-Encoding and Host
void FuzzHeaders(std::string_view text) {
  const bool openMetrics = ChooseFormat(text) == Format::kOpenMetrics;
  Check(!openMetrics || text.find_first_of("aA*") != text.npos, "OpenMetrics only where it is named");
  Check(!WantsGzip(text) || text.find_first_of("gG*xX") != text.npos, "gzip only where it is named");
  if (IsOwnHost(text, "192.0.2.7", "hv0")) {
    const std::string_view name = text.substr(0, text.rfind(':'));
    Check(name.size() == 9 || name.size() == 3, "one of three names");
  }
}

// A label is UTF-8 on one line, whatever bytes it is made of.
void FuzzLabels(std::string_view input) {
  const std::string text = Labels().Add("name", input).Text();
  Check(text.starts_with("{name=\"") && text.ends_with("\"}"), "the label is whole");
  Check(text.find('\n') == text.npos, "on one line");
  std::string_view value(text);
  value = value.substr(7, value.size() - 9);
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '"')
      Check(false, "a quote without its backslash");
    if (value[i] == '\\')
      ++i;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  if (size == 0)
    return 0;
  const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
  switch (data[0] % 3) {
    case 0:
      FuzzHeaders(input);
      break;
    case 1:
      FuzzLabels(input);
      break;
    default:
      FuzzRequest(input);
  }
  return 0;
}
