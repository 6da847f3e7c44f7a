// The control side of the platform double: scripts what the operations answer and tells how they were called.
//
// The double replaces both platform libraries. Every operation answers status 0 and fills nothing until a script says
// otherwise. All state is the process's; double_reset() clears it, the switches included. Not for use by several
// threads.
//
// What the operations do while the module is loaded, before any of this can be called, comes from the environment:
// RYN_DOUBLE_LOAD holds settings separated by commas. reset=N, stateget=N and deserialize=N are the status codes of
// DVSState_ConfigReset, DVSQOB_StateGet and DVSState_ConfigDeserialize, state=HEX is the block that DVSQOB_StateGet
// hands out, and log=1 lets DVSState_ConfigReset call Log, Warning and Panic.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DoubleAnswer {
  uint32_t status;
  int32_t times;  // the calls that it answers, one after the other; -1: every call for which no counted answer is left
  const void*
      area;  // what the operation stores: the output area, or a fresh block for the operations that hand out one
  size_t size;
  int64_t length;   // the new value of the length word; -1 leaves it alone (a handed-out block: its true length)
  int32_t overrun;  // not 0: store all bytes even where the area has no room for them
} DoubleAnswer;

void double_reset(void);
void double_answer(const char* operation, const DoubleAnswer* answer);

// The next call of the operation that no counted answer is left for writes a byte to `entered`, then waits until it can
// read one from `go_on`, or finds its end. It is answered and recorded after that.
void double_hold(const char* operation, int entered, int go_on);

// While recording is off, an operation allocates nothing but the blocks that it hands out.
void double_recording(int on);

// The recorded calls, one JSON object a line: {"op": NAME, "args": {NAME: VALUE, ...}}. A value is a number, a list of
// numbers, null, true or false, {"text": HEX} or {"bytes": HEX}. "length" is the length word as it came in; "zeroed"
// tells whether the output area came in all zero. Valid until the next operation or control call.
const char* double_calls(void);
void double_forget_calls(void);

// Switches of the loaded configuration. The identifier's block has 64 bytes, NULs behind a shorter one, or as many
// as it is long, without a NUL. Property values are kept in blocks of their exact length. Behind
// either there is a page that cannot be read.
int double_add_switch(const char* alias, const char* class_name, const void* id, size_t id_size);
void double_add_property(int dvs, int global, const char* name, const void* value, size_t size);
void double_visit_all(int on);  // iterations go on after a visitor's true
void double_find_port(int on);  // DVSState_PortFind finds a port
void double_log_hooks(int on);  // DVSState_ConfigReset calls Log, Warning and Panic

// Blocks that DVSQOB_HostPropGet and DVSQOB_PortDataGet handed out, and how many of them DVSQOB_DataFree took back
uint64_t double_blocks_out(void);
uint64_t double_blocks_freed(void);

#ifdef __cplusplus
}
#endif
