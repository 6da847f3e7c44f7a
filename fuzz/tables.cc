// The package's tables, used as scripts use them: search, filters and slices of a MAC table, and what a filter lets
// through of flows, against plain models.
#include <array>
#include <cctype>
#include <optional>

#include "targets.h"

PyMODINIT_FUNC PyInit__records();

namespace {

constexpr std::size_t kRow = 20;

Ref Made(PyObject* object) {
  Expect(object != nullptr, "it can be made");
  return Ref(object);
}

// The types of ryn._records.
Ref Type(const char* name) {
  static PyObject* const records = PyInit__records();
  return Made(PyObject_GetAttrString(records, name));
}

// The result, or null after a ValueError; no other error is due.
Ref Try(PyObject* result) {
  if (!result) {
    Expect(PyErr_ExceptionMatches(PyExc_ValueError), "what is refused is a ValueError");
    PyErr_Clear();
  }
  return Ref(result);
}

Ref CallWith(PyObject* function, const Ref& keywords) {
  const Ref none = Made(PyTuple_New(0));
  return Try(PyObject_Call(function, none.get(), keywords.get()));
}

void Put(const Ref& keywords, const char* name, PyObject* value) {
  const Ref owned = Made(value);
  Expect(PyDict_SetItemString(keywords.get(), name, owned.get()) == 0, "it can be stored");
}

std::string Shown(const Ref& object) { return TextOf(Made(PyObject_Repr(object.get())).get()); }

std::string BytesOf(const Ref& table) {
  const Ref bytes = Made(PyBytes_FromObject(table.get()));
  return {PyBytes_AS_STRING(bytes.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get()))};
}

std::string Hex(unsigned char byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[byte >> 4], kDigits[byte & 15]};
}

// The pattern in small letters without its separators: "02", "020000*"; nothing where the text is no pattern.
std::optional<std::string> ModelPattern(const std::string& text) {
  std::string digits;
  const char separator = text.size() > 2 ? text[2] : ':';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '*' && i % 3 == 0 && i + 1 == text.size() && i < 18)
      return digits + '*';
    const bool fits = i % 3 == 2 ? text[i] == separator && (c == ':' || c == '-') : std::isxdigit(c) != 0;
    if (!fits)
      return std::nullopt;
    if (i % 3 != 2)
      digits += static_cast<char>(std::tolower(c));
  }
  if (text.size() != 17)
    return std::nullopt;
  return digits;
}

bool ModelMatches(const std::string& pattern, const Bytes& rows, std::size_t at) {
  std::string mac;
  for (std::size_t i = 0; i < 6; ++i)
    mac += Hex(rows[at + i]);
  return pattern.back() == '*' ? mac.compare(0, pattern.size() - 1, pattern, 0, pattern.size() - 1) == 0
                               : mac == pattern;
}

std::string ModelRow(const Bytes& rows, std::size_t at) {
  std::string mac;
  for (std::size_t i = 0; i < 6; ++i)
    mac += (i ? ":" : "") + Hex(rows[at + i]);
  return "ryn.MacEntry(mac=ryn.MacAddress('" + mac + "'), vlan=" + std::to_string(At<std::uint16_t>(rows, at + 6)) +
         ", port=" + std::to_string(At<std::uint32_t>(rows, at + 8)) +
         ", generation=" + std::to_string(At<std::uint32_t>(rows, at + 16)) + ")";
}

void CheckFind(const Ref& table, const std::string& text, const Bytes& rows) {
  const Ref pattern = Made(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape"));
  const Ref found = Try(PyObject_CallMethod(table.get(), "find", "O", pattern.get()));
  const std::optional<std::string> model = ModelPattern(text);
  Expect((found != nullptr) == model.has_value(), "a pattern is one for both");
  if (!found)
    return;
  std::string expected;
  for (std::size_t at = 0; at < rows.size(); at += kRow) {
    if (ModelMatches(*model, rows, at))
      expected += (expected.empty() ? "" : ", ") + ModelRow(rows, at);
  }
  ExpectEqual(Shown(found), "[" + expected + "]", "the rows that are found");
}

}  // namespace

// A pattern up to a NUL, which filters are given, a VLAN, a port, a slice, and rows.
void FuzzMacTable(Input input) {
  enum : unsigned { kMac = 1, kVlan = 2, kPort = 4 };
  const std::string text = input.TakeText(24);
  const auto given = input.Take<std::uint8_t>();
  const auto vlan = input.Take<std::uint16_t>();
  const auto port = input.Take<std::uint32_t>();
  const int start = input.Take<std::int8_t>(), stop = input.Take<std::int8_t>(), step = input.Take<std::int8_t>();
  Bytes rows = input.Rest();
  rows.resize(rows.size() / kRow * kRow);
  const auto* const data = reinterpret_cast<const char*>(rows.data());
  const Ref table = Made(PyObject_CallFunction(Type("MacTable").get(), "y#ii", rows.empty() ? "" : data,
                                               static_cast<Py_ssize_t>(rows.size()), 7, 1));
  CheckFind(table, text, rows);

  const Ref keywords = Made(PyDict_New());
  if (given & kMac)
    Put(keywords, "mac", PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape"));
  if (given & kVlan)
    Put(keywords, "vlan", PyLong_FromLong(vlan));
  if (given & kPort)
    Put(keywords, "port", PyLong_FromUnsignedLong(port));
  const Ref selected = CallWith(Made(PyObject_GetAttrString(table.get(), "select")).get(), keywords);
  const std::optional<std::string> pattern = given & kMac ? ModelPattern(text) : "*";
  Expect((selected != nullptr) == pattern.has_value(), "filters are some for both");
  std::string expected;
  for (std::size_t at = 0; selected && at < rows.size(); at += kRow) {
    if (ModelMatches(*pattern, rows, at) && (!(given & kVlan) || At<std::uint16_t>(rows, at + 6) == vlan) &&
        (!(given & kPort) || At<std::uint32_t>(rows, at + 8) == port))
      expected.append(data + at, kRow);
  }
  if (selected) {
    Expect(BytesOf(selected) == expected, "the rows that are selected");
    ExpectEqual(Shown(selected),
                "<ryn.MacTable of " + std::to_string(expected.size() / kRow) + " rows, limit=7, limit_exceeded=1>",
                "the limits stay");
  }

  // A list of the rows' numbers is cut by the interpreter itself.
  const Ref slice = Made(PyObject_CallFunction(reinterpret_cast<PyObject*>(&PySlice_Type), "iii", start, stop, step));
  const Ref part = Try(PyObject_GetItem(table.get(), slice.get()));
  Expect((part != nullptr) == (step != 0), "a slice has steps");
  if (!part)
    return;
  const Ref numbers = Made(PyList_New(0));
  for (std::size_t i = 0; i < rows.size() / kRow; ++i)
    PyList_Append(numbers.get(), Made(PyLong_FromSize_t(i)).get());
  const Ref chosen = Made(PyObject_GetItem(numbers.get(), slice.get()));
  expected.clear();
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(chosen.get()); ++i)
    expected.append(data + PyLong_AsSize_t(PyList_GET_ITEM(chosen.get(), i)) * kRow, kRow);
  Expect(BytesOf(part) == expected, "the rows of a slice");
}

namespace {

using Address = std::array<unsigned char, 16>;

Address TakeAddress(Input* input, bool ipv6) {
  Address address = {};
  const Bytes bytes = input->Take(ipv6 ? 16 : 4);
  std::copy(bytes.begin(), bytes.end(), address.begin());
  return address;
}

bool SameBits(const Address& a, const Address& b, std::size_t bits) {
  for (std::size_t i = 0; i < bits; ++i) {
    if (((a[i / 8] ^ b[i / 8]) >> (7 - i % 8)) & 1)
      return false;
  }
  return true;
}

PyObject* Packed(const Address& address, bool ipv6) {
  return PyBytes_FromStringAndSize(reinterpret_cast<const char*>(address.data()), ipv6 ? 16 : 4);
}

}  // namespace

// The fields of a flow; then for each field whether a filter asks for it, and for that of the flow or for another.
void FuzzFlowFilter(Input input) {
  const bool ipv6 = input.Take<std::uint8_t>() & 1;
  const std::array<Address, 2> addresses = {TakeAddress(&input, ipv6), TakeAddress(&input, ipv6)};
  const std::uint32_t numbers[] = {input.Take<std::uint16_t>(), input.Take<std::uint16_t>(), input.Take<std::uint8_t>(),
                                   input.Take<std::uint16_t>() & 4095U};
  const auto actions = input.Take<std::uint32_t>();
  const Bytes macs[] = {Resized(input.Take(6), 6), Resized(input.Take(6), 6)};
  const Ref flow = Made(PyObject_CallFunction(Type("Flow").get(), "iiNNIIIIOOIiy#y#ii", 0, 0,
                                              Packed(addresses[0], ipv6), Packed(addresses[1], ipv6), numbers[0],
                                              numbers[1], numbers[2], numbers[3], Py_None, Py_None, actions, 0,
                                              macs[0].data(), Py_ssize_t{6}, macs[1].data(), Py_ssize_t{6}, 0, 0));

  const Ref keywords = Made(PyDict_New());
  bool matches = true;
  constexpr const char* kAddresses[] = {"src", "dst"};
  for (std::size_t i = 0; i < 2; ++i) {
    const auto mode = input.Take<std::uint8_t>();
    if (mode == 0)
      continue;
    const bool family = mode & 2 ? ipv6 : !ipv6;
    const Address wanted = mode & 4 ? addresses[i] : TakeAddress(&input, family);
    const std::uint32_t bits = input.Take<std::uint8_t>() % (family ? 129 : 33);
    Put(keywords, kAddresses[i], Py_BuildValue("(NI)", Packed(wanted, family), bits));
    matches = matches && family == ipv6 && SameBits(addresses[i], wanted, bits);
  }
  constexpr const char* kNumbers[] = {"sport", "dport", "protocol", "vlan"};
  constexpr std::uint32_t kMost[] = {0xFFFF, 0xFFFF, 0xFF, 4095};
  for (std::size_t i = 0; i < 4; ++i) {
    const auto mode = input.Take<std::uint8_t>();
    if (mode == 0)
      continue;
    const std::uint32_t wanted = mode & 1 ? numbers[i] : input.Take<std::uint16_t>() & kMost[i];
    Put(keywords, kNumbers[i], PyLong_FromUnsignedLong(wanted));
    matches = matches && wanted == numbers[i];
  }
  const auto wanted_actions = input.Take<std::uint32_t>();
  Put(keywords, "actions", PyLong_FromUnsignedLong(wanted_actions));
  matches = matches && (wanted_actions & ~actions) == 0;
  constexpr const char* kMacs[] = {"mac_a", "mac_b"};
  for (std::size_t i = 0; i < 2; ++i) {
    const auto mode = input.Take<std::uint8_t>();
    if (mode == 0)
      continue;
    const Bytes wanted = mode & 1 ? macs[i] : Resized(input.Take(6), 6);
    Put(keywords, kMacs[i], PyBytes_FromStringAndSize(reinterpret_cast<const char*>(wanted.data()), 6));
    matches = matches && wanted == macs[i];
  }
  const Ref filter = CallWith(Type("FlowFilter").get(), keywords);
  Expect(filter != nullptr, "what a filter asks for is in range");
  const Ref matched = Made(PyObject_CallMethod(filter.get(), "matches", "O", flow.get()));
  Expect(matched.get() == (matches ? Py_True : Py_False), "a filter lets through what it asks for");
}
