// ListLCoreIDs, InitMbufFastslabs: the datapath's cores and its packet-buffer pools.

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/jor_public.h"
#include "platform/ryn.h"

namespace {

// The global property that marks a switch as served by the datapath, and the values that say so.
constexpr char kMarker[] = "com.talvor.extraconfig.opaqueDvs.ryn";
constexpr const char* kServed[] = {"true", "poll", "intr"};
constexpr std::size_t kServedSize = 5;  // with the terminator

// A value shorter than a word is compared over its own length, so an empty value serves too.
bool IsServed(const char* value, std::uint32_t length) {
  const std::size_t compared = std::min<std::size_t>(length, kServedSize);
  return std::any_of(std::begin(kServed), std::end(kServed),
                     [=](const char* word) { return std::strncmp(value, word, compared) == 0; });
}

// Not std::popcount: without a processor flag it is a call into the compiler's run-time library.
std::size_t CountBits(std::uint64_t bitmap) {
  std::size_t count = 0;
  for (; bitmap != 0; bitmap &= bitmap - 1)
    ++count;
  return count;
}

int FindMarker(DVSData* datum, void* context) {
  const char* const name = DVSData_Name(datum);
  if (!name || std::strncmp(name, kMarker, sizeof(kMarker)) != 0)
    return 0;
  const void* value = nullptr;
  const std::uint32_t length = DVSData_Data(datum, &value);
  if (!value && length > 0)  // no value at all; one of length 0 may come as null
    return 0;
  if (!IsServed(value ? static_cast<const char*>(value) : "", length))
    return 0;
  *static_cast<bool*>(context) = true;
  return 1;
}

int FindServedSwitch(DVSSwitch* dvs, void* context) {
  DVSState_GlobalPropForEach(dvs, FindMarker, context);
  return *static_cast<bool*>(context) ? 1 : 0;
}

}  // namespace

PyObject* PyRyn_ListLCoreIDs(PyObject*, PyObject* args) {
  std::uint32_t swID;  // for the datapath to judge
  if (!ParseArgs(args, &swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");

  std::uint64_t bitmap = 0;
  // Deliberate: after a failure the method goes on with the bitmap as it is.
  if (Ryn_Get_LCore_ID_Bitmap(swID, &bitmap) != 0)
    Report("TypeError: Failed to get lcore ID bitmap.\n\n");

  // Deliberate: creations are not checked. What failed is None in the result, and the error that Python set stands.
  Ref tuple = NewTuple(CountBits(bitmap));
  for (std::size_t i = 0; tuple && bitmap != 0; ++i) {
    SetItem(tuple.get(), i, Int(static_cast<std::uint64_t>(std::countr_zero(bitmap))));
    bitmap &= bitmap - 1;
  }
  return tuple.release();
}

PyObject* PyRyn_InitMbufFastslabs(PyObject*, PyObject*) {
  bool served = false;
  DVSState_SwitchForEach(FindServedSwitch, &served);
  if (!served)
    return None();
  if (Ryn_Init_Mbuf_Fastslabs() != 0)
    return FalseAfter("TypeError: Failed to init RYN mbuf fastslabs.\n\n");
  return Bool(true);
}
