"""report.py FOLDER: what the benchmarks have found, in the form that is kept.

Reads library.json, stores.json and instructions.json in FOLDER. Writes benchmarks/results.json, one entry per
goal, and every figure to benchmarks/results/, without what is particular to the machine. Puts the tables into
docs/performance.md, between the comments there, draws the curves with gnuplot into docs/performance/, and prints the
goals that are missed.
"""

import json
import os
import re
import subprocess
import sys

import goals

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DOCUMENT = os.path.join(ROOT, "docs", "performance.md")

PEERS = {  # as they are called in tables and curves, in an order that is the same everywhere
    "project_metadata": "project_metadata",
    "libxml2_text_reader": "libxml2 text reader, nothing built",
    "libxml2_push_parser": "libxml2 push parser, nothing built",
    "ready_bytes": "the bytes of the file, ready",
    "libxml2_text_writer": "libxml2 text writer, ready tree",
    "libxml2_plain_tree": "libxml2 text reader and a plain tree",
    "libxml2_dom": "libxml2 DOM",
    "pugixml": "pugixml",
    "pugixml_plain_tree": "pugixml and a plain tree",
    "tinyxml2": "tinyxml2",
    "property_tree": "Boost.PropertyTree",
    "qt_dom": "Qt QDomDocument",
    "texts": "paths compared by their texts",
}
FILES = {  # inputs that are not generated
    "shared_mime_info": "freedesktop.org.xml",
    "gir_gio": "Gio-2.0.gir",
    "iso_639_3": "iso_639-3.xml",
}
CURVES = {  # operation: title, x axis, y axis
    "read": ("Reading a file, destruction included", "nodes in the file", "µs per node"),
    "write": ("Writing a file", "nodes in the file", "µs per node"),
    "copy": ("copyMetadata, stores that cost nothing", "paths", "µs per path"),
}
STORE_MEASURES = {
    "first_write": "first write",
    "open": "open",
    "get_node": "one `getNode`",
    "set_node": "one `setNode`",
    "full_read": "full read",
    "export": "export",
    "full_rewrite": "full rewrite",
    "memory": "memory a node",
    "disk": "disk space a node",
}
STORE_COUNTERS = {"memory": "full_read", "disk": "full_rewrite"}  # where they are taken
CLIENTS = "set_node_together"  # of which the number stands in place of that of the nodes


def read_store_figures(raw_file):
    """Every figure as a dict of store, measure, nodes, value and unit."""
    with open(raw_file, encoding="utf-8") as stream:
        runs = json.load(stream)["benchmarks"]
    figures = []
    for run in runs:
        if run.get("error_occurred"):
            sys.exit(f"report.py: {run['name']}: {run['error_message']}")
        store, measure, count = run["name"].split("/")[:3]
        if measure == CLIENTS:
            found = [(measure, run["items_per_second"], "changes/s"), ("refused", run["refused"], "changes")]
        else:
            found = [(measure, run["real_time"], run["time_unit"])]
            found += [(name, run[name], "bytes") for name, source in STORE_COUNTERS.items()
                      if source == measure and name in run]
        for name, value, unit in found:
            figures.append({"store": store, "measure": name, "clients" if measure == CLIENTS else "nodes": int(count),
                            "value": goals.rounded(value), "unit": unit})
    return figures


def readable(value, unit):
    """A value with a unit that suits it, to two digits or more."""
    if unit == "bytes":
        return f"{value / 1e6:,.1f} MB" if value >= 1e6 else f"{value:,.0f} B"
    units = ["us", "ms", "s"]
    if unit == "ms":
        value, unit = value * 1000, "us"
    while value >= 1000 and unit != "s":
        value, unit = value / 1000, units[units.index(unit) + 1]
    return f"{value:.{0 if value >= 100 else 1}f} {unit.replace('us', 'µs')}"


def table(head, rows):
    """Markdown; the first column is text, the others are figures."""
    lines = [head, ["---"] + ["---:"] * (len(head) - 1)] + rows
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def store_names(figures):
    return list(dict.fromkeys(figure["store"] for figure in figures))


def store_table(figures):
    figures = [figure for figure in figures if "nodes" in figure]
    stores = store_names(figures)
    cells = {(figure["measure"], figure["nodes"], figure["store"]): readable(figure["value"], figure["unit"])
             for figure in figures}
    sizes = sorted({figure["nodes"] for figure in figures})
    return table(["what", "nodes"] + stores,
                 [[title, f"{nodes:,}"] + [cells.get((measure, nodes, store), "") for store in stores]
                  for measure, title in STORE_MEASURES.items() for nodes in sizes])


def client_table(figures):
    """Changes a second, and how many were refused."""
    figures = [figure for figure in figures if "clients" in figure]
    cells = {(figure["measure"], figure["clients"], figure["store"]): f"{figure['value']:,.0f}" for figure in figures}
    counts = sorted({figure["clients"] for figure in figures})
    return table(["clients"] + store_names(figures),
                 [[str(count)] + [f"{cells[CLIENTS, count, store]} ({cells['refused', count, store]})"
                                  for store in store_names(figures)] for count in counts])


def goal_table(results):
    def amounts(result):
        if result["unit"] == "allocations":
            return [f"{result[side]:,.0f}" for side in ("ours", "reference")]
        return [readable(result[side], result["unit"]) for side in ("ours", "reference")]

    return table(["what", "ours", "reference", "ratio", "goal, at most", "in instructions"],
                 [[result["name"], *amounts(result), f"{result['ratio']:,.3f}",
                   f"{result['goal']:,.4g}" + ("" if result["ratio"] <= result["goal"] else ", **missed**"),
                   f"{result['instructions']['ratio']:.3g}" if "instructions" in result else ""]
                  for result in results])


def peer_table(figures):
    """Time, memory and allocations for the reference file."""
    def cell(operation, peer, figure, unit):
        found = figures.get(f"{operation}/reference/{peer}")
        return readable(found[figure], unit) if found else ""

    rows = []
    for peer, title in PEERS.items():
        memory = figures.get(f"memory/reference/{peer}")
        cells = [cell("read", peer, "time", "ms"), cell("write", peer, "time", "ms"),
                 cell("memory", peer, "held", "bytes"), cell("memory", peer, "peak", "bytes"),
                 f"{memory['allocations']:,.0f}" if memory else ""]
        if any(cells):
            rows.append([title] + cells)
    return table(["the reference file", "reading", "writing", "held in memory", "peak", "allocations"], rows)


def file_table(figures):
    """Times for the files that are not generated."""
    files = [file for file in FILES if f"read/{file}/project_metadata" in figures]
    rows = []
    for peer, title in PEERS.items():
        found = [figures.get(f"{operation}/{file}/{peer}") for file in files for operation in ("read", "write")]
        if any(found):
            rows.append([title] + [readable(figure["time"], "ms") if figure else "" for figure in found])
    return table([""] + [f"{operation} {FILES[file]}" for file in files for operation in ("reading", "writing")], rows)


def draw_curve(folder, operation, figures):
    """Time over size, one line a peer."""
    title, x_axis, y_axis = CURVES[operation]
    styles = []
    data_file = os.path.join(folder, f"{operation}.dat")
    with open(data_file, "w", encoding="utf-8") as stream:
        for style, (peer, peer_title) in enumerate(PEERS.items(), 1):
            points = sorted((int(name.split("/")[1]), found["time"]) for name, found in figures.items()
                            if re.fullmatch(f"{operation}/\\d+/{peer}", name))
            if points:
                styles.append(str(style))
                stream.write(f"size \"{peer_title}\"\n")
                stream.writelines(f"{size} {1000 * time / size}\n" for size, time in points)
                stream.write("\n\n")
    picture = os.path.join(ROOT, "docs", "performance", f"{operation}.svg")
    os.makedirs(os.path.dirname(picture), exist_ok=True)
    settings = {"data": data_file, "picture": picture, "styles": " ".join(styles), "heading": title, "xAxis": x_axis,
                "yAxis": y_axis}
    subprocess.run(["gnuplot", "-e", "; ".join(f"{name} = '{value}'" for name, value in settings.items()),
                    os.path.join(ROOT, "benchmarks", "curves.gnuplot")], check=True)


def put_into_document(tables):
    with open(DOCUMENT, encoding="utf-8") as stream:
        text = stream.read()
    for name, content in tables.items():
        begin, end = f"<!-- {name}: written by scripts/bench -->\n", f"<!-- end of {name} -->\n"
        if begin not in text or end not in text:
            sys.exit(f"report.py: {DOCUMENT} has no place for the table \"{name}\"")
        head, rest = text.split(begin)
        text = head + begin + "\n" + content + "\n" + end + rest.split(end)[1]
    with open(DOCUMENT, "w", encoding="utf-8") as stream:
        stream.write(text)


def save(entries, *name):
    """One entry a line, so that changes are easy to see."""
    with open(os.path.join(ROOT, "benchmarks", *name), "w", encoding="utf-8") as stream:
        stream.write("[\n" + ",\n".join(json.dumps(entry) for entry in entries) + "\n]\n")


def main(folder):
    figures = goals.read_figures(os.path.join(folder, "library.json"))
    store_figures = read_store_figures(os.path.join(folder, "stores.json"))
    with open(os.path.join(folder, "instructions.json"), encoding="utf-8") as stream:
        instructions = json.load(stream)

    results = [goals.evaluate(goal, figures) for goal in goals.GOALS]
    for result in results:
        if result["name"] in instructions:
            result["instructions"] = instructions[result["name"]]
    save(results, "results.json")
    save([{"benchmark": name, "figure": figure, "value": goals.rounded(value), "unit": goals.UNITS[figure]}
          for name, found in figures.items() for figure, value in found.items() if figure in goals.UNITS],
         "results", "library.json")
    save(store_figures, "results", "stores.json")
    put_into_document({"goals": goal_table(results), "peers": peer_table(figures), "files": file_table(figures),
                       "stores": store_table(store_figures), "clients": client_table(store_figures)})
    for operation in CURVES:
        draw_curve(folder, operation, figures)

    missed = [result for result in results if result["ratio"] > result["goal"]]
    for result in missed:
        print(f"MISSED {result['name']}: {result['ratio']:.3g}, goal at most {result['goal']:.3g}")
    print(f"{len(results) - len(missed)} of {len(results)} goals reached")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
