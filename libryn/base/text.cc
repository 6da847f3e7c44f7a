// Texts of ASCII alone. The greatest character, 127, makes the interpreter mark them as such: a byte a character, which
// is written in place, with nothing decoded.

#include "libryn/base/text.h"

Ref MacText(const std::uint8_t* mac) {
  Ref text(PyUnicode_New(kMacTextLength, 127));
  if (text)
    WriteMac(mac, reinterpret_cast<char*>(PyUnicode_1BYTE_DATA(text.get())));
  return text;
}

Ref AsciiText(std::string_view text) {
  Ref str(PyUnicode_New(static_cast<Py_ssize_t>(text.size()), 127));
  if (str)
    std::memcpy(PyUnicode_1BYTE_DATA(str.get()), text.data(), text.size());
  return str;
}
