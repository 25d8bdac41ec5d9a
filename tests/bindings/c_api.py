#!/usr/bin/env python3
"""c_api.py [HEADER] prints tavrel.h as clang reads it, for the bindings' drift checks, as JSON:
{"functions": {name: {"result": C type, "params": [C type...]}}, "callbacks": the same,
 "enums": {name: {constant: value}}, "structs": {name: [[field, C type]...]}, "variables": {name: C type}}.
"""
import json
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_HEADER = os.path.join(HERE, "..", "..", "include", "tavrel_sdk", "tavrel.h")


def _type(node):
    return node["type"]["qualType"]


def load(header=DEFAULT_HEADER):
    ast = json.loads(subprocess.run(
        ["clang", "-Xclang", "-ast-dump=json", "-fsyntax-only", "-x", "c", "-std=c99", header],
        check=True, capture_output=True, text=True).stdout)
    api = {"functions": {}, "callbacks": {}, "enums": {}, "structs": {}, "variables": {}}
    for node in ast["inner"]:
        name = node.get("name", "")
        if not name.startswith("tavrel_") or node.get("isImplicit"):
            continue
        children = node.get("inner", [])
        if node["kind"] == "FunctionDecl":
            api["functions"][name] = {
                "result": _type(node).split("(")[0].strip(),
                "params": [_type(p) for p in children if p["kind"] == "ParmVarDecl"],
            }
        elif node["kind"] == "VarDecl":
            api["variables"][name] = _type(node)
        elif node["kind"] == "EnumDecl":
            api["enums"][name] = {c["name"]: int(c["inner"][0]["value"]) if c.get("inner") else None
                                  for c in children if c["kind"] == "EnumConstantDecl"}
        elif node["kind"] == "TypedefDecl" and "(*)" in _type(node):
            result, params = _type(node).split("(*)")
            api["callbacks"][name] = {"result": result.strip(),
                                      "params": [p.strip() for p in params.strip("()").split(",")]}
        elif node["kind"] == "RecordDecl" and node.get("completeDefinition"):
            api["structs"][name] = [[f["name"], _type(f)] for f in children if f["kind"] == "FieldDecl"]
    # An enum constant without an explicit value follows the one before it.
    for constants in api["enums"].values():
        previous = -1
        for constant, value in constants.items():
            constants[constant] = previous = previous + 1 if value is None else value
    return api


def compare(api, bound, matches):
    """A binding's declarations against the header's, both ways, as a list of faults. bound: {kind: {C name:
    [signature...]}}, a signature (an overload) the binding's types: result then parameters, or the fields'."""
    faults = []
    for kind, declarations in bound.items():
        header = {name: [d["result"], *d["params"]] if kind != "structs" else [t for _, t in d]
                  for name, d in api[kind].items()}
        faults += [f"{name}: not bound" for name in sorted(header.keys() - declarations.keys())]
        faults += [f"{name}: bound, not in the header" for name in sorted(declarations.keys() - header.keys())]
        for name in sorted(header.keys() & declarations.keys()):
            c = header[name]
            for types in declarations[name]:
                if len(types) != len(c) or not all(matches(name, i, *pair) for i, pair in enumerate(zip(c, types))):
                    faults.append(f"{name}: {types} does not cross as {c}")
    return faults


def report(faults, summary):
    print("\n".join([*faults, f"{summary}, {len(faults)} faults"]))
    return 1 if faults else 0


if __name__ == "__main__":
    json.dump(load(sys.argv[1] if len(sys.argv) > 1 else DEFAULT_HEADER), sys.stdout, indent=1, sort_keys=True)
    print()
