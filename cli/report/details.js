
// The panel that describes the selected path.

const details = {
    box: document.getElementById("details"),
    step: 30,   // how many children of one node or path are listed at a time
    most: 300,  // how many child nodes at all levels together are listed at a time
    room: 0,    // for how many of them there is still room

    show(path, select) {
        const type = path === 0 ? "root path" : typeOf(path);
        const title = element("h2", "", [dotOf(path), element("bdi", "", locationOf(path)),
            element("small", "", [element("bdi", "", type)])]);
        title.tabIndex = -1;
        this.box.replaceChildren(this.makeAncestors(path, select), title, element("code", "", formatPath(path)));
        this.room = this.most;
        if (nodeOf(path))
            this.addNode(nodeOf(path), this.box, "Attributes");
        else
            this.box.append(element("h3", "", "Attributes"), element("p", "none", "There is no metadata at this path."));
        this.addChildren(path, select);
    },

    makeButton(path, content, select) {
        const button = element("button", "", content);
        button.type = "button";
        button.addEventListener("click", () => {
            select(path);
            this.box.querySelector("h2").focus();
        });
        return button;
    },

    makeAncestors(path, select) {
        const ancestors = [];
        for (let above = path; (above = parentOf[above]) >= 0;)
            ancestors.unshift(this.makeButton(above, [element("bdi", "", locationOf(above))], select), "›");
        const nav = element("nav", "", ancestors);
        nav.setAttribute("aria-label", "Above this path");
        return nav;
    },

    addNode([name, attributes, children], parent, title) {
        parent.append(element("h3", "", title));
        const rows = [];
        for (let i = 0; i < attributes.length; i += 2) {
            const key = element("th", "", [element("bdi", "", data.names[attributes[i]])]);
            key.scope = "row";
            rows.push(element("tr", "", [key, element("td", "value", [markedText(attributes[i + 1])])]));
        }
        parent.append(rows.length ? element("table", "", [element("tbody", "", rows)])
            : element("p", "none", `The node "${data.names[name]}" has no attributes.`));
        const list = element("div", "");
        parent.append(list);
        this.addSome(children, list, child => {
            const box = element("div", "child");
            this.addNode(child, box, "");
            box.firstChild.append("Child node ", element("bdi", "", data.names[child[0]]));
            return box;
        }, "child node");
    },

    /** Appends to `list` what `make` makes of each of `things`, a few at a time, with a button for more behind it. */
    addSome(things, list, make, thing) {
        const more = element("button", "more");
        more.type = "button";
        let shown = 0;
        const show = () => {
            for (const end = Math.min(shown + this.step, things.length); shown < end && this.room > 0; ++shown) {
                --this.room;
                list.append(make(things[shown]));
            }
            more.textContent = `Show more of ${formatCount(things.length - shown, (shown ? "other " : "") + thing)}`;
            more.hidden = shown === things.length;
        };
        more.addEventListener("click", () => {
            this.room = this.most;
            show();
        });
        show();
        if (!more.hidden)
            list.after(more);
    },

    addChildren(path, select) {
        const children = [];
        for (let child = path + 1; child < endOf[path]; child = endOf[child])
            children.push(child);
        if (children.length === 0)
            return;
        const list = element("ul", "paths");
        this.box.append(element("h3", "", formatCount(children.length, "path") + " below"), list);
        this.room = this.most;
        this.addSome(children, list, child => {
            const content = [dotOf(child), element("bdi", "", locationOf(child))];
            return element("li", "", [this.makeButton(child, content, select)]);
        }, "path");
    },
};
