// Entry points of the module `_libryn` for native callers (C11 and C++).
//
// Status codes: 0 is success; 0x0BAD0003 no such switch; 0x0BAD0007 bad parameter, or a switch of another class.
// Areas belong to the caller unless said otherwise. None of the functions is safe to call with a null area.
#ifndef LIBRYN_H
#define LIBRYN_H

#include <stdint.h>

#define LIBRYN_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

typedef struct _object PyObject;  // as Python's header declares it

// ---- The configuration of the distributed switches ----------------------------------------------------------------

// Runs when the shared object is loaded and calls DVSLoadConfig; what comes of it is not reported.
LIBRYN_API void LibraryInit(void);

// Fills the switch-state library's in-process configuration from the host's current state. Returns the status of the
// step that failed, or of the last one. Aliases are resolved against the configuration as it was loaded.
LIBRYN_API uint32_t DVSLoadConfig(void);

// The switch-state library takes these from the object that loads it. They do nothing; Panic does not end the process.
LIBRYN_API void Log(const char* format, ...);
LIBRYN_API void Warning(const char* format, ...);
LIBRYN_API void Panic(const char* format, ...);

#define LIBRYN_SWITCH_ID_SIZE 64
#define LIBRYN_PORTSET_NAME_SIZE 128
#define LIBRYN_ALIAS_SIZE 128

// Copies the identifier of the switch with that alias, 64 bytes whatever its length; the last byte is always 0.
// 0x0BAD0003, 0x0BAD0007: `switchId` is not touched.
LIBRYN_API uint32_t DVSAliasToSwitchId(const char* alias, char* switchId);

// Writes the name by which the datapath knows the switch, filled up with NULs to 128 bytes; a name of 128 bytes or
// more is cut and NOT terminated. 0x0BAD0003: `portsetName` is not touched.
LIBRYN_API uint32_t DVSAliasToPortsetName(const char* alias, char* portsetName);

// Writes the alias of the switch whose portset name `portsetName` begins with, or `portsetName` itself when that switch
// has no alias: 128 bytes, an alias that fills them is not terminated. All zeros, with status 0, when there is no such
// switch. 0x0BAD0007 for a null or empty name: `alias` is not touched.
LIBRYN_API uint32_t DVSPortsetNameToAlias(const char* portsetName, char* alias);

// 1 when the switch-state library finds the distributed port, else 0. The arguments are handed on as they are.
LIBRYN_API int DVPortExist(uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, uintptr_t e, uintptr_t f);

// ---- Text of fixed layout -----------------------------------------------------------------------------------------
// Each writes at most `size` bytes including the terminating NUL, cuts off what does not fit, and writes nothing
// when `size` is 0.

// The words of a port's receive-filter flags, each followed by a blank.
LIBRYN_API void FlagsToStr(uint32_t flags, char* text, uint32_t size);

#define LIBRYN_FLOW_KEY_TEXT_SIZE 256

// The line of a flow key (64 bytes). `text` has room for 256 bytes.
LIBRYN_API void FCFlowKeyToStr(const void* key, char* text);

// The line of an actions record, whose own length field and instance count are trusted; `length` is not used.
// Returns 1 when there was an action or an instance left and no room to begin it, else 0.
LIBRYN_API int FCActionsToStr(const void* actions, char* text, uint32_t size, uint16_t length);

// The statistics of an actions record. The result is of no use.
LIBRYN_API int FCActionsStatsToStr(const void* actions, char* text, uint32_t size);

// ---- Python values ------------------------------------------------------------------------------------------------
// Each returns a new reference and wants the interpreter lock. On failure that is None, with a message on standard
// error or SystemError set.

// The session at *offset of a mirror configuration, as a dict; *offset moves to the next session. The counts of the
// record are trusted. On failure *offset stays. `header` is not used.
LIBRYN_API PyObject* PyRYN_CreateMirrorSession(const void* conf, uint32_t* offset, uint32_t header);

// The numbers of the bits set in a bitmap of 16 bytes, ascending, as a list of `count` ints; places left over hold
// None.
LIBRYN_API PyObject* PyRYN_CreatePortList(uint16_t count, const void* bitmap);

// `count` VLAN IDs of 16 bits each as a list of ints.
LIBRYN_API PyObject* PyRYN_CreateVlanList(uint16_t count, const void* vlans);

#define LIBRYN_NETQ_RESPONSE_SIZE 524288

// A network-queue response as a dict. `response` is a block of 524288 bytes from the standard allocator, owned by the
// function, which frees it on every path. `length` is not used.
LIBRYN_API PyObject* PyRYN_PortNetQInfo(void* response, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
