#include "libryn/base/values.h"

#include <gtest/gtest.h>

#include "failing_allocation.h"
#include "python_error.h"

namespace {

constexpr char kNoBuffer[] = "SystemError: Failed to allocate buffer.\n";
constexpr char kNoListItem[] = "SystemError: Failed to set list item.\n";
constexpr char kNoDictItem[] = "SystemError: Failed to set dict item.\n";

// A value that nobody else shares, to watch its references
Ref Unshared() { return Ref(PyUnicode_FromString("a value of its own")); }

Key TestKey() { return Key("testKey"); }

TEST(SetOrReport, PutsTheValueUnderTheKeyAndTakesItOver) {
  Ref dict(PyDict_New());
  Key key = TestKey();
  Ref value = Unshared();
  EXPECT_TRUE(SetOrReport(dict.get(), key, NewRef(value.get())));
  EXPECT_EQ(PyDict_GetItemString(dict.get(), "testKey"), value.get());
  EXPECT_EQ(Py_REFCNT(value.get()), 2);
  dict.reset();
  EXPECT_EQ(Py_REFCNT(value.get()), 1);
}

TEST(SetOrReport, OfNoValueReportsThatItCouldNotBeCreated) {
  Ref dict(PyDict_New());
  Key key = TestKey();
  EXPECT_FALSE(SetOrReport(dict.get(), key, nullptr));
  EXPECT_EQ(TakeError(), kNoBuffer);
  EXPECT_EQ(PyDict_Size(dict.get()), 0);
}

TEST(SetOrReport, ThatFailsReportsADictItemAndDropsTheValue) {
  Ref no_dict(PyList_New(0));
  Key key = TestKey();
  Ref value = Unshared();
  EXPECT_FALSE(SetOrReport(no_dict.get(), key, NewRef(value.get())));
  EXPECT_EQ(TakeError(), kNoDictItem);
  EXPECT_EQ(Py_REFCNT(value.get()), 1);
}

TEST(SetOrReport, UnderAKeyThatCannotBeMadeFailsAndIsTriedAgain) {
  static constinit Key key("a key that is made nowhere else");
  Ref dict(PyDict_New());
  Ref value = Unshared();
  {
    const FailingAllocation failing(0);
    EXPECT_FALSE(SetOrReport(dict.get(), key, NewRef(value.get())));
    EXPECT_TRUE(failing.HasFailed());
  }
  EXPECT_EQ(TakeError(), kNoDictItem);
  EXPECT_EQ(Py_REFCNT(value.get()), 1);
  EXPECT_EQ(PyDict_Size(dict.get()), 0);

  EXPECT_TRUE(SetOrReport(dict.get(), key, NewRef(value.get())));
  EXPECT_EQ(TakeError(), "");
  EXPECT_EQ(PyDict_GetItemString(dict.get(), "a key that is made nowhere else"), value.get());
}

TEST(Key, IsOneInternedObject) {
  Key first("testKey"), second("testKey");
  ASSERT_NE(first.Object(), nullptr);
  EXPECT_EQ(first.Object(), first.Object());
  EXPECT_EQ(first.Object(), second.Object());
}

TEST(Key, ThatCannotBeMadeLeavesPythonsError) {
  static constinit Key key("another key that is made nowhere else");
  {
    const FailingAllocation failing(0);
    EXPECT_EQ(key.Object(), nullptr);
  }
  EXPECT_EQ(TakeError(), "MemoryError: ");
  EXPECT_NE(key.Object(), nullptr);
}

TEST(SetItemOrReport, PutsTheValueAtItsPlaceAndTakesItOver) {
  Ref list = NewList(2), value = Unshared();
  EXPECT_TRUE(SetItemOrReport(list.get(), 1, NewRef(value.get())));
  EXPECT_EQ(PyList_GetItem(list.get(), 0), Py_None);
  EXPECT_EQ(PyList_GetItem(list.get(), 1), value.get());
  list.reset();
  EXPECT_EQ(Py_REFCNT(value.get()), 1);
}

TEST(SetItemOrReport, ThatFailsReportsAListItemAndDropsTheValue) {
  Ref list = NewList(2), value = Unshared();
  EXPECT_FALSE(SetItemOrReport(list.get(), 2, NewRef(value.get())));
  EXPECT_EQ(TakeError(), kNoListItem);
  EXPECT_EQ(Py_REFCNT(value.get()), 1);
}

TEST(SetItemOrReport, OfNoValueReportsThatItCouldNotBeCreated) {
  Ref list = NewList(1);
  EXPECT_FALSE(SetItemOrReport(list.get(), 0, nullptr));
  EXPECT_EQ(TakeError(), kNoBuffer);
  EXPECT_EQ(PyList_GetItem(list.get(), 0), Py_None);
}

TEST(NewList, HasNoEmptySlot) {
  for (const std::size_t size : {0u, 1u, 1000u}) {
    const Ref list = NewList(size);
    ASSERT_EQ(PyList_GET_SIZE(list.get()), static_cast<Py_ssize_t>(size));
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list.get()); ++i)
      EXPECT_EQ(PyList_GET_ITEM(list.get(), i), Py_None);
  }
}

TEST(NewTuple, HasNoEmptySlot) {
  const Ref tuple = NewTuple(64);
  for (Py_ssize_t i = 0; i < 64; ++i)
    EXPECT_EQ(PyTuple_GET_ITEM(tuple.get(), i), Py_None);
}

TEST(NewContainers, ThatCannotBeMadeAreNullWithPythonsError) {
  {
    const FailingAllocation failing(0);
    EXPECT_EQ(NewList(1000), nullptr);
  }
  EXPECT_EQ(TakeError(), "MemoryError: ");
  {
    const FailingAllocation failing(0);
    EXPECT_EQ(NewTuple(1000), nullptr);
  }
  EXPECT_EQ(TakeError(), "MemoryError: ");
}

TEST(SetNewDict, StoresADictToFill) {
  Ref list = NewList(1);
  const Ref dict = SetNewDict(list.get(), 0);
  ASSERT_NE(dict, nullptr);
  EXPECT_EQ(PyList_GetItem(list.get(), 0), dict.get());
  EXPECT_EQ(Py_REFCNT(dict.get()), 2);
  list.reset();
  EXPECT_EQ(Py_REFCNT(dict.get()), 1);
}

TEST(SetNewDict, ThatCannotBeStoredReportsAListItem) {
  const Ref list = NewList(1);
  EXPECT_EQ(SetNewDict(list.get(), 1), nullptr);
  EXPECT_EQ(TakeError(), kNoListItem);
}

TEST(SetNewList, StoresAListToFill) {
  Ref dict(PyDict_New());
  Key key = TestKey();
  const Ref list = SetNewList(dict.get(), key, 3);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(PyList_GET_SIZE(list.get()), 3);
  EXPECT_EQ(PyDict_GetItemString(dict.get(), "testKey"), list.get());
}

TEST(SetNewList, ThatCannotBeStoredReportsADictItem) {
  const Ref no_dict = NewList(0);
  Key key = TestKey();
  EXPECT_EQ(SetNewList(no_dict.get(), key, 3), nullptr);
  EXPECT_EQ(TakeError(), kNoDictItem);
}

TEST(SetNewList, ThatCannotBeCreatedReportsIt) {
  Ref dict(PyDict_New());
  Key key = TestKey();
  ASSERT_NE(key.Object(), nullptr);
  {
    const FailingAllocation failing(0);
    EXPECT_EQ(SetNewList(dict.get(), key, 1000), nullptr);
  }
  EXPECT_EQ(TakeError(), kNoBuffer);
}

TEST(Set, LeavesPythonsOwnError) {
  const Ref no_dict = NewList(0), list = NewList(0);
  Key key = TestKey();
  EXPECT_FALSE(Set(no_dict.get(), key, Unshared()));
  EXPECT_NE(TakeError(), "");
  EXPECT_FALSE(Set(no_dict.get(), key, nullptr));
  EXPECT_EQ(TakeError(), "");
}

TEST(SetItem, LeavesPythonsOwnError) {
  const Ref tuple = NewTuple(1), value = Unshared();
  EXPECT_TRUE(SetItem(tuple.get(), 0, NewRef(value.get())));
  EXPECT_EQ(PyTuple_GetItem(tuple.get(), 0), value.get());
  EXPECT_FALSE(SetItem(tuple.get(), 1, NewRef(value.get())));
  EXPECT_EQ(TakeError().substr(0, 10), "IndexError");
  EXPECT_EQ(Py_REFCNT(value.get()), 2);
  EXPECT_FALSE(SetItem(tuple.get(), 0, nullptr));
  EXPECT_EQ(TakeError(), "");
}

TEST(Int, IsTheSignedLongConversion) {
  EXPECT_EQ(PyLong_AsLongLong(Int(std::uint32_t{0xFFFFFFFF}).get()), 0xFFFFFFFFLL);
  EXPECT_EQ(PyLong_AsLongLong(Int(std::uint64_t{1} << 63).get()), std::numeric_limits<long long>::min());
}

TEST(Text, ThatIsNoUtf8LeavesTheDecodingError) {
  EXPECT_EQ(Text("\xff"), nullptr);
  EXPECT_EQ(TakeError().substr(0, 18), "UnicodeDecodeError");
  const Ref text = Text("\xc3\xa9");
  EXPECT_EQ(PyUnicode_GetLength(text.get()), 1);
}

TEST(NoneWithError, KeepsTheError) {
  EXPECT_FALSE(ReportNoBuffer());
  EXPECT_EQ(Ref(NoneWithError()).get(), Py_None);
  EXPECT_EQ(TakeError(), kNoBuffer);
}

}  // namespace
