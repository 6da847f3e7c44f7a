// Without memory: a status of its own, nothing called that was not called before, nothing lost.
#include <cstdlib>

#include "host/names.h"
#include "host/read/backend.h"
#include "host/read/ports.h"
#include "host/read/uplinks.h"
#include "support.h"

namespace {

int allocations_left = -1;  // of host/; -1: as many as it likes

bool IsExhausted() { return allocations_left == 0 || (allocations_left > 0 && allocations_left-- == 0); }

}  // namespace

// The linker lets these stand in for the two functions that host/ allocates with.
extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return IsExhausted() ? nullptr : __real_calloc(count, size);
}
void* __wrap_realloc(void* block, std::size_t size) { return IsExhausted() ? nullptr : __real_realloc(block, size); }
}

namespace {

class Allocations : public HostTest {
 protected:
  // The status of a call for which `left` allocations succeed.
  template <class Call>
  static Status With(int left, Call call) {
    Calls();
    allocations_left = left;
    const Status status = call();
    allocations_left = -1;
    return status;
  }

  template <class Call>
  static void ExpectNoMemory(const char* operation, Call call) {
    const Status status = With(0, call);
    EXPECT_EQ(status.kind, Status::Kind::kNoMemory);
    EXPECT_STREQ(status.operation, operation);
    EXPECT_EQ(Calls(), "");
  }
};

TEST_F(Allocations, OfLargeRecordsFailBeforeTheCall) {
  HeapArea<PortMacTable> port;
  ExpectNoMemory("Ryn_Dump_Port_MAC_Table", [&] { return DumpPortMACTable(1, 2, &port); });
  HeapArea<SwitchMacTable> all;
  ExpectNoMemory("Ryn_Dump_Switch_MAC_Table", [&] { return DumpSwitchMACTable(1, &all); });
  HeapArea<NetQResponse> response;
  ExpectNoMemory("Ryn_Get_Port_NetQ_Info", [&] { return GetPortNetQInfo(1, 2, &response); });
  PrivateStats stats;
  ExpectNoMemory("Ryn_Get_Uplink_Priv_Stats", [&] { return GetUplinkPrivStats(1, 2, 8, &stats); });
}

TEST_F(Allocations, OfADirectoryFailAtAnyPlaceAndLeaveItEmpty) {
  for (int i = 0; i < 3; ++i) {
    const int dvs = AddSwitch("dvs", "id");
    AddAlias(dvs, std::string(100, 'a'));
    AddPortset(dvs, std::string(1000, 'p'));
  }
  int left = 0;
  for (;; ++left) {
    SwitchDirectory directory;
    const Status status = With(left, [&] { return directory.Read(); });
    if (status.Ok()) {
      EXPECT_EQ(directory.Size(), 3U);
      break;
    }
    EXPECT_EQ(status.kind, Status::Kind::kNoMemory);
    EXPECT_STREQ(status.operation, "DVSState_SwitchForEach");
    EXPECT_EQ(directory.Size(), 0U);
    EXPECT_TRUE(directory.Read().Ok());  // and is of use again
    EXPECT_EQ(directory.Size(), 3U);
  }
  EXPECT_GT(left, 3);
}

TEST(Backend, OfTheDoubleIsNotSimulated) { EXPECT_FALSE(IsSimulated()); }

}  // namespace
