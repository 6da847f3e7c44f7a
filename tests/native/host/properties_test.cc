// Settings as properties: what is stored, and in which format.
#include "host/change/properties.h"
#include "host/properties.h"
#include "host/records/loadbal.h"
#include "support.h"

namespace {

class Properties : public HostTest {};

TEST_F(Properties, ARecordIsReadWhereItsFormatIsValid) {
  Answer("DVSQOB_HostPropGet", Bytes(8).U32(4, 64));
  BurstSize burst;
  ASSERT_TRUE(GetPropertyRecord("id-1", kBurstSizeProperty, &burst).Ok());
  EXPECT_EQ(burst.packets, 64U);
  EXPECT_EQ(Calls(), R"({"op": "DVSQOB_HostPropGet", "args": {"switchId": {"text": "69642d31"}, "key": {"text": ")"
                     R"(636f6d2e74616c766f722e6b69762e72796e2e627572737473697a65"}}})"
                     "\n"
                     R"({"op": "DVSQOB_DataFree", "args": {"isNull": 0}})"
                     "\n");
}

TEST_F(Properties, OtherFormatsAreInvalid) {
  BurstSize burst = {1, 2};
  for (const Bytes& value : {Bytes(8).U32(0, 1), Bytes(7), Bytes(9), Bytes(0), Bytes(3).U8(2, 1)}) {
    Answer("DVSQOB_HostPropGet", value);
    const Status status = GetPropertyRecord("id-1", kBurstSizeProperty, &burst);
    EXPECT_EQ(status.kind, Status::Kind::kInvalidResponse);
    EXPECT_STREQ(status.operation, "DVSQOB_HostPropGet");
  }
  EXPECT_EQ(burst.packets, 2U);
  EXPECT_EQ(double_blocks_out(), double_blocks_freed());
}

TEST_F(Properties, TheVersionIsJudgedBeforeTheLength) {
  PropertyValue value;
  Answer("DVSQOB_HostPropGet", Bytes(3).U8(2, 1));
  ASSERT_TRUE(value.ReadHost("id-1", "key").Ok());
  EXPECT_EQ(FormatOf(value, 8), RecordFormat::kUnknownVersion);
  Answer("DVSQOB_HostPropGet", Bytes(3));
  ASSERT_TRUE(value.ReadHost("id-1", "key").Ok());
  EXPECT_EQ(FormatOf(value, 8), RecordFormat::kWrongLength);
  EXPECT_EQ(FormatOf(value, 3), RecordFormat::kValid);
}

TEST_F(Properties, OneThatIsNotThereIsNotFound) {
  Fail("DVSQOB_HostPropGet", 0x0BAD0003);
  std::uint32_t setting = 5;
  const Status status = GetStoredFPO("id-1", &setting);
  EXPECT_EQ(status.kind, Status::Kind::kFailed);
  EXPECT_EQ(status.code, kNotFound);
  EXPECT_EQ(setting, 5U);
}

TEST_F(Properties, AFailureIsHandedOn) {
  Fail("DVSQOB_HostPropGet", 9);
  Fail("DVSQOB_PortDataGet", 8);
  BurstSize burst;
  EXPECT_EQ(GetPropertyRecord("id-1", kBurstSizeProperty, &burst).code, 9U);
  RingSizes sizes;
  const Status status = GetStoredRingSizes("id-1", "50", &sizes);
  EXPECT_EQ(status.code, 8U);
  EXPECT_STREQ(status.operation, "DVSQOB_PortDataGet");
}

TEST_F(Properties, ANullValueHoldsNothing) {
  const DoubleAnswer answer = {0, -1, nullptr, 0, 4, 0};  // no block, but a length of 4
  double_answer("DVSQOB_HostPropGet", &answer);
  std::uint32_t setting = 5;
  EXPECT_EQ(GetStoredFPO("id-1", &setting).kind, Status::Kind::kInvalidResponse);
}

TEST_F(Properties, FPOIsAWordAndRingSizesAreTwo) {
  Answer("DVSQOB_HostPropGet", Bytes(4).U32(0, 7));
  std::uint32_t setting = 0;
  ASSERT_TRUE(GetStoredFPO("id-1", &setting).Ok());
  EXPECT_EQ(setting, 7U);
  Answer("DVSQOB_HostPropGet", Bytes(8));
  EXPECT_EQ(GetStoredFPO("id-1", &setting).kind, Status::Kind::kInvalidResponse);

  Answer("DVSQOB_PortDataGet", Bytes(8).U32(0, 4096).U32(4, 512));
  RingSizes sizes;
  ASSERT_TRUE(GetStoredRingSizes("id-1", "50", &sizes).Ok());
  EXPECT_EQ(sizes.tx, 4096U);
  EXPECT_EQ(sizes.rx, 512U);
  Answer("DVSQOB_PortDataGet", Bytes(4));
  const Status status = GetStoredRingSizes("id-1", "50", &sizes);
  EXPECT_EQ(status.kind, Status::Kind::kInvalidResponse);
  EXPECT_STREQ(status.operation, "DVSQOB_PortDataGet");
}

TEST_F(Properties, ARecordIsStoredAsVersion0) {
  EXPECT_TRUE(SetPropertyRecord("id-1", "k", BurstSize{9, 64}).Ok());
  EXPECT_EQ(Calls(),
            R"({"op": "DVSQOB_HostPropSet", "args": {"switchId": {"text": "69642d31"}, "key": {"text": "6b"}, )"
            R"("value": {"bytes": "0000000040000000"}, "length": 8, "option": 16}})"
            "\n");
}

}  // namespace
