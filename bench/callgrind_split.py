#!/usr/bin/env python3
"""Splits one callgrind dump of a benchmark case (scripts/bench --callgrind).

Usage: callgrind_split.py DUMP CALLS HOOK_OBJECT_SUBSTRING

Prints, per call: every instruction counted; the hook library's own (self
cost of its functions and PLT stubs); the library's with the C and C++
runtime work it asks for (string, map, stream, regex, formatting, locks);
and the stand-ins' (the benchmark's HAL functions, ShadowHook, log sink,
core, message centre, and the simulated platform's files and properties),
each with the runtime work it does itself.

The library's share with the runtime is the cost of the proxy calls (call
edges from the benchmark program into the library) less the cost of every
call from the library or the runtime into a stand-in. The benchmark's
counting allocator (malloc, calloc, realloc, free) counts as runtime.
"""
import re
import sys

RUNTIME = re.compile(r"^(libc\.so|libc\+\+|libm\.so|ld-linux|libgcc_s|libunwind|libstdc\+\+|\[vdso\]|vgpreload)")
ALLOCATOR = {"malloc", "calloc", "realloc", "free"}


def parse(path):
    """Self cost per object, and (caller object, callee object, callee
    function, inclusive cost) per call edge."""
    names = {"ob": {}, "fn": {}}
    self_cost = {}
    edges = []
    positions = 1
    ob = fn = ""
    cob = cfn = None
    pending_call = False

    def name_of(table, value):
        m = re.match(r"\((\d+)\)(?:\s+(.*))?$", value)
        if not m:
            return value
        if m.group(2) is not None:
            names[table][m.group(1)] = m.group(2)
        return names[table].get(m.group(1), "?")

    with open(path, encoding="utf-8", errors="replace") as f:
        for line in f:
            line = line.rstrip("\n")
            if not line:
                continue
            c = line[0]
            if c.isdigit() or c in "+-*":
                fields = line.split()
                cost = int(fields[positions]) if len(fields) > positions else 0
                if pending_call:
                    edges.append((ob, cob if cob is not None else ob, cfn, cost))
                    pending_call = False
                    cob = cfn = None
                else:
                    self_cost[ob] = self_cost.get(ob, 0) + cost
                continue
            key, _, value = line.partition("=")
            if key == "ob":
                ob = name_of("ob", value)
            elif key == "fn":
                fn = name_of("fn", value)
            elif key == "cob":
                cob = name_of("ob", value)
            elif key == "cfn":
                cfn = name_of("fn", value)
            elif key == "calls":
                pending_call = True
            elif line.startswith("positions:"):
                positions = len(line.split(":", 1)[1].split())
    del fn
    return self_cost, edges


def main():
    path, calls, hook = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    self_cost, edges = parse(path)

    def base(obj):
        return obj.rsplit("/", 1)[-1]

    def kind(obj, function=None):
        if hook in obj:
            return "hook"
        if RUNTIME.match(base(obj)):
            return "runtime"
        if function is not None and function in ALLOCATOR:
            return "runtime"
        return "stand-in"

    total = sum(self_cost.values())
    own = sum(cost for obj, cost in self_cost.items() if kind(obj) == "hook")
    proxy = sum(cost for caller, callee, _, cost in edges if kind(caller) == "stand-in" and kind(callee) == "hook")
    stand_ins = sum(
        cost
        for caller, callee, function, cost in edges
        if kind(caller) in ("hook", "runtime") and kind(callee, function) == "stand-in"
    )
    library = proxy - stand_ins if proxy else 0
    print(f"{total / calls:.1f} {own / calls:.1f} {library / calls:.1f} {stand_ins / calls:.1f}")


if __name__ == "__main__":
    main()
