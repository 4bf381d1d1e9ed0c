"""Prints the outcomes of the fault tests as Markdown, for FAULTS.md: fault_table.py CALLS KILLS.

A line of either file has five fields: scenario, operation, fault, outcome, number of runs.
"""

import collections
import pathlib
import sys

TITLES = ["Calls across the seam, on the simulated machine", "Kills and losses of power, with the executable on Linux"]


def rows(lines):
    """(operation, faults with the same outcomes, these outcomes, number of runs)."""
    outcomes = collections.defaultdict(set)
    runs = collections.Counter()
    for _, operation, fault, outcome, count in lines:
        outcomes[operation, fault].add(outcome)
        runs[operation, fault] += int(count)
    groups = collections.defaultdict(list)
    for (operation, fault), ends in outcomes.items():
        groups[operation, tuple(sorted(ends))].append(fault)
    for (operation, ends), faults in sorted(groups.items()):
        yield operation, ", ".join(sorted(faults)), "; ".join(ends), sum(runs[operation, fault] for fault in faults)


def main():
    for title, file in zip(TITLES, sys.argv[1:], strict=True):
        lines = [line.split("\t") for line in pathlib.Path(file).read_text(encoding="utf-8").splitlines()]
        scenarios = collections.Counter()
        for scenario, *_, count in lines:
            scenarios[scenario] += int(count)
        print(f"\n## {title}\n\n| scenario | runs |\n|---|---|")
        for scenario in scenarios.items():
            print("| {} | {} |".format(*scenario))
        print("\n| operation | faults | outcomes | runs |\n|---|---|---|---|")
        for row in rows(lines):
            print("| " + " | ".join(map(str, row)) + " |")


if __name__ == "__main__":
    main()
