// The eight weights of the core load balancer, which apply to the whole datapath.

#include <cstdint>
#include <cstring>

#include "host/records/loadbal.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

namespace {

constinit Key kWeightName{"weightName"};
constinit Key kWeight{"weight"};

// In the order of the record.
constinit Key kNames[kWeights] = {
    Key("Cross-NUMA Communication Weight"),
    Key("Cross-NUMA Migration Weight"),
    Key("Cross-Lcore Communication Weight"),
    Key("Cross-Lcore Migration Weight"),
    Key("VM Affinity Weight"),
    Key("Device Affinity Weight"),
    Key("Stability Decay Rate"),
    Key("Port Count Weight"),
};

}  // namespace

PyObject* PyRYN_GetLBWeights(PyObject*, PyObject*) {
  LBWeights weights = {};
  if (Ryn_GetLBWeights(&weights) != 0)
    return NoneAfter("ValueError: Failed to get LB weight parameters.\n");

  Ref list = NewList(kWeights);
  if (!list)
    return NoneAfter("Failed to allocate tunable list.\n");
  for (std::size_t i = 0; i < kWeights; ++i) {
    const Ref dict = SetNewDict(list.get(), i);
    if (!dict || !SetOrReport(dict.get(), kWeightName, NewRef(kNames[i].Object())) ||
        !SetOrReport(dict.get(), kWeight, Int(weights.words[i])))
      return NoneWithError();
  }
  return list.release();
}

PyObject* PyRYN_SetLBWeights(PyObject*, PyObject* args) {
  LBWeights wanted;
  std::uint32_t* const w = wanted.words;
  if (!ParseArgs(args, &w[0], &w[1], &w[2], &w[3], &w[4], &w[5], &w[6], &w[7]))
    return NoneAfter("TypeError: Invalid parameter passed.\n");

  LBWeights current = {};
  if (Ryn_GetLBWeights(&current) != 0)
    return NoneAfter("ValueError: Failed to get LB weight parameters.\n");
  for (std::size_t i = 0; i < kWeights; ++i) {
    if (wanted.words[i] == kKeepCurrent)
      wanted.words[i] = current.words[i];
  }
  if (std::memcmp(&wanted, &current, sizeof(wanted)) == 0)
    return None();
  if (Ryn_SetLBWeights(&wanted) != 0)
    return NoneAfter("ValueError: Failed to set LB weight.\n");
  return None();
}

PyObject* PyRYN_ResetLBWeights(PyObject*, PyObject*) {
  if (Ryn_ResetLBWeights() != 0)
    return NoneAfter("ValueError: Failed to reset load balancer weights.\n");
  return None();
}
