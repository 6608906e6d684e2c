"""Counts the loops in the output of `objdump -dC` for arm64, function by function, by what they do.

- vector: uses vector registers
- calls: calls a function for each frame or block, such as memcpy
- moves: moves samples one by one, or computes no samples
- arithmetic: computes samples one by one

A loop is what a backward branch repeats: all instructions on the paths from its target to the branch.
"""
import re
import sys
from collections import Counter, defaultdict
from typing import Iterator

INSTRUCTION = re.compile(r"^\s*([0-9a-f]+):\s+(\S+)\s*(.*)")
BRANCH = re.compile(r"^(b|b\..*|cbn?z|tbn?z)$")
VECTOR = re.compile(r"\bv\d+\.|\bq\d+\b")
ARITHMETIC = re.compile(r"^(f(?!mov)|[su]cvtf)")

Code = list[tuple[int, str, str]]


def loops(code: Code) -> Iterator[Code]:
    """Yields the instructions of each loop."""
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
            yield [code[i] for i in sorted(body)]


def kind(loop: Code) -> str:
    """Returns what a loop does, as named in the heading of the table."""
    if any(VECTOR.search(operands) for _, _, operands in loop):
        return "vector"
    if any(name in ("bl", "blr") for _, name, _ in loop):
        return "calls"
    return "arithmetic" if any(ARITHMETIC.match(name) for _, name, _ in loop) else "moves"


def short(function: str) -> str:
    """Returns a function's name without arguments, or that of the function that contains a lambda."""
    if lambda_of := re.search(r"(\w+)\([^()]*\)::\{lambda", function):
        return lambda_of[1]
    while (shorter := re.sub(r"<[^<>]*>|\([^()]*\)|\[clone[^]]*\]", "", function)) != function:
        function = shorter
    return function.split()[-1].removeprefix("pcm::")


def main() -> None:
    functions: list[tuple[str, Code]] = []
    for line in sys.stdin:
        if heading := re.match(r"^[0-9a-f]+ <(.*)>:$", line):
            functions.append((heading[1], []))
        elif instruction := INSTRUCTION.match(line):
            functions[-1][1].append((int(instruction[1], 16), instruction[2], instruction[3]))
    counts: dict[str, Counter[str]] = defaultdict(Counter)
    for function, code in functions:
        for loop in loops(code):
            counts[short(function)][kind(loop)] += 1
    kinds = ("vector", "calls", "moves", "arithmetic")
    print(f"{'loops in':30}" + "".join(f"{k:>11}" for k in kinds))
    for name, found in counts.items():
        print(f"{name:30}" + "".join(f"{found[k]:11}" for k in kinds))


main()
