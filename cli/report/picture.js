
// The picture: a treemap in which every branch has an area after how much is in it, of what the filter lets through.
// Rectangles are laid out so that they are nearly squares (Bruls, Huizing, van Wijk: Squarified Treemaps, 2000).

const picture = {
    svg: document.getElementById("picture"),
    root: 0,                     // the branch that fills the picture
    weights: new Float64Array(pathCount),
    rectOf: new Map(),           // the rectangle of each path that is drawn
    texts: [],                   // what is written, each with the width that it may take
    smallest: 70,                // in square pixels; what would be smaller is drawn as one rectangle per branch
    titleHeight: 18,

    /** Sums up what is in each branch: paths, or characters of keys and values. */
    measure(unit) {
        for (let path = pathCount - 1; path >= 0; --path) {
            let own = state[path] === hit && path > 0 ? 1 : 0;
            if (own && unit === "characters") {
                own = 0;
                if (nodeOf(path))
                    visitAttributes(nodeOf(path), (key, value) => own += key.length + value.length);
            }
            this.weights[path] += own;
            if (path > 0)
                this.weights[parentOf[path]] += this.weights[path];
        }
    },

    update(unit) {
        this.unit = unit === "paths" ? "path" : "character";
        this.weights.fill(0);
        this.measure(unit);
        this.draw();
    },

    draw() {
        const width = this.svg.clientWidth, height = this.svg.clientHeight;
        if (width < 10 || height < 10)
            return;
        this.svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
        this.svg.replaceChildren();
        this.rectOf.clear();
        this.texts = [];
        this.smallest = Math.max(70, width * height / 2500);
        if (this.weights[this.root] > 0)
            this.drawPath(this.root, 0, 0, width, height);
        else
            this.addText("There is nothing to show.", 0, 0, width, height);
        this.shortenTexts();
        this.markSelected();
    },

    markSelected() {
        for (const rect of this.svg.querySelectorAll(".selected"))
            rect.classList.remove("selected");
        let path = tree.selected;
        while (path > 0 && !this.rectOf.has(path))
            path = parentOf[path];
        if (path !== this.root && this.rectOf.has(path))
            this.rectOf.get(path).classList.add("selected");
    },

    describe(path) {
        return `${formatPath(path)}\n${formatCount(this.weights[path], this.unit)}`;
    },

    drawPath(path, x, y, width, height) {
        const isBranch = endOf[path] > path + 1;
        const rect = this.addRect(x, y, width, height, isBranch ? "branch" : "", this.describe(path));
        rect.dataset.hue = hueOf(path);
        rect.dataset.path = path;
        this.rectOf.set(path, rect);
        const hasTitle = width > 34 && height > 16;
        if (hasTitle)
            this.addText(markOf(path) + " " + locationOf(path), x, y, width, this.titleHeight);
        const top = hasTitle ? this.titleHeight : 2;
        if (isBranch && width > 16 && height > top + 12)
            this.drawChildren(path, x + 2, y + top, width - 4, height - top - 2);
    },

    drawChildren(path, x, y, width, height) {
        const children = [];
        let total = 0;
        for (let child = path + 1; child < endOf[path]; child = endOf[child]) {
            if (this.weights[child] > 0) {
                children.push({path: child, weight: this.weights[child]});
                total += this.weights[child];
            }
        }
        children.sort((a, b) => b.weight - a.weight);
        const least = this.smallest * total / (width * height);
        const enough = children.findIndex(child => child.weight < least);
        const rest = enough < 0 ? [] : children.splice(enough);
        if (rest.length > 0) {
            const weight = rest.reduce((sum, child) => sum + child.weight, 0);
            children.push({count: rest.length, parent: path, weight, largest: rest[0].path});
            children.sort((a, b) => b.weight - a.weight);
        }
        this.layOut(children, total, x, y, width, height);
    },

    /** Lays out `children`, the largest first, in rows along the shorter side. */
    layOut(children, total, x, y, width, height) {
        const scale = width * height / total;
        for (let start = 0; start < children.length;) {
            const side = Math.min(width, height);
            let end = start, area = 0, worst = Infinity;
            while (end < children.length) {
                const sum = area + children[end].weight * scale;
                const longest = children[start].weight * scale, shortest = children[end].weight * scale;
                const ratio = Math.max(side * side * longest / (sum * sum), sum * sum / (side * side * shortest));
                if (ratio > worst)
                    break;
                worst = ratio;
                area = sum;
                ++end;
            }
            const depth = area / side, isColumn = width >= height;
            for (let offset = 0; start < end; ++start) {
                const length = children[start].weight * scale / depth;
                if (isColumn)
                    this.drawItem(children[start], x, y + offset, depth, length);
                else
                    this.drawItem(children[start], x + offset, y, length, depth);
                offset += length;
            }
            if (isColumn) {
                x += depth;
                width -= depth;
            } else {
                y += depth;
                height -= depth;
            }
        }
    },

    drawItem(item, x, y, width, height) {
        if (item.path !== undefined) {
            this.drawPath(item.path, x, y, width, height);
            return;
        }
        const text = `${item.count.toLocaleString("en")} more`;
        const rect = this.addRect(x, y, width, height, "rest",
            `${text} in ${formatPath(item.parent)}\n${formatCount(item.weight, this.unit)}`);
        rect.dataset.hue = hueOf(item.largest);
        rect.dataset.path = item.parent;
        if (width > 34 && height > 16)
            this.addText(text, x, y, width, this.titleHeight, true);
    },

    make(name, attributes) {
        const made = document.createElementNS("http://www.w3.org/2000/svg", name);
        for (const [key, value] of Object.entries(attributes))
            made.setAttribute(key, value);
        return made;
    },

    addRect(x, y, width, height, className, description) {
        const size = {x: x + .5, y: y + .5, width: Math.max(width - 1, .5), height: Math.max(height - 1, .5), rx: 2};
        const rect = this.make("rect", {...size, class: className});
        const title = this.make("title", {});
        title.textContent = description;
        rect.append(title);
        this.svg.append(rect);
        return rect;
    },

    /** A text that ends where its place does: an inner <svg> clips. One that only makes sense `whole` may be left out. */
    addText(content, x, y, width, height, whole = false) {
        const box = this.make("svg", {x: x + 4, y, width: Math.max(width - 8, 1), height: Math.max(height, 1)});
        const text = this.make("text", {x: 0, y: 13});
        text.textContent = content;
        box.append(text);
        this.svg.append(box);
        this.texts.push({text, whole, width: width - 8});
    },

    /** Ends texts that are too long with an ellipsis. All are measured before one changes: one layout does. */
    shortenTexts() {
        const lengths = this.texts.map(({text}) => text.getComputedTextLength());
        this.texts.forEach(({text, whole, width}, i) => {
            if (lengths[i] <= width)
                return;
            const characters = [...text.textContent], ellipsis = 11;
            const kept = Math.floor(characters.length * (width - ellipsis) / lengths[i]);
            text.textContent = whole || kept < 1 ? "" : characters.slice(0, kept).join("") + "…";
        });
    },
};
