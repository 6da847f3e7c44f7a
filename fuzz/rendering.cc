// The formatters, without the interpreter, each against its model.
#include <algorithm>

#include "host/snapshot.h"
#include "host/text.h"
#include "libryn/flowcache/render.h"
#include "libryn/include/libryn.h"
#include "model.h"
#include "targets.h"

namespace {

// The bytes that a formatter may read of a record with that bitmap and that count of instances, and no more.
std::size_t BytesRead(std::uint32_t bitmap, std::uint8_t instances) {
  struct Last {
    std::uint32_t mask;
    std::size_t size;
  };
  static constexpr Last kLast[] = {{0x00000004, 118}, {0x00000400, 76},  {0x00001000, 73},
                                   {0x00300000, 80},  {0x10000000, 120}, {0x00200000, 247}};
  std::size_t size = 72;
  for (const Last& last : kLast)
    if (bitmap & last.mask)
      size = std::max(size, last.size);
  if (bitmap & 0x00040000)
    size = std::max<std::size_t>(size, instances ? 274 + 32 * (instances - 1U) + 4 : 257);
  return size;
}

// To what an entry of a page has at least, the key of 64 bytes before it left out.
Bytes Lengthened(Bytes record) {
  record.resize(std::max<std::size_t>(record.size(), 304 - 64));
  return record;
}

}  // namespace

void FuzzFlowKey(Input input) {
  Bytes key = input.Take(64);
  key.resize(64);
  const Exact exact(key);
  TextArea text(LIBRYN_FLOW_KEY_TEXT_SIZE);
  FCFlowKeyToStr(exact.get(), text.get());
  ExpectEqual(text.Text(), FlowKeyModel(key), "a flow key's line equals its prints");
}

void FuzzFlowActions(Input input) {
  const std::size_t size = input.Take<std::uint16_t>();
  const auto length = input.Take<std::uint16_t>();
  Bytes record = input.Rest();
  record.resize(BytesRead(At<std::uint32_t>(record, 56), At<std::uint8_t>(record, 256)));

  const Exact exact(record);
  TextArea text(size);
  const int result = FCActionsToStr(exact.get(), text.get(), static_cast<std::uint32_t>(size), length);
  const auto [line, expected] = ActionsModel(record, size);
  ExpectEqual(text.Text(), line, "an actions line equals its prints");
  Expect(result == expected, "the result tells whether an action was left");
}

void FuzzBoundedActions(Input input) {
  const std::size_t size = input.Take<std::uint16_t>();
  const Bytes record = Lengthened(input.Rest());
  const Exact exact(record);
  TextArea text(size);
  BoundedText line(text.get(), size);
  const bool complete = AppendActions(View(exact.get(), record.size()), &line);
  line.Terminate();
  const auto [expected, result] = ActionsModel(record, size);
  ExpectEqual(text.Text(), expected, "a cut record renders with zeros behind it");
  Expect(complete == (result == 0), "false when an action was left");
}

void FuzzFlowStatistics(Input input) {
  const std::size_t size = input.Take<std::uint8_t>();
  Bytes record = Lengthened(input.Rest());
  {
    const Exact exact(record);
    TextArea text(size);
    BoundedText statistics(text.get(), size);
    const bool apply = AppendStatistics(View(exact.get(), record.size()), &statistics);
    statistics.Terminate();
    ExpectEqual(text.Text(), StatisticsModel(record).substr(0, size ? size - 1 : 0), "statistics equal their print");
    Expect(apply == ((At<std::uint8_t>(record, 61) & 8) != 0), "a flag tells whether they apply");
  }
  record.resize(62);
  const Exact exact(record);
  TextArea text(size);
  const int result = FCActionsStatsToStr(exact.get(), text.get(), static_cast<std::uint32_t>(size));
  ExpectEqual(text.Text(), StatisticsModel(record).substr(0, size ? size - 1 : 0), "statistics equal their print");
  Expect(result == (record[61] & 8 ? 0 : 14), "the result is the length of the text that says no");
}

void FuzzPortFlags(Input input) {
  const std::size_t size = input.Take<std::uint8_t>();
  const auto flags = input.Take<std::uint32_t>();
  TextArea text(size);
  FlagsToStr(flags, text.get(), static_cast<std::uint32_t>(size));
  ExpectEqual(text.Text(), FlagsModel(flags).substr(0, size ? size - 1 : 0), "flags equal their words");
}

void FuzzSnapshotText(Input input) {
  const std::size_t size = input.Take<std::uint16_t>();
  Bytes area = input.Take(4096);
  area.resize(4096);
  const Exact exact(area);
  const std::unique_ptr<char[]> text(new char[size]);
  BoundedText bounded(text.get(), size);
  AppendSnapshot(*reinterpret_cast<const LBSnapshot*>(exact.get()), &bounded);
  const std::string expected = SnapshotModel(area);
  Expect(bounded.Length() == expected.size(), "what does not fit is counted");
  ExpectEqual(bounded.View(), expected.substr(0, size), "a snapshot's text equals its prints");
}
