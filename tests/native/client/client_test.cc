// A client of the module's entry points in C++. Its areas come from the heap in their exact sizes, so that a sanitizer
// sees every byte written past them.
#include <Python.h>
#include <double.h>
#include <gtest/gtest.h>
#include <libryn.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr char kUntouched = '\xa5';
constexpr char kPortset[] = "com.talvor.common.host.portset";
constexpr char kAlias[] = "com.talvor.common.alias";

// The recorded calls of the load: made before main() begins.
const std::string& CallsOfTheLoad() {
  static const std::string calls = double_calls();
  return calls;
}

using Area = std::vector<char>;  // of exact size

std::string Text(const Area& area) { return {area.data(), strnlen(area.data(), area.size())}; }

void AddProperty(int dvs, bool global, const char* name, const std::string& value) {
  double_add_property(dvs, global, name, value.c_str(), value.size() + 1);
}

class Resolvers : public testing::Test {
 protected:
  void SetUp() override { double_reset(); }

  static int AddSwitch(const std::string& alias, const std::string& id) {
    return double_add_switch(alias.c_str(), "vswitch", id.data(), id.size());
  }
};

TEST(Load, TheConstructorRunsBeforeMainWithoutAnInterpreter) {
  EXPECT_NE(CallsOfTheLoad().find("{\"op\": \"DVSState_ConfigReset\""), std::string::npos);
  EXPECT_NE(CallsOfTheLoad().find("{\"op\": \"DVSQOB_StateGet\""), std::string::npos);
  EXPECT_NE(CallsOfTheLoad().find("{\"op\": \"DVSState_ConfigDeserialize\""), std::string::npos);
}

TEST(Load, TheSwitchStateLibraryFindsTheLogHooks) {
  double_reset();
  double_log_hooks(1);
  EXPECT_EQ(DVSLoadConfig(), 0U);
  const std::string calls = double_calls();
  for (const char* hook : {"\"Log\"", "\"Warning\"", "\"Panic\""})
    EXPECT_NE(calls.find(hook), std::string::npos) << hook;
}

TEST(Load, FailureIsToldToTheCaller) {
  double_reset();
  const DoubleAnswer answer = {0x0BAD0007, -1, nullptr, 0, -1, 0};
  double_answer("DVSQOB_StateGet", &answer);
  EXPECT_EQ(DVSLoadConfig(), 0x0BAD0007U);
}

TEST_F(Resolvers, SwitchIdFillsItsAreaAndNoMore) {
  for (std::size_t length = 0; length <= 130; ++length) {
    double_reset();
    const std::string id(length, 'x');
    AddSwitch("dvs-1", id);
    Area area(LIBRYN_SWITCH_ID_SIZE, kUntouched);
    ASSERT_EQ(DVSAliasToSwitchId("dvs-1", area.data()), 0U);
    EXPECT_EQ(area.back(), '\0');
    EXPECT_EQ(Text(area), id.substr(0, 63));
  }
}

TEST_F(Resolvers, PortsetNameFillsItsAreaAndNoMore) {
  for (std::size_t length = 0; length <= 200; ++length) {
    double_reset();
    const std::string name(length, 'x');
    AddProperty(AddSwitch("dvs-1", "id-1"), false, kPortset, name);
    Area area(LIBRYN_PORTSET_NAME_SIZE, kUntouched);
    ASSERT_EQ(DVSAliasToPortsetName("dvs-1", area.data()), 0U);
    EXPECT_EQ(Text(area), name.substr(0, 128));
    EXPECT_EQ(area.back(), length < 128 ? '\0' : 'x');
  }
}

TEST_F(Resolvers, AliasFillsItsAreaAndNoMore) {
  for (std::size_t length = 0; length <= 200; ++length) {
    double_reset();
    double_visit_all(1);
    const std::string alias(length, 'x');
    AddProperty(AddSwitch("dvs-0", "id-0"), false, kPortset, "port");  // without an alias: the wanted name
    const int dvs = AddSwitch("dvs-1", "id-1");
    AddProperty(dvs, false, kPortset, "portset-1");
    AddProperty(dvs, true, kAlias, alias);
    Area area(LIBRYN_ALIAS_SIZE, kUntouched);
    ASSERT_EQ(DVSPortsetNameToAlias("portset-10", area.data()), 0U);
    const std::string wanted = "portset-10";
    EXPECT_EQ(Text(area), alias.substr(0, 128) + (length < wanted.size() ? wanted.substr(length) : ""));
  }
}

TEST_F(Resolvers, LongWantedNameIsCut) {
  AddProperty(AddSwitch("dvs-1", "id-1"), false, kPortset, "");
  const std::string wanted(1000, 'y');
  Area area(LIBRYN_ALIAS_SIZE, kUntouched);
  EXPECT_EQ(DVSPortsetNameToAlias(wanted.c_str(), area.data()), 0U);
  EXPECT_EQ(Text(area), wanted.substr(0, 127));
}

TEST_F(Resolvers, FailuresLeaveTheAreaUntouched) {
  double_add_switch("dvs-1", "vswitch2", "id-1", 4);
  Area area(LIBRYN_ALIAS_SIZE, kUntouched);
  EXPECT_EQ(DVSAliasToSwitchId("dvs-9", area.data()), 0x0BAD0003U);
  EXPECT_EQ(DVSAliasToSwitchId("dvs-1", area.data()), 0x0BAD0007U);
  EXPECT_EQ(DVSAliasToPortsetName("dvs-9", area.data()), 0x0BAD0003U);
  EXPECT_EQ(DVSPortsetNameToAlias("", area.data()), 0x0BAD0007U);
  EXPECT_EQ(DVSPortsetNameToAlias(nullptr, area.data()), 0x0BAD0007U);
  EXPECT_EQ(area, Area(LIBRYN_ALIAS_SIZE, kUntouched));
}

TEST(Flags, TextIsCutToEverySize) {
  constexpr std::array kWords = {"UNICAST ", "MULTICAST ", "ALLMULTI ", "BROADCAST ", "PROMISC ", "USE_LADRF "};
  for (std::uint32_t flags = 0; flags < 128; ++flags) {  // the bits above the words have no text
    std::string text;
    for (std::size_t bit = 0; bit < kWords.size(); ++bit)
      text += flags >> bit & 1 ? kWords[bit] : "";
    for (std::size_t size = 1; size <= 64; ++size) {
      Area area(size, kUntouched);
      FlagsToStr(flags | 0xFFFFFF80, area.data(), static_cast<std::uint32_t>(size));
      ASSERT_EQ(Text(area), text.substr(0, size - 1)) << flags << ", " << size;
    }
  }
  char none = kUntouched;
  FlagsToStr(0x3F, &none, 0);
  EXPECT_EQ(none, kUntouched);
}

TEST(Flow, LongestKeyFitsItsArea) {
  const std::unique_ptr<unsigned char[]> key(new unsigned char[64]);
  std::memset(key.get(), 0xFF, 64);
  Area area(LIBRYN_FLOW_KEY_TEXT_SIZE, kUntouched);
  FCFlowKeyToStr(key.get(), area.data());
  EXPECT_EQ(Text(area).substr(0, 34 + 2), "ff:ff:ff:ff:ff:ff  ff:ff:ff:ff:ff:ff");
}

// Python values

struct Drop {
  void operator()(PyObject* object) const { Py_DECREF(object); }
};
using Ref = std::unique_ptr<PyObject, Drop>;

std::string Repr(PyObject* object) {
  const Ref repr(object ? PyObject_Repr(object) : nullptr);
  const char* text = repr ? PyUnicode_AsUTF8(repr.get()) : nullptr;
  return text ? text : "null";
}

TEST(Values, Lists) {
  const std::unique_ptr<std::uint64_t[]> bitmap(new std::uint64_t[2]{1 | 1U << 5, std::uint64_t{1} << 63});
  EXPECT_EQ(Repr(Ref(PyRYN_CreatePortList(0, bitmap.get())).get()), "[]");
  EXPECT_EQ(Repr(Ref(PyRYN_CreatePortList(2, bitmap.get())).get()), "[0, 5]");
  EXPECT_EQ(Repr(Ref(PyRYN_CreatePortList(3, bitmap.get())).get()), "[0, 5, 127]");
  EXPECT_EQ(Repr(Ref(PyRYN_CreatePortList(5, bitmap.get())).get()), "[0, 5, 127, None, None]");
  const std::unique_ptr<std::uint16_t[]> vlans(new std::uint16_t[3]{0, 4094, 0xFFFF});
  EXPECT_EQ(Repr(Ref(PyRYN_CreateVlanList(3, vlans.get())).get()), "[0, 4094, 65535]");
}

TEST(Values, MirrorSessionOfExactSizeMovesTheOffset) {
  // One VLAN, and the padding up to a multiple of 8 bytes
  const std::unique_ptr<unsigned char[]> conf(new unsigned char[8 + 72 + 8]());
  conf[8 + 4] = 7;   // index
  conf[8 + 20] = 1;  // VLANs
  conf[8 + 72] = 0xFE;
  conf[8 + 73] = 0x0F;
  std::uint32_t offset = 8;
  const Ref session(PyRYN_CreateMirrorSession(conf.get(), &offset, 0));
  EXPECT_EQ(offset, 8U + 72 + 8);
  EXPECT_EQ(Repr(PyDict_GetItemString(session.get(), "index")), "7");
  EXPECT_EQ(Repr(PyDict_GetItemString(session.get(), "vlans")), "[4094]");
}

TEST(Values, NetQInfoTakesTheBlockOver) {
  for (int round = 0; round < 3; ++round) {  // a block that is freed twice, or not at all, is the sanitizer's to see
    const Ref info(PyRYN_PortNetQInfo(std::calloc(1, LIBRYN_NETQ_RESPONSE_SIZE), 0));
    EXPECT_EQ(Repr(info.get()), "{'isUplink': 0, 'swID': 0, 'rynPortID': 0, 'filters': []}");
  }
}

TEST(Values, TheInterpreterImportsTheObjectThatIsThere) {
  double_reset();
  const Ref module(PyImport_ImportModule("_libryn"));
  ASSERT_NE(module, nullptr) << "PYTHONPATH does not name the module's folder";
  EXPECT_STREQ(double_calls(), "");  // not loaded once more
  const Ref switches(PyObject_CallMethod(module.get(), "ListSwitches", nullptr));
  EXPECT_EQ(Repr(switches.get()), "[]");
}

}  // namespace

int main(int argc, char** argv) {
  if (Py_IsInitialized() || CallsOfTheLoad().empty())
    return 2;
  testing::InitGoogleTest(&argc, argv);
  Py_InitializeEx(0);
  const int result = RUN_ALL_TESTS();
  return Py_FinalizeEx() == 0 ? result : 1;
}
