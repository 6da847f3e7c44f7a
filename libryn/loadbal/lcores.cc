// ListLCoreIDs, InitMbufFastslabs: the datapath's cores and its packet-buffer pools.

#include <bit>
#include <cstddef>
#include <cstdint>

#include "host/names.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

namespace {

// Not std::popcount: without a processor flag it is a call into the compiler's run-time library.
std::size_t CountBits(std::uint64_t bitmap) {
  std::size_t count = 0;
  for (; bitmap != 0; bitmap &= bitmap - 1)
    ++count;
  return count;
}

}  // namespace

PyObject* PyRyn_ListLCoreIDs(PyObject*, PyObject* args) {
  std::uint32_t swID;  // the datapath checks it
  if (!ParseArgs(args, &swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n\n");

  std::uint64_t bitmap = 0;
  // Deliberate: a failure is reported and the bitmap used as it is, empty.
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
  if (!HasServedSwitch())
    return None();
  if (Ryn_Init_Mbuf_Fastslabs() != 0)
    return FalseAfter("TypeError: Failed to init RYN mbuf fastslabs.\n\n");
  return Bool(true);
}
