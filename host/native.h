// Native records: areas on the heap that a platform library fills, and loads from bytes at any position.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

static_assert(std::endian::native == std::endian::little, "the platform's records are little-endian");

struct FreeArea {
  void operator()(void* area) const { std::free(area); }
};

// An area from the standard allocator, freed on every path.
template <class T>
using HeapArea = std::unique_ptr<T, FreeArea>;

// A record of exactly its prescribed size, zeroed: a library that answers success and fills nothing yields an empty
// result, never the process's old memory. Null when there is no memory.
template <class Record>
HeapArea<Record> AllocateRecord() {
  return HeapArea<Record>(static_cast<Record*>(std::calloc(1, sizeof(Record))));
}

// The integer or the record at a position that need not be aligned.
template <class T>
T Load(const void* bytes, std::size_t position) {
  T value;
  std::memcpy(&value, static_cast<const unsigned char*>(bytes) + position, sizeof(value));
  return value;
}

// The text of a fixed-width field: up to its NUL, or the whole field when there is none.
template <std::size_t width>
std::string_view FieldText(const char (&field)[width]) {
  return {field, strnlen(field, width)};
}

// A field of a record that is walked rather than mapped: its type and its offset in bytes.
template <class T>
struct Field {
  std::size_t offset;
};

// The bytes of a record that is not mapped as a struct.
class View {
 public:
  View(const void* bytes, std::size_t size) : bytes_(static_cast<const unsigned char*>(bytes)), size_(size) {}

  // A field that every record of the kind has.
  template <class T>
  T Get(Field<T> field) const {
    return Load<T>(bytes_, field.offset);
  }

  // A field that may lie behind the end; bytes that do read as 0.
  template <class T>
  T GetOrZero(Field<T> field, std::size_t position = 0) const {
    const std::size_t start = position + field.offset;
    if (start + sizeof(T) <= size_)
      return Load<T>(bytes_, start);
    T value = 0;
    if (start < size_)
      std::memcpy(&value, bytes_ + start, size_ - start);
    return value;
  }

  // A record at the start, whole or cut off; bytes behind the end are 0.
  template <class Record>
  Record LoadOrZeros() const {
    Record record = {};
    if (size_ != 0)
      std::memcpy(&record, bytes_, std::min(sizeof(record), size_));
    return record;
  }

  std::size_t Size() const { return size_; }

 private:
  const unsigned char* bytes_;
  std::size_t size_;
};
