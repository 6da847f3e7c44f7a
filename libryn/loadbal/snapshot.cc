// DumpLBSnapshot: the balancer's latest topology as text.

#include "host/snapshot.h"

#include <cstring>

#include "libryn/base/call.h"
#include "libryn/base/text.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

namespace {

// Work areas of the module, cleared at each call. The interpreter lock makes them safe: no Python object is created
// while they are in use.
LBSnapshot snapshot_area;
char text_area[kSnapshotTextBytes];

}  // namespace

PyObject* PyRYN_DumpLBSnapshot(PyObject*, PyObject* args) {
  std::uint32_t swID;
  if (!ParseArgs(args, &swID) || !IsSwitch(swID))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  std::memset(&snapshot_area, 0, sizeof(snapshot_area));
  std::uint32_t length = sizeof(snapshot_area);
  if (const std::uint32_t status = Ryn_DumpLBSnapshot(&swID, &snapshot_area, &length); status != 0)
    return NoneAfter("ValueError: Failed to dump LB topology: %#x.\n", status);

  std::memset(text_area, 0, sizeof(text_area));
  BoundedText text(text_area, sizeof(text_area));
  AppendSnapshot(snapshot_area, &text);
  return AsciiText(text.View()).release();
}
