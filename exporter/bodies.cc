#include "exporter/bodies.h"

#define ZLIB_CONST
#include <zlib.h>

#include <new>
#include <string_view>

#include "exporter/version.h"

namespace {

// Level 1 takes a third of the time of level 6 and sends a third more; both send a tenth of the text.
constexpr int kLevel = 1;

constexpr std::string_view kGzipHead("\x1F\x8B\x08\x00\x00\x00\x00\x00\x00\xFF", 10);  // no name, no time

// A stream of deflated data without head or checksum. Such streams can follow one another.
class Deflater {
 public:
  Deflater() {
    constexpr int kWithoutHead = -15, kMemory = 8;
    if (deflateInit2(&stream_, kLevel, Z_DEFLATED, kWithoutHead, kMemory, Z_DEFAULT_STRATEGY) != Z_OK)
      throw std::bad_alloc();
  }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;
  ~Deflater() { deflateEnd(&stream_); }

  // Z_NO_FLUSH, Z_FULL_FLUSH: up to a whole byte, so that another stream can follow; Z_FINISH: the end.
  void Add(std::string_view text, int flush, Buffer* out) {
    stream_.next_in = reinterpret_cast<const Bytef*>(text.data());
    stream_.avail_in = static_cast<uInt>(text.size());
    do {
      constexpr std::size_t kPiece = 16384;
      out->Reserve(kPiece);
      stream_.next_out = reinterpret_cast<Bytef*>(out->End());
      stream_.avail_out = kPiece;
      deflate(&stream_, flush);
      out->Extend(kPiece - stream_.avail_out);
    } while (stream_.avail_out == 0);
  }

 private:
  z_stream stream_ = {};
};

std::uint32_t Checksum(std::string_view text) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(text.size())));
}

std::uint32_t JoinedChecksum(std::uint32_t first, std::uint32_t second, std::size_t secondSize) {
  return static_cast<std::uint32_t>(crc32_combine(first, second, static_cast<z_off_t>(secondSize)));
}

template <class Visit>
void ForEachColumn(const Overview& view, Visit visit) {
  for (const CollectorView& seen : view.collectors) {
    if (!seen.values)
      continue;
    for (const Samples& samples : *seen.values) {
      for (std::size_t column = 0; column < samples.Columns(); ++column)
        visit(samples, column);
    }
  }
}

void WriteText(const Overview& view, bool openMetrics, Buffer* out) {
  ForEachColumn(view, [&](const Samples& samples, std::size_t column) { samples.Write(column, openMetrics, out); });
}

// A metric at a time, so that the whole text never stands in memory.
void WriteGzip(const Overview& view, Body* body, Buffer* scratch) {
  const bool openMetrics = body->format == Format::kOpenMetrics;
  body->bytes.Reserve(kGzipHead.size());
  body->bytes.Add(kGzipHead);
  Deflater deflater;
  ForEachColumn(view, [&](const Samples& samples, std::size_t column) {
    scratch->Clear();
    samples.Write(column, openMetrics, scratch);
    const std::string_view text = scratch->Text();
    body->crc = JoinedChecksum(body->crc, Checksum(text), text.size());
    body->textSize += text.size();
    deflater.Add(text, Z_NO_FLUSH, &body->bytes);
  });
  deflater.Add({}, Z_FULL_FLUSH, &body->bytes);
}

void AddLittleEndian(std::uint32_t word, Buffer* out) {
  for (int shift = 0; shift < 32; shift += 8)
    out->Add(static_cast<char>(word >> shift & 0xFF));
}

// The metrics of the exporter itself
void WriteOwn(const Overview& view, const std::string& backend, bool openMetrics, Buffer* out) {
  Samples up{MetricOf("ryn_up")}, success{MetricOf("ryn_collector_success")},
      duration{MetricOf("ryn_collector_duration_seconds")}, age{MetricOf("ryn_collector_age_seconds")},
      build{MetricOf("ryn_build_info")};
  up.Add(Labels(), {view.up ? 1U : 0U});
  for (const CollectorView& seen : view.collectors) {
    const Labels labels = Labels().Add("collector", seen.collector->name);
    success.Add(labels, {seen.success ? 1U : 0U});
    duration.AddReal(labels, {seen.duration});
    if (seen.age)
      age.AddReal(labels, {*seen.age});
  }
  build.Add(Labels().Add("version", kVersion).Add("backend", backend), {1});
  for (const Samples* samples : {&up, &success, &duration, &age, &build})
    samples->Write(0, openMetrics, out);
  if (openMetrics) {
    out->Reserve(6);
    out->Add("# EOF\n");
  }
}

std::vector<std::uint64_t> VersionsOf(const Overview& view) {
  std::vector<std::uint64_t> versions;
  for (const CollectorView& seen : view.collectors)
    versions.push_back(seen.version);
  return versions;
}

}  // namespace

std::shared_ptr<const Body> Bodies::Get(const Overview& view, Format format, bool gzip) {
  std::vector<std::uint64_t> versions = VersionsOf(view);
  if (newest_ && newest_->versions == versions && newest_->format == format && newest_->gzip == gzip)
    return newest_;

  newest_.reset();
  std::shared_ptr<Body> body;
  for (const std::shared_ptr<Body>& kept : bodies_) {
    if (kept.use_count() == 1)
      body = kept;  // nobody reads it: its memory is used again
  }
  if (!body)
    body = bodies_.emplace_back(std::make_shared<Body>());
  std::erase_if(bodies_, [](const std::shared_ptr<Body>& kept) { return kept.use_count() == 1; });

  body->versions = std::move(versions);
  body->format = format;
  body->gzip = gzip;
  body->bytes.Clear();
  body->crc = 0;
  body->textSize = 0;
  if (gzip)
    WriteGzip(view, body.get(), &scratch_);
  else
    WriteText(view, format == Format::kOpenMetrics, &body->bytes);
  newest_ = body;
  return body;
}

std::string Bodies::Tail(const Overview& view, const Body& body) const {
  Buffer text;
  WriteOwn(view, backend_, body.format == Format::kOpenMetrics, &text);
  if (!body.gzip)
    return std::string(text.Text());

  Buffer bytes;
  Deflater().Add(text.Text(), Z_FINISH, &bytes);
  bytes.Reserve(8);
  AddLittleEndian(JoinedChecksum(body.crc, Checksum(text.Text()), text.Size()), &bytes);
  AddLittleEndian(static_cast<std::uint32_t>(body.textSize + text.Size()), &bytes);
  return std::string(bytes.Text());
}

std::size_t Bodies::Unread() const {
  std::size_t bytes = 0;
  for (const std::shared_ptr<Body>& body : bodies_)
    bytes += body != newest_ ? body->bytes.Room() : 0;
  return bytes;
}

std::string PlainText(const Overview& view, const std::string& backend) {
  Buffer text;
  WriteText(view, false, &text);
  WriteOwn(view, backend, false, &text);
  return std::string(text.Text());
}
