// DumpFlowTable: one page of the flow cache of one core, as text.

#include <algorithm>

#include "host/native.h"
#include "host/records/flowcache.h"
#include "libryn/base/call.h"
#include "libryn/base/text.h"
#include "libryn/base/values.h"
#include "libryn/flowcache/flowcache.h"
#include "libryn/flowcache/render.h"
#include "libryn/include/libryn.h"
#include "platform/ryn.h"

namespace {

constinit Key kStartIndex{"startIndex"};
constinit Key kList{"list"};
constinit Key kKey{"key"};
constinit Key kActions{"actions"};
constinit Key kStats{"stats"};

constexpr std::uint32_t kMaxLcore = 31;
constexpr std::uint32_t kNoIndex = 0xFFFFFFFF;

// The most entries that the walk can reach: each takes at least the 64 bytes of its key.
constexpr std::size_t kMaxEntries =
    (sizeof(FlowPage) - offsetof(FlowPage, entries) - kMinEntryBytes) / sizeof(FlowKey) + 1;

// Null with Python's error set.
Ref EntryDict(std::string_view key, std::string_view actions, std::string_view stats) {
  Ref dict(PyDict_New());
  const bool built = dict && Set(dict.get(), kKey, AsciiText(key)) && Set(dict.get(), kActions, AsciiText(actions)) &&
                     Set(dict.get(), kStats, AsciiText(stats));
  return built ? std::move(dict) : nullptr;
}

// Fills `list` with the entries of a page, in order. False after a message on standard error or with SystemError set.
bool FillEntries(PyObject* list, const FlowPage& page) {
  const auto* const bytes = reinterpret_cast<const unsigned char*>(&page);
  const std::size_t validBytes = std::min<std::size_t>(page.validBytes, sizeof(FlowPage));
  std::size_t position = offsetof(FlowPage, entries);
  for (std::uint32_t i = 0; i < page.count; ++i) {
    if (position + kMinEntryBytes > validBytes) {
      Report("Invalid response returned.\n");
      return false;
    }

    char key[kFlowKeyLineLength];
    const std::size_t keyLength = WriteFlowKey(bytes + position, key);

    // Arguments of an action that lie past the end of the page read as zeros.
    const View actions(bytes + position + sizeof(FlowKey), sizeof(FlowPage) - position - sizeof(FlowKey));
    char line[512];
    BoundedText actionsText(line, sizeof(line));
    if (!AppendActions(actions, &actionsText)) {
      Report("Invalid action\n");
      return false;
    }

    char stats[128];
    BoundedText statsText(stats, sizeof(stats));
    AppendStatistics(actions, &statsText);

    if (!SetItemOrReport(list, i, EntryDict({key, keyLength}, actionsText.Terminate(), statsText.View())))
      return false;
    position += sizeof(FlowKey) + actions.Get(kLength);
  }
  return true;
}

}  // namespace

PyObject* PyRYN_Dump_Flow_Table(PyObject*, PyObject* args) {
  std::uint32_t swID, lcore, startIndex, flag;  // the datapath checks the switch
  if (!ParseArgs(args, &swID, &lcore, &startIndex, &flag) || lcore > kMaxLcore || startIndex == kNoIndex)
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  const auto page = AllocateRecord<FlowPage>();
  if (!page)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(FlowPage);
  if (Ryn_Dump_Flow_Table(swID, lcore, startIndex, page.get(), &length, flag != 0) != 0)
    return NoneAfter("Failed to retrieve flow table.\n\n");

  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate memory.\n");
  if (!SetOrReport(dict.get(), kStartIndex, Int(page->startIndex)))
    return NoneWithError();
  const Ref list = SetNewList(dict.get(), kList, std::min<std::size_t>(page->count, kMaxEntries));
  if (!list)
    return NoneWithError();
  if (!FillEntries(list.get(), *page))
    return None();
  return dict.release();
}
