// The names of the configuration's switches.
#include "host/names.h"
#include "support.h"

namespace {

class Names : public HostTest {};

TEST_F(Names, AreCopiedInOneWalk) {
  const int first = AddSwitch("dvs-1", "id-1");
  AddAlias(first, "dvs-1");
  AddPortset(first, std::string_view("net-1\0", 6));
  AddSwitch("dvs-2", "id-2", "opaque");
  const int third = AddSwitch("dvs-3", "id-3");
  AddAlias(third, "\xff\xfe");
  const int fourth = AddSwitch("", "id-4");
  AddAlias(fourth, std::string_view("", 1));  // a NUL
  AddPortset(fourth, std::string_view("", 1));

  SwitchDirectory directory;
  ASSERT_TRUE(directory.Read().Ok());
  double_reset();  // nothing is left of the configuration
  ASSERT_EQ(directory.Size(), 4U);
  EXPECT_EQ(directory[0].id, "id-1");
  EXPECT_EQ(directory[0].className, "vswitch");
  EXPECT_EQ(directory[0].alias, "dvs-1");
  EXPECT_EQ(directory[0].portset, "net-1");
  EXPECT_EQ(directory[0].DatapathName(), "net-1");
  EXPECT_STREQ(directory[0].Id().text, "id-1");

  EXPECT_EQ(directory[1].className, "opaque");
  EXPECT_FALSE(directory[1].HasAlias());
  EXPECT_FALSE(directory[1].HasPortset());
  EXPECT_EQ(directory[1].DatapathName(), "id-2");
  EXPECT_EQ(directory[2].alias, "\xff\xfe");
  EXPECT_EQ(directory[2].DatapathName(), "\xff\xfe");
  EXPECT_TRUE(directory[3].HasAlias());  // an empty text is one
  EXPECT_TRUE(directory[3].HasPortset());
  EXPECT_EQ(directory[3].DatapathName(), "");
}

TEST_F(Names, AreReadAnew) {
  AddSwitch("a", "id-1");
  SwitchDirectory directory;
  ASSERT_TRUE(directory.Read().Ok());
  double_reset();
  ASSERT_TRUE(directory.Read().Ok());
  EXPECT_EQ(directory.Size(), 0U);
  for (int i = 0; i < 300; ++i)
    AddAlias(AddSwitch("", "id-" + std::to_string(i)), std::string(1000, 'a') + std::to_string(i));
  ASSERT_TRUE(directory.Read().Ok());
  ASSERT_EQ(directory.Size(), 300U);
  EXPECT_EQ(directory[299].id, "id-299");
  EXPECT_EQ(directory[299].alias, std::string(1000, 'a') + "299");
  EXPECT_EQ(directory[299].DatapathName(), std::string(128, 'a'));  // the room that the datapath has for a name
}

TEST_F(Names, EndWithTheirAreas) {
  const int dvs = AddSwitch("dvs-1", std::string(64, 'i'));
  AddAlias(dvs, "abc");  // a block of 3 bytes, without a NUL
  SwitchDirectory directory;
  ASSERT_TRUE(directory.Read().Ok());
  EXPECT_EQ(directory[0].id, std::string(64, 'i'));
  EXPECT_EQ(directory[0].Id().text, std::string(63, 'i'));
  EXPECT_EQ(directory[0].alias, "abc");
}

TEST_F(Names, OfALibraryThatAnswersNullAreEmpty) {
  const int dvs = AddSwitch("dvs-1", "id-1");
  AddAlias(dvs, "dvs-1");
  Fail("DVS_SwitchId", 1);
  Fail("DVS_ClassName", 1);
  Fail("DVSData_Data", 1);
  SwitchDirectory directory;
  ASSERT_TRUE(directory.Read().Ok());
  ASSERT_EQ(directory.Size(), 1U);
  EXPECT_EQ(directory[0].id, "");
  EXPECT_EQ(directory[0].className, "");
}

TEST_F(Names, AliasFindsTheIdentifier) {
  AddSwitch("dvs-1", "id-1");
  AddSwitch("dvs-2", "id-2", "vswitches");
  SwitchId id;
  EXPECT_EQ(FindSwitchId("dvs-1", id.text), 0U);
  EXPECT_STREQ(id.text, "id-1");
  EXPECT_EQ(FindSwitchId("dvs-2", id.text), kBadParameter);
  EXPECT_EQ(FindSwitchId("dvs", id.text), kNotFound);
  EXPECT_STREQ(id.text, "id-1");
}

TEST_F(Names, AliasFindsTheDatapathsName) {
  AddPortset(AddSwitch("dvs-1", "id-1"), "net-1");
  AddAlias(AddSwitch("dvs-2", "id-2", "opaque"), "alias-2");
  AddSwitch("dvs-3", "id-3");
  PortsetName name;
  EXPECT_EQ(FindPortsetName("dvs-1", name.text), 0U);
  EXPECT_STREQ(name.text, "net-1");
  EXPECT_EQ(FindPortsetName("dvs-2", name.text), 0U);
  EXPECT_STREQ(name.text, "alias-2");
  EXPECT_EQ(FindPortsetName("dvs-3", name.text), 0U);
  EXPECT_STREQ(name.text, "id-3");
  EXPECT_EQ(FindPortsetName("dvs-4", name.text), kNotFound);
  EXPECT_STREQ(name.text, "id-3");
}

TEST_F(Names, PortsetNameFindsTheAliasByPrefix) {
  const int dvs = AddSwitch("dvs-1", "id-1");
  AddPortset(dvs, "net-1");
  AddAlias(dvs, "dvs-1");
  char alias[kAliasBytes] = "x";
  EXPECT_EQ(FindAlias("net-1", alias), 0U);
  EXPECT_STREQ(alias, "dvs-1");
  EXPECT_EQ(FindAlias("net-10", alias), 0U);  // Deliberate: begins with the switch's name
  EXPECT_STREQ(alias, "dvs-1");
  EXPECT_EQ(FindAlias("net", alias), 0U);
  EXPECT_STREQ(alias, "");
  EXPECT_EQ(FindAlias("", alias), kBadParameter);
  EXPECT_EQ(FindAlias(nullptr, alias), kBadParameter);
}

TEST_F(Names, ASwitchIsServedThatIsMarked) {
  constexpr char kMarker[] = "com.talvor.extraconfig.opaqueDvs.ryn";
  EXPECT_FALSE(HasServedSwitch());
  AddSwitch("dvs-1", "id-1");
  const int dvs = AddSwitch("dvs-2", "id-2");
  double_add_property(dvs, 1, kMarker, "no", 3);
  EXPECT_FALSE(HasServedSwitch());
  double_add_property(dvs, 1, kMarker, "poll", 5);
  EXPECT_TRUE(HasServedSwitch());
  Fail("DVSData_Data", 1);  // null, but a length: holds nothing
  EXPECT_FALSE(HasServedSwitch());
}

}  // namespace
