// Fetching the host's state and loading it, with the former state as a way back.
#include "host/config.h"
#include "support.h"

namespace {

class Config : public HostTest {
 protected:
  HostState Fetch(std::string_view text) {
    Answer("DVSQOB_StateGet", Bytes(text.size()).Text(0, text));
    HostState state;
    EXPECT_TRUE(FetchState(&state).Ok());
    EXPECT_EQ(state.length, text.size());
    Calls();
    return state;
  }

  static std::string Reset() { return "{\"op\": \"DVSState_ConfigReset\", \"args\": {}}\n"; }
  static std::string Load(const char* hex) {
    return std::string("{\"op\": \"DVSState_ConfigDeserialize\", \"args\": {\"state\": {\"bytes\": \"") + hex +
           "\"}, \"length\": 3}}\n";
  }
};

TEST_F(Config, AStateIsFetchedAndLoaded) {
  const HostState state = Fetch("new");
  EXPECT_TRUE(LoadState(state).Ok());
  EXPECT_EQ(Calls(), Reset() + Load("6e6577"));
}

TEST_F(Config, AFailedFetchKeepsTheState) {
  HostState state = Fetch("old");
  Fail("DVSQOB_StateGet", 8);
  const Status status = FetchState(&state);
  EXPECT_EQ(status.code, 8U);
  EXPECT_STREQ(status.operation, "DVSQOB_StateGet");
  EXPECT_EQ(std::string_view(static_cast<const char*>(state.bytes.get()), state.length), "old");
}

TEST_F(Config, AFailedLoadGoesBackToTheFormerState) {
  const HostState former = Fetch("old"), next = Fetch("new");
  Fail("DVSState_ConfigDeserialize", 8, 1);
  const Status status = LoadState(next, &former);
  EXPECT_EQ(status.code, 8U);
  EXPECT_STREQ(status.operation, "DVSState_ConfigDeserialize");
  EXPECT_EQ(Calls(), Reset() + Load("6e6577") + Reset() + Load("6f6c64"));
}

TEST_F(Config, AFailedResetGoesBackToo) {
  const HostState former = Fetch("old"), next = Fetch("new");
  Fail("DVSState_ConfigReset", 5, 1);
  const Status status = LoadState(next, &former);
  EXPECT_EQ(status.code, 5U);
  EXPECT_STREQ(status.operation, "DVSState_ConfigReset");
  EXPECT_EQ(Calls(), Reset() + Reset() + Load("6f6c64"));
}

TEST_F(Config, WithoutAFormerStateAFailureIsTheEnd) {
  const HostState next = Fetch("new");
  Fail("DVSState_ConfigDeserialize", 8);
  EXPECT_EQ(LoadState(next).code, 8U);
  EXPECT_EQ(Calls(), Reset() + Load("6e6577"));
}

TEST_F(Config, AtTheStartAFailedFetchLeavesTheConfigurationEmpty) {
  Fail("DVSQOB_StateGet", 8);
  EXPECT_STREQ(FetchAndLoadState().operation, "DVSQOB_StateGet");
  EXPECT_EQ(Calls(), Reset() + "{\"op\": \"DVSQOB_StateGet\", \"args\": {\"stateIsNull\": 1}}\n");
}

TEST_F(Config, AtTheStartTheStepsComeInOrder) {
  Answer("DVSQOB_StateGet", Bytes(3).Text(0, "new"));
  EXPECT_TRUE(FetchAndLoadState().Ok());
  EXPECT_EQ(Calls(), Reset() + "{\"op\": \"DVSQOB_StateGet\", \"args\": {\"stateIsNull\": 1}}\n" + Load("6e6577"));
  Fail("DVSState_ConfigReset", 5);
  EXPECT_EQ(FetchAndLoadState().code, 5U);
  EXPECT_EQ(Calls(), Reset());
}

}  // namespace
