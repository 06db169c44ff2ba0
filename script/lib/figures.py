"""Merges the lines of JSON that benchmarks print into a table and, if asked, one JSON file."""

import argparse
import json
import sys


def meets(figure):
    if figure["goal"] is None:
        return True
    if figure["better"] == "lower":
        return figure["value"] <= figure["goal"]
    return figure["value"] >= figure["goal"]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("lines")
    parser.add_argument("--json", metavar="FILE")
    arguments = parser.parse_args()

    figures = {}
    with open(arguments.lines, encoding="utf-8") as lines:
        for line in lines:
            if not line.startswith("{"):
                continue
            figure = json.loads(line)
            name = figure.pop("name")
            if name in figures:
                sys.exit(f"figures.py: two benchmarks print the figure {name}")
            figures[name] = figure
    width = max((len(name) for name in figures), default=6)
    print(f"{'figure':{width}} {'value':>12} {'goal':>12}  unit")
    for name, figure in sorted(figures.items()):
        goal = figure["goal"]
        sign = "<=" if figure["better"] == "lower" else ">="
        goal_text = "" if goal is None else f"{sign} {goal:.6g}"
        mark = "" if meets(figure) else "   MISSED"
        print(f"{name:{width}} {figure['value']:>12.5g} {goal_text:>12}  {figure['unit']}{mark}")
    missed = [name for name, figure in figures.items() if not meets(figure)]
    if missed:
        print(f"{len(missed)} of {len(figures)} figures miss their goal: {', '.join(missed)}")
    if arguments.json:
        with open(arguments.json, "w", encoding="utf-8") as output:
            json.dump({"figures": figures}, output, indent=2)
            output.write("\n")


if __name__ == "__main__":
    main()
