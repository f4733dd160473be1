#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every block of C++ in the client's guide is a part of a program that is built and run.

A block is introduced by a line `<!-- FILE [NAME] -->` and is what stands in FILE between two lines
`// [NAME]`, less the indentation.
Argument: the folder of the sources. Exit code 1 and a sentence for each block that is not.
"""
import difflib
import pathlib
import re
import sys
import textwrap


def marked(path, name):
    parts = re.split(rf"^ *// \[{name}\]\n", path.read_text(), flags=re.MULTILINE)
    return textwrap.dedent(parts[1]) if len(parts) == 3 else None


def main():
    root = pathlib.Path(sys.argv[1])
    guide = (root / "docs/client-guide.md").read_text()
    blocks = re.findall(r"(?:<!-- (\S+) \[(\w+)\] -->\n)?```cpp\n(.*?)```", guide, flags=re.DOTALL)
    wrong = 0 if blocks else 1
    for file, name, text in blocks:
        code = marked(root / file, name) if file else None
        if code == text:
            continue
        wrong += 1
        print(f"client-guide.md: this block is not [{name}] of {file or 'any program'}:")
        print("".join(difflib.unified_diff((code or "").splitlines(True), text.splitlines(True))))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
