
// The tree. Its rows are drawn only where they can be seen, so the number of paths does not matter; the focus stays on
// the tree itself, and aria-activedescendant says which row has it.
// https://www.w3.org/WAI/ARIA/apg/patterns/treeview/

/** A new element with a class and either a text or children. Texts come in here and nowhere else. */
function element(name, className, content = []) {
    const made = document.createElement(name);
    if (className)
        made.className = className;
    if (typeof content === "string")
        made.textContent = content;
    else
        made.append(...content);
    return made;
}

/** `text` with what the search looks for marked. */
function markedText(text) {
    const isolated = element("bdi");
    const lower = text.toLowerCase();
    const query = filter.query;
    let done = 0;
    if (query && lower.length === text.length) {
        for (let at; (at = lower.indexOf(query, done)) >= 0; done = at + query.length)
            isolated.append(text.slice(done, at), element("mark", "", text.slice(at, at + query.length)));
    }
    isolated.append(text.slice(done));
    return isolated;
}

/** What a type looks like: a colour, which the most frequent ones have, and a mark, which all have. */
function makeDot(mark, hue) {
    const dot = element("span", "dot", mark);
    dot.dataset.hue = hue;
    dot.setAttribute("aria-hidden", "true");
    return dot;
}

const dotOf = path => makeDot(markOf(path), hueOf(path));

const tree = {
    box: document.getElementById("tree"),
    space: document.getElementById("rows"),
    rowHeight: 28,
    open: new Uint8Array(pathCount),
    openBeforeSearch: null,
    rows: [],       // the paths that have a row, in order
    rowOf: new Int32Array(pathCount),
    placeOf: new Int32Array(pathCount),      // among the siblings that have a row, from 1
    shownChildren: new Int32Array(pathCount),
    selected: 0,
    typed: "",
    typedAt: 0,

    hasChildren(path) {
        for (let child = path + 1; child < endOf[path]; child = endOf[child]) {
            if (state[child] !== hidden)
                return true;
        }
        return false;
    },

    /** Finds out which paths have rows, after the filter or an open branch has changed. */
    layOut() {
        this.rows = [];
        this.rowOf.fill(-1);
        this.shownChildren.fill(0);
        for (let path = 0; path < pathCount; path = this.open[path] ? path + 1 : endOf[path]) {
            while (path < pathCount && state[path] === hidden)
                path = endOf[path];
            if (path === pathCount)
                break;
            this.rowOf[path] = this.rows.length;
            this.rows.push(path);
            if (path > 0)
                this.placeOf[path] = ++this.shownChildren[parentOf[path]];
        }
        this.space.style.height = this.rows.length * this.rowHeight + "px";
        this.draw();
    },

    draw(first, last) {
        if (first === undefined) {
            const top = this.box.scrollTop, margin = 8;
            first = Math.max(0, Math.floor(top / this.rowHeight) - margin);
            last = Math.min(this.rows.length, Math.ceil((top + this.box.clientHeight) / this.rowHeight) + margin);
        }
        const drawn = [];
        for (let row = first; row < last; ++row)
            drawn.push(this.makeRow(this.rows[row], row));
        this.space.replaceChildren(...drawn);
        const active = this.rowOf[this.selected];
        if (active >= first && active < last)
            this.box.setAttribute("aria-activedescendant", "path-" + this.selected);
        else
            this.box.removeAttribute("aria-activedescendant");
    },

    makeRow(path, place) {
        const isBranch = this.hasChildren(path);
        const location = markedText(locationOf(path));
        location.className = "location";
        const row = element("div", state[path] === hit || !filter.query ? "row" : "row context",
            [element("span", "twisty"), dotOf(path), location]);
        row.id = "path-" + path;
        row.dataset.path = path;
        row.style.transform = `translateY(${place * this.rowHeight}px)`;
        row.style.paddingInlineStart = Math.min(depthOf(path), 24) * 18 + "px";
        row.setAttribute("role", "treeitem");
        row.setAttribute("aria-level", depthOf(path) + 1);
        row.setAttribute("aria-setsize", path === 0 ? 1 : this.shownChildren[parentOf[path]]);
        row.setAttribute("aria-posinset", path === 0 ? 1 : this.placeOf[path]);
        row.setAttribute("aria-selected", path === this.selected);
        if (path > 0)
            row.title = typeOf(path);
        const found = filter.query && nodeOf(path) ? this.findValue(nodeOf(path)) : null;
        if (found)
            row.append(element("span", "snippet", [element("bdi", "", found.key), " = ", markedText(found.value)]));
        if (isBranch) {
            row.setAttribute("aria-expanded", this.open[path] === 1);
            row.append(element("span", "number", (endOf[path] - path - 1).toLocaleString("en")));
        }
        return row;
    },

    /** The first attribute whose value is a hit, with a value short enough for a row. */
    findValue(node) {
        let found = null;
        visitAttributes(node, (key, value) => {
            const at = found ? -1 : value.toLowerCase().indexOf(filter.query);
            if (at >= 0)
                found = {key, value: (at > 20 ? "…" : "") + value.slice(at > 20 ? at - 20 : 0, at + 200)};
        });
        return found;
    },

    setOpen(path, isOpen) {
        this.open[path] = isOpen ? 1 : 0;
        this.layOut();
    },

    openAncestors(path) {
        while ((path = parentOf[path]) >= 0)
            this.open[path] = 1;
    },

    /** Opens what leads to hits while something is looked for; afterwards everything is as it was before. */
    openForSearch() {
        if (filter.query) {
            this.openBeforeSearch = this.openBeforeSearch || this.open.slice();
            this.open.fill(0);
            for (let path = pathCount - 1; path > 0; --path) {
                if (state[path] === hit || this.open[path])
                    this.open[parentOf[path]] = 1;
            }
        } else if (this.openBeforeSearch) {
            this.open.set(this.openBeforeSearch);
            this.openBeforeSearch = null;
            this.openAncestors(this.selected);
        }
        this.layOut();
    },

    /** Selects the path, with its row in sight if the filter lets it have one. */
    reveal(path) {
        this.selected = path;
        if (state[path] !== hidden && this.rowOf[path] < 0) {
            this.openAncestors(path);
            this.layOut();
        }
        const top = this.rowOf[path] * this.rowHeight;
        if (top >= 0) {
            const lowest = top + this.rowHeight - this.box.clientHeight;
            this.box.scrollTop = Math.max(Math.min(this.box.scrollTop, top), lowest);
        }
        this.draw();
    },

    /** The row that begins with what has just been typed, from the selected one on. */
    findTyped(key, now) {
        this.typed = now - this.typedAt < 700 ? this.typed + key.toLowerCase() : key.toLowerCase();
        this.typedAt = now;
        const start = this.rowOf[this.selected] + (this.typed.length > 1 ? 0 : 1);
        for (let i = 0; i < this.rows.length; ++i) {
            const path = this.rows[(start + i) % this.rows.length];
            if (locationOf(path).toLowerCase().startsWith(this.typed))
                return path;
        }
        return undefined;
    },

    /** @return the path to select, if the key moves the selection; null if the key is used up; else undefined */
    handleKey(event) {
        const path = this.selected, row = this.rowOf[path], rows = this.rows;
        const isBranch = this.hasChildren(path), isOpen = isBranch && this.open[path] === 1;
        const page = Math.max(1, Math.floor(this.box.clientHeight / this.rowHeight) - 1);
        const toggle = isOpen => (this.setOpen(path, isOpen), null);
        const moves = {
            ArrowDown: () => rows[Math.min(row + 1, rows.length - 1)],
            ArrowUp: () => rows[Math.max(row - 1, 0)],
            PageDown: () => rows[Math.min(row + page, rows.length - 1)],
            PageUp: () => rows[Math.max(row - page, 0)],
            Home: () => rows[0],
            End: () => rows[rows.length - 1],
            ArrowRight: () => isOpen ? rows[row + 1] : isBranch ? toggle(true) : null,
            ArrowLeft: () => isOpen ? toggle(false) : path > 0 && row >= 0 ? parentOf[path] : null,
            Enter: () => isBranch ? toggle(!isOpen) : null,
            " ": () => path,
        };
        if (Object.hasOwn(moves, event.key))
            return moves[event.key]();
        return event.key.length === 1 ? this.findTyped(event.key, event.timeStamp) : undefined;
    },
};
