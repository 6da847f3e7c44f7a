// The metrics as text, ready to be sent.
//
// What the collectors read is written once for all scrapes until there is something newer, into memory that is used
// again. Only the metrics of the exporter itself, the ages among them, are written for each scrape and follow behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "exporter/buffer.h"
#include "exporter/collecting.h"
#include "exporter/negotiation.h"

struct Body {
  std::vector<std::uint64_t> versions;  // of each collector's values that it is the text of
  Format format = Format::kText;
  bool gzip = false;
  Buffer bytes;              // gzip: up to where more can follow
  std::uint32_t crc = 0;     // gzip: of the text so far ...
  std::size_t textSize = 0;  // ... and its size
};

class Bodies {
 public:
  explicit Bodies(std::string backend) : backend_(std::move(backend)) {}

  // The text of the collectors' values; readers share it and may keep it.
  std::shared_ptr<const Body> Get(const Overview& view, Format format, bool gzip);

  // What follows behind it: up, the collectors' states, the build, and the end. gzip: with the end of the stream.
  std::string Tail(const Overview& view, const Body& body) const;

  // Bytes of texts that are kept only because somebody still reads them.
  std::size_t Unread() const;

 private:
  std::string backend_;
  std::vector<std::shared_ptr<Body>> bodies_;  // the newest, and older ones while they are read
  std::shared_ptr<Body> newest_;
  Buffer scratch_;
};

// The text of a host's metrics without HTTP, as a textfile collector takes it.
std::string PlainText(const Overview& view, const std::string& backend);
