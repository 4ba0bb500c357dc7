#!/usr/bin/env python3
"""Lists what programs compile in of the library's types.

That is the sizes of classes, their members and virtual functions, and the values of enumerators.

usage: abi_layout.py ABIXML

ABIXML is abidw's, of types that the exported headers define.
"""

import sys
from xml.etree import ElementTree

SCOPES = ("namespace-decl", "class-decl")


def types(element, scope=()):
    """Each class and enumeration below the element, with its qualified name."""
    for child in element:
        name = scope + (child.get("name", ""),)
        if child.tag in ("class-decl", "enum-decl") and child.get("is-declaration-only") != "yes":
            yield "::".join(name), child
        yield from types(child, name if child.tag in SCOPES else scope)


def lines(kind):
    if kind.tag == "enum-decl":
        for value in kind.iter("enumerator"):
            yield f"{value.get('name')} = {value.get('value')}"
        return
    yield f"{int(kind.get('size-in-bits')) // 8} bytes"
    for base in kind.findall("base-class"):
        yield f"base at {int(base.get('layout-offset-in-bits')) // 8}"
    for member in kind.findall("data-member"):
        if member.get("static") != "yes":
            offset = int(member.get("layout-offset-in-bits")) // 8
            yield f"{member.find('var-decl').get('name')} at {offset}"
    virtual = {}
    for function in kind.findall("member-function"):
        if function.get("vtable-offset") is not None:
            virtual[int(function.get("vtable-offset"))] = function.find("function-decl").get("name")
    for slot in sorted(virtual):
        yield f"virtual {slot}: {virtual[slot]}"


def main(path):
    known = {}
    for name, kind in types(ElementTree.parse(path).getroot()):
        if name.startswith("JCam::"):
            listed = list(lines(kind))
            if len(listed) > len(known.get(name, [])):
                known[name] = listed
    for name in sorted(known):
        print(name, *known[name], sep="\n    ")


if __name__ == "__main__":
    main(sys.argv[1])
