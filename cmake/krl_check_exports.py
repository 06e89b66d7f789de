#!/usr/bin/env python3
"""Checks an installed tree: every function and static data member that the
installed headers declare and do not define inline must be a defined dynamic
symbol of the installed shared library, and no such declaration may live in
namespace krl_internal. A declaration that fails this links against the
static library and fails against the shared one.

usage: krl_check_exports.py CLANGXX INCLUDE_DIR SHARED_LIBRARY NM

The declarations come from clang's JSON syntax tree of one translation unit
that includes every installed header; their mangled names are compared with
`nm -D --defined-only` of the library. Templates, inline, deleted, defaulted
and pure virtual functions, functions with internal linkage and the private
constructor of a class without data members (it only forbids instances) have
no symbol of their own and are not looked at.
"""
import json
import os
import subprocess
import sys
import tempfile

FUNCTION_KINDS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl",
                  "CXXDestructorDecl", "CXXConversionDecl"}
TEMPLATE_KINDS = {"ClassTemplateDecl", "FunctionTemplateDecl",
                  "ClassTemplatePartialSpecializationDecl",
                  "ClassTemplateSpecializationDecl", "TypeAliasTemplateDecl"}


def main():
    clangxx, include_dir, library, nm = sys.argv[1:5]
    include_dir = os.path.realpath(include_dir)
    headers = sorted(
        os.path.relpath(os.path.join(d, f), include_dir)
        for d, _, files in os.walk(include_dir) for f in files if f.endswith(".h"))
    if not headers:
        sys.exit("no header under " + include_dir)
    with tempfile.NamedTemporaryFile("w", suffix=".cpp", delete=False) as tu:
        tu.write("".join('#include "%s"\n' % h for h in headers))
    try:
        dump = subprocess.run(
            [clangxx, "-std=c++17", "-fsyntax-only", "-Xclang", "-ast-dump=json",
             "-I" + include_dir, tu.name],
            check=True, stdout=subprocess.PIPE).stdout
    finally:
        os.unlink(tu.name)
    tree = json.loads(dump)

    symbols = set(subprocess.run(
        [nm, "-D", "--defined-only", "--format=just-symbols", library],
        check=True, stdout=subprocess.PIPE, text=True).stdout.split())

    # clang writes a location's file only where it differs from the previous
    # location's, so the file is tracked in document order.
    state = {"file": None}
    declared = []  # (file, line, qualified name, mangled name, internal)
    inline = set()  # mangled names defined in a header, in or out of class

    def note(loc):
        if isinstance(loc, dict):
            if "file" in loc:
                state["file"] = loc["file"]
            for k in ("spellingLoc", "expansionLoc"):
                note(loc.get(k))

    def has_symbol(node, scope):
        if node.get("isImplicit") or node.get("pure"):
            return False
        if node.get("storageClass") == "static" and not scope["class"]:
            return False
        if scope["template"] or scope["anonymous"] or scope["local"]:
            return False
        # The private constructor of a class without data members only
        # forbids instances; it is never defined.
        if (node.get("kind") == "CXXConstructorDecl" and scope["access"] == "private"
                and not scope["fields"]):
            return False
        return True

    def defined_here(node):
        # A body in a header makes a function inline; one at namespace scope
        # without `inline` would be an error of its own, found by the linker.
        return (node.get("inline") or node.get("explicitlyDeleted")
                or node.get("explicitlyDefaulted")
                or any(c.get("kind") == "CompoundStmt" for c in node.get("inner", [])))

    def walk(node, scope):
        note(node.get("loc"))
        here = state["file"]
        rng = node.get("range") or {}
        note(rng.get("begin"))
        note(rng.get("end"))
        kind = node.get("kind")
        inside = here and os.path.realpath(here).startswith(include_dir + os.sep)
        name = node.get("name", "")
        if inside and kind in FUNCTION_KINDS and defined_here(node):
            inline.add(node.get("mangledName"))
        if inside and "mangledName" in node and (
                kind in FUNCTION_KINDS and has_symbol(node, scope)
                or kind == "VarDecl" and scope["class"] and not scope["template"]
                and node.get("storageClass") == "static" and not node.get("inline")
                and not node.get("constexpr")):
            declared.append((os.path.relpath(here, include_dir), node["loc"].get("line", "?"),
                             "::".join(scope["names"] + [name]), node["mangledName"],
                             "krl_internal" in scope["names"]
                             or node["mangledName"].startswith("_ZN12krl_internal")))
        child = dict(scope)
        if kind in TEMPLATE_KINDS:
            child["template"] = True
        if kind == "NamespaceDecl":
            child["names"] = scope["names"] + [name or "(anonymous)"]
            child["anonymous"] = scope["anonymous"] or not name
        if kind in ("CXXRecordDecl", "ClassTemplateSpecializationDecl"):
            child["names"] = scope["names"] + [name]
            child["class"] = True
            child["fields"] = any(c.get("kind") == "FieldDecl" for c in node.get("inner", []))
        if kind in FUNCTION_KINDS:
            child["local"] = True
        if child["class"] and kind != "CXXRecordDecl" or kind in FUNCTION_KINDS:
            child["access"] = None
        elif kind == "CXXRecordDecl":
            child["access"] = "public" if node.get("tagUsed") in ("struct", "union") else "private"
        for c in node.get("inner", []):
            if c.get("kind") == "AccessSpecDecl":
                child["access"] = c.get("access")
            walk(c, child)

    walk(tree, {"names": [], "template": False, "anonymous": False, "class": False,
                "fields": False, "local": False, "access": None})

    failures = 0
    seen = set()
    for f, line, qname, mangled, internal in declared:
        if mangled in inline or mangled in seen:
            continue
        seen.add(mangled)
        if internal:
            print("%s:%s: %s is internal (krl_internal) but installed" % (f, line, qname))
            failures += 1
        elif mangled not in symbols:
            print("%s:%s: %s (%s) is not exported by %s" % (f, line, qname, mangled,
                                                              os.path.basename(library)))
            failures += 1
    print("%d headers, %d declarations with a symbol of their own, %d not exported"
          % (len(headers), len(seen), failures))
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
