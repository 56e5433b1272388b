"""The library from Python: records declared by the list of their fields, a callback, a table."""

import ctypes
import math
import re
import sys
from ctypes import CFUNCTYPE, POINTER, c_char, c_char_p, c_double, c_int, c_void_p

library_file, field_list, header = sys.argv[1:]
tx = ctypes.CDLL(library_file)
doubles = POINTER(c_double)
right_hand_side = CFUNCTYPE(None, c_double, doubles, doubles)

types = {
    "double": c_double,
    "int": c_int,
    "double_pointer": doubles,
    "double_rows": POINTER(doubles),
    "int_pointer": POINTER(c_int),
    "three_ints": c_int * 3,
    "short_text": c_char * 16,
}
fields = {"Trajex": [], "TrajexBif": []}
with open(field_list, encoding="ascii") as lines:
    for record, kind, name in re.findall(r"FIELD\((\w+), (\w+), (\w+)\)", lines.read()):
        fields[record].append((name, types.get(kind, c_void_p)))


class Trajex(ctypes.Structure):
    _fields_ = fields["Trajex"]


class TrajexBif(ctypes.Structure):
    _fields_ = fields["TrajexBif"]


tx.TXOpenTrajex.restype = POINTER(Trajex)
tx.TXOpenTrajex.argtypes = [right_hand_side, c_int, c_double, c_double]
tx.TXIntegrate.argtypes = [POINTER(Trajex), doubles, c_double, doubles]
tx.TXSetMaxNewtSteps.argtypes = [POINTER(Trajex), c_int]
tx.TXCreateBif.restype = POINTER(TrajexBif)
tx.TXCreateBif.argtypes = [POINTER(Trajex)]
tx.TXDestroyBif.argtypes = [POINTER(Trajex), POINTER(TrajexBif)]
tx.TXCloseTrajex.argtypes = [POINTER(Trajex)]


@right_hand_side
def decay(_t, y, f):
    f[0] = -y[0]


handle = tx.TXOpenTrajex(decay, 1, 1e-10, 0.01)
settings = handle.contents
assert (settings.order, settings.RelTol, settings.h) == (1, 1e-10, 0.01)
assert (settings.MaxPeriodSteps, settings.TerminateOnFatalError) == (1000, 1)

t, y = c_double(0), (c_double * 1)(1)
assert tx.TXIntegrate(handle, t, 1.0, y) == 1
assert abs(y[0] - math.exp(-1)) < 1e-8
assert settings.tlast >= 1 > settings.tfirst >= 0
assert settings.StepTaken == 1

assert tx.TXSetMaxNewtSteps(handle, -1) == 0
assert settings.ErrorCode == 1

bifurcation = tx.TXCreateBif(handle)
assert bifurcation.contents.order == 1
assert bifurcation.contents.tx == ctypes.addressof(settings)
assert tx.TXDestroyBif(handle, bifurcation) == 1

messages = (c_char_p * 31).in_dll(tx, "TrajexFatalError")
with open(header, encoding="utf-8") as lines:
    documented = re.findall(r"^ \* \| +(\d+) \| ([^|]+) \|", lines.read(), re.MULTILINE)
assert [(int(code), message.encode()) for code, message in documented] == list(enumerate(messages))
assert tx.TXCloseTrajex(handle) == 1
