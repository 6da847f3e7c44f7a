#include "ryn/_core/mac_address.h"

#include <cstring>

namespace ryn {
namespace {

int Digit(char c) {
  if (c >= '0' && c <= '9')
    return c - '0';
  if (c >= 'a' && c <= 'f')
    return c - 'a' + 10;
  if (c >= 'A' && c <= 'F')
    return c - 'A' + 10;
  return -1;
}

// Reads bytes of two digits each, with one kind of separator; the number read, or -1. With `pattern`, fewer than six
// may be followed by "*".
int ParseText(const char* text, std::size_t length, bool pattern, std::uint8_t* bytes) {
  char separator = '\0';
  std::size_t at = 0;
  for (int i = 0; i < 6; ++i) {
    if (i > 0) {
      if (at == length || (text[at] != ':' && text[at] != '-') || (separator && text[at] != separator))
        return -1;
      separator = text[at++];
    }
    if (pattern && at + 1 == length && text[at] == '*')
      return i;
    if (at + 2 > length || Digit(text[at]) < 0 || Digit(text[at + 1]) < 0)
      return -1;
    bytes[i] = static_cast<std::uint8_t>(Digit(text[at]) << 4 | Digit(text[at + 1]));
    at += 2;
  }
  return at == length ? 6 : -1;
}

bool Read(PyObject* address, bool pattern, std::uint8_t* bytes, std::size_t* length) {
  *length = 6;
  if (Py_TYPE(address) == &mac_address_type) {
    std::memcpy(bytes, As<MacAddress>(address)->bytes, 6);
    return true;
  }
  if (PyBytes_Check(address)) {
    if (PyBytes_GET_SIZE(address) == 6) {
      std::memcpy(bytes, PyBytes_AS_STRING(address), 6);
      return true;
    }
    PyErr_Format(PyExc_ValueError, "a MAC address has 6 bytes, not %zd", PyBytes_GET_SIZE(address));
    return false;
  }
  if (!PyUnicode_Check(address)) {
    PyErr_Format(PyExc_TypeError, "a MAC address is a str, bytes or MacAddress, not %.100s", Py_TYPE(address)->tp_name);
    return false;
  }
  Py_ssize_t size = 0;
  const char* const text = PyUnicode_AsUTF8AndSize(address, &size);
  const int read = text ? ParseText(text, static_cast<std::size_t>(size), pattern, bytes) : -1;
  if (read >= 0) {
    *length = static_cast<std::size_t>(read);
    return true;
  }
  if (text || PyErr_ExceptionMatches(PyExc_UnicodeError)) {
    PyErr_Clear();
    PyErr_Format(PyExc_ValueError,
                 pattern ? "%R is not a MAC address or the start of one, as in 02:00:00:*"
                         : "%R is not a MAC address, as in 02:00:00:aa:bb:cc",
                 address);
  }
  return false;
}

PyObject* New(PyTypeObject*, PyObject* args, PyObject* keywords) {
  static const char* names[] = {"address", nullptr};
  PyObject* address;
  std::uint8_t bytes[6];
  if (!PyArg_ParseTupleAndKeywords(args, keywords, "O:MacAddress", const_cast<char**>(names), &address) ||
      !ReadMacAddress(address, bytes))
    return nullptr;
  return NewMacAddress(bytes);
}

PyObject* Str(PyObject* self) {
  char text[kMacTextLength];
  WriteMacText(As<MacAddress>(self)->bytes, text);
  return PyUnicode_FromStringAndSize(text, kMacTextLength);
}

PyObject* Repr(PyObject* self) {
  char text[kMacTextLength + 1] = {};
  WriteMacText(As<MacAddress>(self)->bytes, text);
  return PyUnicode_FromFormat("ryn.MacAddress('%s')", text);
}

Py_hash_t Hash(PyObject* self) {
  std::uint64_t bytes = 0;
  std::memcpy(&bytes, As<MacAddress>(self)->bytes, 6);
  // Spread over all bits: addresses of one maker differ in few. 48 bits remain, so it is never -1.
  return static_cast<Py_hash_t>((bytes * 0x9E3779B97F4A7C15u) >> 16);
}

PyObject* Compare(PyObject* left, PyObject* right, int operation) {
  if (Py_TYPE(left) != &mac_address_type || Py_TYPE(right) != &mac_address_type)
    Py_RETURN_NOTIMPLEMENTED;
  const int order = std::memcmp(As<MacAddress>(left)->bytes, As<MacAddress>(right)->bytes, 6);
  Py_RETURN_RICHCOMPARE(order, 0, operation);
}

PyObject* Packed(PyObject* self, void*) { return Bytes(As<MacAddress>(self)->bytes, 6).release(); }
PyObject* IsMulticast(PyObject* self, void*) { return PyBool_FromLong(As<MacAddress>(self)->bytes[0] & 1); }
PyObject* IsLocal(PyObject* self, void*) { return PyBool_FromLong(As<MacAddress>(self)->bytes[0] & 2); }

PyObject* ToBytes(PyObject* self, PyObject*) { return Packed(self, nullptr); }

PyObject* Reduce(PyObject* self, PyObject*) {
  return Py_BuildValue("O(y#)", &mac_address_type, As<MacAddress>(self)->bytes, Py_ssize_t{6});
}

PyGetSetDef properties[] = {
    {"packed", Packed, nullptr, "The 6 bytes in the order of the wire.", nullptr},
    {"is_multicast", IsMulticast, nullptr, "Whether the address is a group's.", nullptr},
    {"is_local", IsLocal, nullptr, "Whether the address is administered locally.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef methods[] = {
    {"__bytes__", ToBytes, METH_NOARGS, nullptr},
    {"__reduce__", Reduce, METH_NOARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyTypeObject MakeType() {
  PyTypeObject type = StaticType("ryn.MacAddress");
  type.tp_doc =
      "MacAddress(address)\n--\n\n"
      "A MAC address, from a text with colons or dashes or from 6 bytes. Immutable, hashable, ordered.\n\n"
      "ValueError for what is no address, TypeError for what is neither text nor bytes.";
  type.tp_basicsize = sizeof(MacAddress);
  type.tp_new = New;
  type.tp_str = Str;
  type.tp_repr = Repr;
  type.tp_hash = Hash;
  type.tp_richcompare = Compare;
  type.tp_getset = properties;
  type.tp_methods = methods;
  return type;
}

}  // namespace

PyTypeObject mac_address_type = MakeType();

PyObject* NewMacAddress(const std::uint8_t* bytes) {
  auto* const address = PyObject_New(MacAddress, &mac_address_type);
  if (address)
    std::memcpy(address->bytes, bytes, 6);
  return reinterpret_cast<PyObject*>(address);
}

bool ReadMacAddress(PyObject* address, std::uint8_t* bytes) {
  std::size_t length;
  return Read(address, false, bytes, &length);
}

bool ReadMacPattern(PyObject* pattern, std::uint8_t* bytes, std::size_t* length) {
  return Read(pattern, true, bytes, length);
}

}  // namespace ryn
