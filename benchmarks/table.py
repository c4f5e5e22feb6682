"""table.py RAW RESULTS: keeps what matters of Google Benchmark's output.

Reads the JSON file RAW of store_benchmark, writes its figures to the JSON file RESULTS, and prints them as a table in
Markdown. RESULTS says nothing about the machine.
"""

import json
import sys

MEASURES = {  # as they are called in the table
    "first_write": "first write",
    "open": "open",
    "get_node": "one `getNode`",
    "set_node": "one `setNode`",
    "full_read": "full read",
    "full_rewrite": "full rewrite",
    "memory": "memory a node",
    "disk": "disk space a node",
}
COUNTERS = {"memory": "full_read", "disk": "full_rewrite"}  # where they are taken


def read_figures(raw_file):
    """Every figure as a dict of store, measure, nodes, value and unit."""
    with open(raw_file, encoding="utf-8") as stream:
        runs = json.load(stream)["benchmarks"]
    figures = []
    for run in runs:
        if run.get("error_occurred"):
            sys.exit(f"table.py: {run['name']}: {run['error_message']}")
        store, measure, nodes = run["name"].split("/")[:3]
        found = [(measure, run["real_time"], run["time_unit"])]
        found += [(name, run[name], "bytes") for name, source in COUNTERS.items() if source == measure]
        for name, value, unit in found:
            value = float(f"{value:.4g}")
            figures.append({"store": store, "measure": name, "nodes": int(nodes), "value": value, "unit": unit})
    return figures


def readable(figure):
    """A value with a unit that suits it, to two digits or more."""
    value, unit = figure["value"], figure["unit"]
    if unit == "bytes":
        return f"{value:,.0f} B"
    for larger in ("ms", "s"):
        if value < 1000:
            break
        value, unit = value / 1000, larger
    return f"{value:.{0 if value >= 100 else 1}f} {unit.replace('us', 'µs')}"


def print_table(figures):
    stores = list(dict.fromkeys(figure["store"] for figure in figures))
    cells = {(figure["measure"], figure["nodes"], figure["store"]): readable(figure) for figure in figures}
    print(f"| what | nodes | {' | '.join(stores)} |")
    print("| --- | ---: |" + " ---: |" * len(stores))
    for measure, title in MEASURES.items():
        for nodes in sorted({figure["nodes"] for figure in figures}):
            row = " | ".join(cells.get((measure, nodes, store), "") for store in stores)
            print(f"| {title} | {nodes:,} | {row} |")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    all_figures = read_figures(sys.argv[1])
    with open(sys.argv[2], "w", encoding="utf-8") as results:
        results.write("[\n" + ",\n".join(json.dumps(figure) for figure in all_figures) + "\n]\n")
    print_table(all_figures)
