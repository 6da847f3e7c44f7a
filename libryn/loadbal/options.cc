// The balancing metric and the four thresholds of a switch, kept together in one host property.

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

#include "host/records/loadbal.h"
#include "libryn/base/call.h"
#include "libryn/base/values.h"
#include "libryn/dvs/property.h"
#include "libryn/loadbal/loadbal.h"
#include "platform/ryn.h"

namespace {

// By the value of the metric word.
constexpr std::string_view kMetrics[] = {"none", "cpu", "count"};

constinit Key kThresholdHigh{"LCore usage threshold high"};
constinit Key kThresholdLow{"LCore usage threshold low"};
constinit Key kPauseDifference{"LCore usage diff to pause balancing"};
constinit Key kSensitivity{"Traffic variation sensitivity"};

bool ReadOptions(const char* alias, LBSwitchOptions* options) {
  return ReadSettingOrReport(alias, kLoadBalanceProperty, options, [](const char* portset, LBSwitchOptions* current) {
    return Ryn_GetCurrentLBData(portset, kPortsetNameBytes, current);
  });
}

bool WriteOptions(const char* alias, LBSwitchOptions* options) {
  return WriteSettingOrReport(alias, kLoadBalanceProperty, options);
}

void Change(std::uint32_t* word, std::uint32_t wanted) {
  if (wanted != kKeepCurrent)
    *word = wanted;
}

// A (name, value) tuple; what could not be created is None in it. Null when the tuple itself could not be created.
Ref NamedValue(Key& name, std::uint32_t value) {
  Ref pair = NewTuple(2);
  if (pair) {
    SetItem(pair.get(), 0, NewRef(name.Object()));
    SetItem(pair.get(), 1, Int(value));
  }
  return pair;
}

}  // namespace

PyObject* PyRYN_GetLBAlgorithm(PyObject*, PyObject* args) {
  const char* alias;
  if (!ParseArgs(args, &alias))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  LBSwitchOptions options = {};
  if (!ReadOptions(alias, &options))
    return None();
  return Text(options.metric < std::size(kMetrics) ? kMetrics[options.metric] : "invalid").release();
}

PyObject* PyRYN_SetLBAlgorithm(PyObject*, PyObject* args) {
  const char *alias, *name;
  if (!ParseArgs(args, &alias, &name))
    return FalseAfter("TypeError: Invalid parameter passed.\n");
  LBSwitchOptions options = {};
  if (!ReadOptions(alias, &options))
    return Bool(false);
  const auto* const found = std::find(std::begin(kMetrics), std::end(kMetrics), name);
  if (found == std::end(kMetrics))
    return FalseAfter("Invalid metric name %s.\n", name);
  options.metric = static_cast<std::uint32_t>(found - kMetrics);
  return Bool(WriteOptions(alias, &options));
}

PyObject* PyRYN_GetLBParams(PyObject*, PyObject* args) {
  const char* alias;
  if (!ParseArgs(args, &alias))
    return NoneAfter("TypeError: Invalid parameter passed.\n");
  LBSwitchOptions options = {};
  if (!ReadOptions(alias, &options))
    return None();

  // Deliberate: creations are not checked. What failed is None in the result, and the error that Python set stands.
  Ref params = NewTuple(4);
  if (params) {
    SetItem(params.get(), 0, NamedValue(kThresholdHigh, options.thresholdHigh));
    SetItem(params.get(), 1, NamedValue(kThresholdLow, options.thresholdLow));
    SetItem(params.get(), 2, NamedValue(kPauseDifference, options.pauseDifference));
    SetItem(params.get(), 3, NamedValue(kSensitivity, options.sensitivity));
  }
  return params.release();
}

PyObject* PyRYN_SetLBParams(PyObject*, PyObject* args) {
  const char* alias;
  std::uint32_t high, low, pause, sensitivity;
  if (!ParseArgs(args, &alias, &high, &low, &pause, &sensitivity))
    return FalseAfter("TypeError: Invalid parameter passed.\n");
  LBSwitchOptions options = {};
  if (!ReadOptions(alias, &options))
    return Bool(false);
  Change(&options.thresholdHigh, high);
  Change(&options.thresholdLow, low);
  Change(&options.pauseDifference, pause);
  Change(&options.sensitivity, sensitivity);
  if (options.thresholdLow > options.thresholdHigh)
    return Bool(false);
  return Bool(WriteOptions(alias, &options));
}
