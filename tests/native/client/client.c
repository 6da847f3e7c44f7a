// A client of the module's entry points in C: includes the public header before anything else, names each function
// with its type, and calls it once. Prints what is wrong.
#include <libryn.h>

#include <double.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <Python.h>

static int failures;

#define CHECK(condition)                                               \
  do {                                                                 \
    if (!(condition)) {                                                \
      printf("%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                      \
    }                                                                  \
  } while (0)

// The prototypes of the header, spelled once more: another one does not compile.
static void (*const library_init)(void) = LibraryInit;
static uint32_t (*const load_config)(void) = DVSLoadConfig;
static void (*const hooks[])(const char*, ...) = {Log, Warning, Panic};
static uint32_t (*const alias_to_switch_id)(const char*, char*) = DVSAliasToSwitchId;
static uint32_t (*const alias_to_portset_name)(const char*, char*) = DVSAliasToPortsetName;
static uint32_t (*const portset_name_to_alias)(const char*, char*) = DVSPortsetNameToAlias;
static int (*const port_exists)(uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t, uintptr_t) = DVPortExist;
static void (*const flags_to_str)(uint32_t, char*, uint32_t) = FlagsToStr;
static void (*const flow_key_to_str)(const void*, char*) = FCFlowKeyToStr;
static int (*const actions_to_str)(const void*, char*, uint32_t, uint16_t) = FCActionsToStr;
static int (*const actions_stats_to_str)(const void*, char*, uint32_t) = FCActionsStatsToStr;
static PyObject* (*const create_mirror_session)(const void*, uint32_t*, uint32_t) = PyRYN_CreateMirrorSession;
static PyObject* (*const create_port_list)(uint16_t, const void*) = PyRYN_CreatePortList;
static PyObject* (*const create_vlan_list)(uint16_t, const void*) = PyRYN_CreateVlanList;
static PyObject* (*const port_netq_info)(void*, uint32_t) = PyRYN_PortNetQInfo;

static int called(const char* operation) { return strstr(double_calls(), operation) != NULL; }

// The loader ran the constructor, and there is no interpreter yet.
static void check_load(void) {
  CHECK(!Py_IsInitialized());
  CHECK(called("\"DVSState_ConfigReset\"") && called("\"DVSQOB_StateGet\"") &&
        called("\"DVSState_ConfigDeserialize\""));
  double_forget_calls();
  CHECK(load_config() == 0);
  CHECK(called("\"DVSState_ConfigReset\""));
  double_forget_calls();
  library_init();
  CHECK(called("\"DVSState_ConfigReset\""));
  double_forget_calls();
  for (size_t i = 0; i < sizeof hooks / sizeof *hooks; ++i)
    hooks[i]("%s %d\n", (const char*)NULL, 1);
  CHECK(strcmp(double_calls(), "") == 0);
}

static void check_resolvers(void) {
  char id[LIBRYN_SWITCH_ID_SIZE], portset[LIBRYN_PORTSET_NAME_SIZE], alias[LIBRYN_ALIAS_SIZE];
  const int dvs = double_add_switch("dvs-1", "vswitch", "id-1", 4);
  double_add_property(dvs, 0, "com.talvor.common.host.portset", "portset-1", 10);
  double_add_property(dvs, 1, "com.talvor.common.alias", "dvs-1", 6);
  CHECK(alias_to_switch_id("dvs-1", id) == 0 && strcmp(id, "id-1") == 0);
  CHECK(alias_to_switch_id("dvs-2", id) == 0x0BAD0003);
  CHECK(alias_to_portset_name("dvs-1", portset) == 0 && strcmp(portset, "portset-1") == 0);
  CHECK(portset_name_to_alias(portset, alias) == 0 && strcmp(alias, "dvs-1") == 0);
  CHECK(portset_name_to_alias(NULL, alias) == 0x0BAD0007);
  CHECK(port_exists(1, 2, 3, 4, 5, UINTPTR_MAX) == 0);
  double_find_port(1);
  CHECK(port_exists(1, 2, 3, 4, 5, UINTPTR_MAX) == 1);
}

static void check_texts(void) {
  char text[LIBRYN_FLOW_KEY_TEXT_SIZE];
  unsigned char key[64] = {0}, actions[304] = {0};
  flags_to_str(0x21, text, sizeof text);
  CHECK(strcmp(text, "UNICAST USE_LADRF ") == 0);
  flow_key_to_str(key, text);
  CHECK(strstr(text, "00:00:00:00:00:00  00:00:00:00:00:00  0     0        0.0.0.0 ") == text);
  CHECK(actions_to_str(actions, text, sizeof text, 304) == 0);
  CHECK(strcmp(text, "bmap:(nil) inval(s):0 cg:(nil) dp:- len:0; ") == 0);
  actions_stats_to_str(actions, text, sizeof text);
  CHECK(strcmp(text, "Not Applicable") == 0);
}

static long number_at(PyObject* list, Py_ssize_t index) { return PyLong_AsLong(PyList_GetItem(list, index)); }

static void check_values(void) {
  unsigned char conf[2048] = {0};
  uint32_t offset = 8;
  const uint64_t bitmap[2] = {1, UINT64_C(1) << 63};
  const uint16_t vlans[2] = {1, 4094};
  PyObject* value = create_port_list(2, bitmap);
  CHECK(PyList_Size(value) == 2 && number_at(value, 0) == 0 && number_at(value, 1) == 127);
  Py_DECREF(value);
  value = create_vlan_list(2, vlans);
  CHECK(PyList_Size(value) == 2 && number_at(value, 0) == 1 && number_at(value, 1) == 4094);
  Py_DECREF(value);
  value = create_mirror_session(conf, &offset, 0);
  CHECK(PyDict_Check(value) && offset == 8 + 72);
  Py_DECREF(value);
  value = port_netq_info(calloc(1, LIBRYN_NETQ_RESPONSE_SIZE), LIBRYN_NETQ_RESPONSE_SIZE);
  CHECK(PyDict_Check(value) && PyList_Size(PyDict_GetItemString(value, "filters")) == 0);
  Py_DECREF(value);
}

int main(void) {
  check_load();
  check_resolvers();
  check_texts();
  Py_InitializeEx(0);
  check_values();
  CHECK(Py_FinalizeEx() == 0);
  return failures != 0;
}
