"use strict";

// What is in the project, and which of it is shown. Paths are numbers: 0 is the root path, every path comes after its
// parent, and what is below a path directly after it. All texts in the data are safe to show: whatever is invisible,
// acts on the direction of text or is no Unicode has been replaced by visible escapes.

const data = JSON.parse(document.getElementById("data").textContent);
const pathCount = data.paths.length;
const parentOf = new Int32Array(pathCount).fill(-1);
const endOf = new Int32Array(pathCount);  // the path after all that is below this one

const depthOf = path => data.paths[path][0];
const typeOf = path => data.names[data.paths[path][1]];
const locationOf = path => path === 0 ? data.project : data.paths[path][2];
const nodeOf = path => data.paths[path][3];
const formatCount = (count, thing) => count.toLocaleString("en") + " " + thing + (count === 1 ? "" : "s");

{
    const open = [];
    for (let path = 0; path < pathCount; ++path) {
        while (open.length > depthOf(path))
            endOf[open.pop()] = path;
        if (path > 0)
            parentOf[path] = open[open.length - 1];
        open.push(path);
    }
    for (const path of open)
        endOf[path] = pathCount;
}

/** The step as the command writes it in a path. */
function formatStep(path) {
    return typeOf(path) + ":" + locationOf(path);
}

function formatPath(path) {
    const steps = [];
    for (; path > 0; path = parentOf[path])
        steps.unshift(formatStep(path));
    return steps.join("|") || "/";
}

/** Calls `visit` with the key and value of each attribute of a node and of the nodes below it. */
function visitAttributes([, attributes, children], visit) {
    for (let i = 0; i < attributes.length; i += 2)
        visit(data.names[attributes[i]], attributes[i + 1]);
    for (const child of children)
        visitAttributes(child, visit);
}

/** A short text for a type that no other type has: its first characters, or the first one and a number. */
function makeMark(type, taken) {
    const characters = [...type];
    for (const length of [1, 2]) {
        const mark = characters.slice(0, length).join("");
        if (mark.trim() && !taken.has(mark))
            return mark;
    }
    const start = (characters[0] || "").trim();
    let number = 2;
    while (taken.has(start + number))
        ++number;
    return start + number;
}

// The types, the most frequent first, with their number of paths, their mark and the number of their colour.
const types = new Map();
{
    const counts = new Map();
    for (let path = 1; path < pathCount; ++path)
        counts.set(typeOf(path), (counts.get(typeOf(path)) || 0) + 1);
    const sorted = [...counts].sort((a, b) => b[1] - a[1]);
    const marks = new Set();
    sorted.forEach(([type, count], place) => {
        const mark = makeMark(type, marks);
        marks.add(mark);
        types.set(type, {count, mark, hue: Math.min(place, 8)});
    });
}
const hueOf = path => path === 0 ? 8 : types.get(typeOf(path)).hue;
const markOf = path => path === 0 ? "/" : types.get(typeOf(path)).mark;

// A path is a hit, shown as the ancestor of one, or hidden.
const hidden = 0, context = 1, hit = 2;
const state = new Uint8Array(pathCount).fill(hit);
const filter = {query: "", hiddenTypes: new Set(), hitCount: 0};

const searchTexts = {
    steps: null, values: null, paths: null,

    make() {
        this.steps = [];
        this.values = [];
        for (let path = 0; path < pathCount; ++path) {
            this.steps.push(path === 0 ? "/" : formatStep(path).toLowerCase());
            const values = [];
            if (nodeOf(path))
                visitAttributes(nodeOf(path), (key, value) => values.push(value));
            this.values.push(values.join("\n").toLowerCase());
        }
    },

    makePaths() {
        this.paths = [""];
        for (let path = 1; path < pathCount; ++path) {
            const above = this.paths[parentOf[path]];
            this.paths.push(above ? above + "|" + this.steps[path] : this.steps[path]);
        }
    },
};

/** A test whether a path holds `query`, in lower case, in one of its values or in its text, there so that it reaches
    the last step: what is below a hit is no hit for that alone. */
function makeMatcher(query) {
    if (!query)
        return () => true;
    if (!searchTexts.steps)
        searchTexts.make();
    const {steps, values} = searchTexts;
    if (!query.includes("|"))
        return path => steps[path].includes(query) || values[path].includes(query);
    if (!searchTexts.paths)
        searchTexts.makePaths();
    const texts = searchTexts.paths;
    return path => values[path].includes(query) ||
        texts[path].includes(query, Math.max(0, texts[path].length - steps[path].length - query.length));
}

/** Sets the state of every path by `filter`. The root path counts as a hit only if it is looked for. */
function applyFilter() {
    const matches = makeMatcher(filter.query);
    filter.hitCount = 0;
    state.fill(hidden);
    for (let path = pathCount - 1; path > 0; --path) {
        if (!filter.hiddenTypes.has(typeOf(path)) && matches(path)) {
            state[path] = hit;
            ++filter.hitCount;
        }
        if (state[path] !== hidden && state[parentOf[path]] === hidden)
            state[parentOf[path]] = context;
    }
    const isRootHit = filter.query !== "" && matches(0);
    state[0] = isRootHit ? hit : context;
    filter.hitCount += isRootHit ? 1 : 0;
}
