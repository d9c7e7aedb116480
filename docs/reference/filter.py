#!/usr/bin/env python3
"""Turns a header's plain comments into Doxygen's: filter.py HEADER

The first comment is the file's, and that of its first type if this has none of its own. Every other
one stands before what it is about and holds for all declarations up to the next blank line or
comment, or stands behind it on the same line. Lines of a comment that are indented are shown as they
stand.
"""
import re
import sys
from pathlib import Path


def escaped(text):
    """The text, of which Doxygen takes nothing for a command; what is in backticks it leaves alone."""
    parts = re.split("(`[^`]*`)", text)
    parts[::2] = [re.sub(r'[\\@<>#%"&]', r"\\\g<0>", part) for part in parts[::2]]
    return "".join(parts)


def converted(lines, opening):
    """The comment of these lines as one of Doxygen's."""
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
    """The text in its order, each part a comment, a line of code, or what stands between the two:
    (kind, content)."""
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
    comment, depth = None, 0  # the comment that holds, and the braces that are open
    comment_depth, is_open = 0, False  # where it holds; whether a declaration goes on
    for kind, content in parts_of(path.read_text()):
        if kind == "comment":
            opening = f"/** @file {'/'.join(path.parts[-2:])}\n" if is_first else "/**"
            if is_first:
                out.append(converted(content, opening))
                about_file = content
            else:
                comment, comment_depth = content, depth
            is_first = False
            continue
        code, behind = content if kind == "behind" else (content, None)
        word = code.strip()
        if word.endswith("= delete;"):
            continue
        if not word and depth <= comment_depth:
            comment = None
        is_code = word and word[0] not in "}#" or word.startswith("#define ")
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
    return "\n".join(out) + "\n"


print(filtered(Path(sys.argv[1])), end="")
