"""Prints the outcomes of the fault tests as Markdown: fault_table.py FILE.

A line of FILE has five fields: scenario, operation, fault, outcome, number of runs.
"""

import collections
import pathlib
import sys


def rows(lines):
    """(operation, faults with the same outcomes, these outcomes, number of runs)."""
    outcomes = collections.defaultdict(set)
    runs = collections.Counter()
    for line in lines:
        _, operation, fault, outcome, count = line.split("\t")
        outcomes[operation, fault].add(outcome)
        runs[operation, fault] += int(count)
    groups = collections.defaultdict(list)
    for (operation, fault), ends in outcomes.items():
        groups[operation, tuple(sorted(ends))].append(fault)
    for (operation, ends), faults in sorted(groups.items()):
        yield operation, ", ".join(sorted(faults)), "; ".join(ends), sum(runs[operation, fault] for fault in faults)


def main():
    lines = pathlib.Path(sys.argv[1]).read_text(encoding="utf-8").splitlines()
    print("| operation | faults | outcomes | runs |\n|---|---|---|---|")
    for row in rows(lines):
        print("| " + " | ".join(map(str, row)) + " |")


if __name__ == "__main__":
    main()
