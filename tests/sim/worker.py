"""A process that uses a simulated host: reads one call a line, answers one line.

A call is {"state": FILE, "calls": [[NAME, ARGUMENT, ...], ...]} in JSON; a name is a method of _libryn, an operation of
the stand-ins with a leading "=" (an int stays one, a str is a NUL-terminated text, {"area": SIZE} an area with its
length word behind it, {"out": SIZE} an area without one; "guard" sets so many bytes behind the area, and "intact" says
whether they stayed as they were), or one of the words below. The answer is {"values": [...], "stderr": TEXT}; a value
that JSON does not have is written as Python writes it.
"""

import ctypes
import json
import os
import sys
import time

import _libryn

ryn = ctypes.CDLL("libryn.so")
sim = ctypes.CDLL("libryn_sim.so")  # the tool's way to the host
sim.ryn_sim_now_ms.restype = ctypes.c_int64
sim.ryn_sim_rates.restype = ctypes.c_void_p
jor = ctypes.CDLL("libjorPublic.so")  # is loaded already: it takes Log, Warning and Panic from the module
GUARD = b"\xa5"


def raw(operation: str, *arguments) -> dict:
    """Calls an operation of a stand-in; answers its status and the bytes of its areas."""
    native: list = []
    areas: list = []
    for argument in arguments:
        if isinstance(argument, dict):
            size, guard = argument.get("area", argument.get("out")), argument.get("guard", 0)
            area = ctypes.create_string_buffer(bytes(size) + GUARD * guard, size + guard)
            native.append(area)
            areas.append((area, ctypes.c_uint32(size), size))
            if "area" in argument:
                native.append(ctypes.byref(areas[-1][1]))
        elif isinstance(argument, list):
            native.append((ctypes.c_uint32 * max(1, len(argument)))(*argument))
        elif isinstance(argument, str):
            native.append(argument.encode())
        else:
            native.append(ctypes.c_uint32(argument))
    library = jor if operation.startswith("DVS") else ryn
    status = getattr(library, operation)(*native) & 0xFFFFFFFF
    return {
        "status": status,
        "lengths": [length.value for _, length, _ in areas],
        "areas": [area.raw[:size].hex() for area, _, size in areas],
        "intact": all(set(area.raw[size:]) <= set(GUARD) for area, _, size in areas),
    }


def perform(name: str, *arguments):
    if name == "apply":  # SQL, through the stand-ins
        return sim.ryn_sim_apply(arguments[0].encode()) & 0xFFFFFFFF
    if name == "methods":
        return [name for name in dir(_libryn) if not name.startswith("_")]
    if name == "rates":  # of the moment
        text = sim.ryn_sim_rates()
        try:
            return json.loads(ctypes.string_at(text))
        finally:
            sim.ryn_sim_free(ctypes.c_void_p(text))
    if name == "now_ms":
        return sim.ryn_sim_now_ms()
    if name == "fork":  # the same calls in a child; True: it ended well
        child = os.fork()
        if child == 0:
            listed = _libryn.ListPorts(0) is not None
            _libryn.SetLBWeights(*[7] * 8)
            os._exit(0 if listed else 1)
        return os.waitpid(child, 0)[1] == 0
    if name == "quiet":  # a call that may fail in any way that Python knows
        try:
            perform(*arguments)
        except Exception as error:
            return repr(error)
        return None
    if name == "unanswered":  # those of the calls that answer None
        return [call for call in arguments if perform(*call) is None]
    if name == "time":  # seconds that the calls took
        started = time.perf_counter()
        for call in arguments:
            perform(*call)
        return time.perf_counter() - started
    if name.startswith("="):
        return raw(name[1:], *arguments)
    return getattr(_libryn, name)(*(tuple(a) if isinstance(a, list) else a for a in arguments))


def main() -> None:
    answers = os.fdopen(os.dup(1), "w")
    os.dup2(2, 1)
    messages = os.memfd_create("stderr")
    os.dup2(messages, 2)
    for line in sys.stdin:
        request = json.loads(line)
        os.environ["RYN_SIM_STATE"] = request["state"]
        values = [perform(*call) for call in request["calls"]]
        sys.stderr.flush()
        length = os.lseek(messages, 0, os.SEEK_CUR)
        text = os.pread(messages, length, 0).decode()
        os.lseek(messages, 0, os.SEEK_SET)
        os.ftruncate(messages, 0)
        print(json.dumps({"values": values, "stderr": text}, default=repr), file=answers, flush=True)


main()
