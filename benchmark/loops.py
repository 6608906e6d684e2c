"""Lists the loops without vector instructions in the output of `objdump -d` for arm64.

A loop is what a backward branch repeats: all instructions on the paths from its target to the branch.
"""
import re
import sys
from collections import defaultdict

INSTRUCTION = re.compile(r"^\s*([0-9a-f]+):\s+(\S+)\s*(.*)")
BRANCH = re.compile(r"^(b|b\..*|cbn?z|tbn?z)$")
VECTOR = re.compile(r"\bv\d+\.|\bq\d+\b")


def loops(code: list[tuple[int, str, str]]):
    """Yields the instructions of each loop, as sorted positions in `code`."""
    position = {address: i for i, (address, _, _) in enumerate(code)}
    before = defaultdict(list)
    backward = defaultdict(list)
    for i, (_, name, operands) in enumerate(code):
        if name not in ("b", "br", "ret") and i + 1 < len(code):
            before[i + 1].append(i)
        target = re.search(r"([0-9a-f]+) <", operands) if BRANCH.match(name) else None
        start = position.get(int(target[1], 16)) if target else None
        if start is not None:
            before[start].append(i)
            if start <= i:
                backward[start].append(i)
    for start, ends in backward.items():
        body, pending = {start}, list(ends)
        while pending:
            i = pending.pop()
            if i not in body:
                body.add(i)
                pending += before[i]
        if start == 0 or 0 not in body:  # otherwise the branch joins two paths
            yield sorted(body)


def main() -> None:
    functions = []
    for line in sys.stdin:
        if heading := re.match(r"^[0-9a-f]+ <(.*)>:$", line):
            functions.append((heading[1], []))
        elif instruction := INSTRUCTION.match(line):
            functions[-1][1].append((int(instruction[1], 16), instruction[2], instruction[3]))
    count = 0
    for name, code in functions:
        for body in loops(code):
            count += 1
            if not any(VECTOR.search(code[i][2]) for i in body):
                print(f"{name}: {len(body)} instructions")
                if "-v" in sys.argv:
                    print("".join(f"    {code[i][0]:x}: {code[i][1]} {code[i][2]}\n" for i in body), end="")
    print(f"{count} loops in {len(functions)} functions")


main()
