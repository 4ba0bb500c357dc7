#!/usr/bin/env python3
"""Names what a user can reach and has no comment, from the XML that doxygen makes.

Doxygen itself warns neither of an enumerator, a default constructor or a destructor without a
comment, nor of what lies in a namespace or a file without one, which it leaves out altogether.
"""

import sys
from pathlib import Path
from xml.etree import ElementTree


def has_text(element):
    """Whether a comment belongs to the element itself."""
    return any(element.find(f"{kind}description/para") is not None for kind in ("brief", "detailed"))


def place(element):
    location = element.find("location")
    return f"include/{location.get('file')}:{location.get('line', 1)}"


def gaps(compound):
    members = [m for m in compound.iter("memberdef") if m.get("prot") != "private"]
    for member in members:
        deleted = (member.findtext("argsstring") or "").endswith("=delete")
        if not deleted and not has_text(member):
            yield f"{place(member)}: {member.findtext('name')} has no comment"
        for value in member.iter("enumvalue"):
            if not has_text(value):
                yield f"{place(member)}: {value.findtext('name')} has no comment"
    if compound.get("kind") in ("file", "namespace") and members and not has_text(compound):
        name = compound.findtext("compoundname")
        yield f"{place(compound)}: {name} has no comment, and so its members are not shown"


def main(folder):
    for path in sorted(Path(folder).glob("*.xml")):
        for compound in ElementTree.parse(path).getroot().iter("compounddef"):
            if compound.get("prot") != "private":
                print(*gaps(compound), sep="\n")


if __name__ == "__main__":
    main(sys.argv[1])
