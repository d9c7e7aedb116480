#!/usr/bin/env python3
"""Converts a header's plain comments to Doxygen's: filter.py HEADER

The first comment documents the file, and also its first type if that has no comment. Every other
comment documents all declarations after it, up to the next blank line or comment, but a destructor
only right after it. A comment at the end of a line documents the declaration on this line. Indented
lines of a comment are shown verbatim.
"""
import re
import sys
from pathlib import Path


def escaped(text):
    """Returns the text with Doxygen's commands escaped. Doxygen itself skips text in backticks."""
    parts = re.split("(`[^`]*`)", text)
    parts[::2] = [re.sub(r'[\\@<>#%"&]', r"\\\g<0>", part) for part in parts[::2]]
    return "".join(parts)


def converted(lines, opening):
    """Returns the lines as a Doxygen comment."""
    body = []
    for is_indented, group in grouped(lines, lambda line: line[:2] == "  "):
        if is_indented:
            body += ["@verbatim", *group, "@endverbatim"]
        else:
            body += escaped("\n".join(group)).split("\n")
    return "\n".join([opening, *body, "*/"])


def grouped(lines, key):
    groups = []
    for line in lines:
        if not groups or groups[-1][0] != key(line):
            groups.append((key(line), []))
        groups[-1][1].append(line)
    return groups


def parts_of(text):
    """Yields the parts of the text in order, as (kind, content): "comment" is a block of comment lines,
    "code" a line of code, "behind" a line of code with a comment at its end."""
    block = r"[ ]*/\*(?P<block>.*?)\*/[ ]*\n"
    lines = r"(?P<lines>(?:[ ]*//[^\n]*\n)+)"
    behind = r"(?P<code>[^\n]*?[^\s/*][^\n]*?)[ ]+(?://[ ](?P<a>[^\n]*)|/\*(?P<b>[^\n]*)\*/)\n"
    for match in re.finditer(rf"(?s){block}|{lines}|{behind}|(?P<plain>[^\n]*)\n", text):
        if match["block"] is not None:
            yield "comment", re.sub(r"(?m)^ \* ?", "", match["block"].strip()).split("\n")
        elif match["lines"]:
            yield "comment", [re.sub("^ *// ?", "", line) for line in match["lines"].split("\n")[:-1]]
        elif match["code"]:
            yield "behind", (match["code"], (match["a"] or match["b"]).strip())
        else:
            yield "code", match["plain"]


def filtered(path):
    out, is_first, about_file = [], True, None
    comment, depth = None, 0  # the comment that applies; the number of open braces
    comment_depth, is_open = 0, False  # the depth of the comment; whether a declaration continues
    is_fresh = False  # whether the comment is on the line before
    for kind, content in parts_of(path.read_text()):
        if kind == "comment":
            opening = f"/** @file {'/'.join(path.parts[-2:])}\n" if is_first else "/**"
            if is_first:
                out.append(converted(content, opening))
                about_file = content
            else:
                comment, comment_depth = content, depth
            is_first, is_fresh = False, True
            continue
        code, behind = content if kind == "behind" else (content, None)
        word = code.strip()
        if word.endswith("= delete;"):
            continue
        if not word and depth <= comment_depth:
            comment = None
        is_code = word and word[0] not in "}#" or word.startswith("#define ")
        if word.startswith("static_assert") or word[:1] == "~" and not is_fresh:
            is_code = False
        if behind and is_code:
            code += " " + converted([behind], "/**<").replace("\n", " ")
        elif comment and is_code and not is_open and depth == comment_depth:
            out.append(converted(comment, "/**"))
        if re.match(r"(class|(typedef )?struct) .*{$", code):
            if about_file and not comment:
                out.append(converted(about_file, "/**"))
            about_file = None
        if word and word[0] != "#":
            is_open = word[-1] not in ";,{}:"
            depth += word.count("{") - word.count("}")
        out.append(code)
        is_fresh = False
    return "\n".join(out) + "\n"


print(filtered(Path(sys.argv[1])), end="")
