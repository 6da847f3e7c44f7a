// GetPortNetQInfo: the receive filters of a port in the network hardware, and the queues that serve them.

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>

#include "host/native.h"
#include "host/records/uplinks.h"
#include "host/walks.h"
#include "libryn/base/call.h"
#include "libryn/base/text.h"
#include "libryn/base/values.h"
#include "libryn/include/libryn.h"
#include "libryn/uplinks/uplinks.h"
#include "platform/ryn.h"

namespace {

constinit Key kIsUplink{"isUplink"};
constinit Key kSwID{"swID"};
constinit Key kRynPortID{"rynPortID"};
constinit Key kFilters{"filters"};
constinit Key kRxf{"rxf"};
constinit Key kQInfo{"qInfo"};
constinit Key kQid{"qid"};
constinit Key kFid{"fid"};
constinit Key kUnknownFilter{"UnknownFilter"};

static_assert(sizeof(NetQResponse) == LIBRYN_NETQ_RESPONSE_SIZE);

constexpr std::size_t kMaxFilters = (sizeof(NetQResponse) - sizeof(NetQHeader)) / sizeof(NetQFilter);

// Both texts are written over a pattern of their layout.
Ref MacOnlyText(const MacOnlyBody& body) {
  char text[] = "macOnly:xx:xx:xx:xx:xx:xx";
  WriteMac(body.mac, text + 8);
  return AsciiText({text, sizeof(text) - 1});
}

Ref GeneveText(const GeneveBody& body) {
  char text[] = "geneve:outer:xx:xx:xx:xx:xx:xx:inner:xx:xx:xx:xx:xx:xx:vni:4294967295";
  WriteMac(body.outerMac, text + 13);
  WriteMac(body.innerMac, text + 37);
  const char* const end = std::to_chars(text + 59, std::end(text), body.vni).ptr;
  return AsciiText({text, end});
}

Ref FilterText(const NetQFilterView& filter) {
  switch (filter.head.kind) {
    case kMacOnlyFilter:
      return MacOnlyText(filter.Body<MacOnlyBody>());
    case kGeneveFilter:
      return GeneveText(filter.Body<GeneveBody>());
    default:
      return NewRef(kUnknownFilter.Object());
  }
}

bool AddQueues(PyObject* dict, const NetQFilters& filters, std::uint16_t count) {
  const Ref list = SetNewList(dict, kQInfo, count);
  if (!list)
    return false;
  for (std::size_t i = 0; i < count; ++i) {
    const NetQQueue queue = filters.Queue(i);
    const Ref item = SetNewDict(list.get(), i);
    if (!item || !SetOrReport(item.get(), kRynPortID, Int(queue.rynPortID)) ||
        !SetOrReport(item.get(), kQid, Int(queue.qid)) || !SetOrReport(item.get(), kFid, Int(queue.fid)))
      return false;
  }
  return true;
}

bool ReportInvalid() {
  Report("Invalid response returned.\n");
  return false;
}

bool AddFilters(PyObject* dict, const NetQResponse& response, std::uint16_t count) {
  if (count > kMaxFilters)
    return ReportInvalid();
  const Ref list = SetNewList(dict, kFilters, count);
  if (!list)
    return false;
  const GcUntracked untracked(list.get());

  NetQFilters filters(response);
  NetQFilterView filter;
  for (std::size_t i = 0; filters.Next(&filter); ++i) {
    const Ref item = SetNewDict(list.get(), i);
    if (!item || !SetOrReport(item.get(), kRxf, FilterText(filter)) ||
        !AddQueues(item.get(), filters, filter.head.queueCount))
      return false;
  }
  return filters.Complete() || ReportInvalid();
}

bool FillInfo(PyObject* dict, const NetQResponse& response) {
  const NetQHeader header = HeaderOf(response);
  return SetOrReport(dict, kIsUplink, Int(header.isUplink)) && SetOrReport(dict, kSwID, Int(header.swID)) &&
         SetOrReport(dict, kRynPortID, Int(header.rynPortID)) && AddFilters(dict, response, header.filterCount);
}

}  // namespace

PyObject* PyRYN_PortNetQInfo(void* response, std::uint32_t) {
  const HeapArea<NetQResponse> owned(static_cast<NetQResponse*>(response));
  Ref dict(PyDict_New());
  if (!dict)
    return NoneAfter("Failed to allocate NetQ Info resp.\n");
  if (!FillInfo(dict.get(), *owned))
    return None();
  return dict.release();
}

PyObject* PyRYN_Get_Port_NetQ_Info(PyObject*, PyObject* args) {
  std::uint32_t swID, rynPortID;
  if (!ParseArgs(args, &swID, &rynPortID) || !IsSwitch(swID) || !IsPort(rynPortID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  auto response = AllocateRecord<NetQResponse>();
  if (!response)
    return NoneAfter("Failed to allocate memory.\n");

  std::uint32_t length = sizeof(NetQResponse);
  // Deliberate: the message is that of the uplink statistics.
  if (Ryn_Get_Port_NetQ_Info(swID, rynPortID, response.get(), &length) != 0)
    return NoneAfter("Failed to get uplink stats.\n");
  return PyRYN_PortNetQInfo(response.release(), length);
}
