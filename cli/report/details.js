
// The panel that describes the selected path.

const details = {
    box: document.getElementById("details"),
    step: 30,  // how many children are listed at a time

    show(path, select) {
        const type = path === 0 ? "root path" : typeOf(path);
        const title = element("h2", "", [dotOf(path), element("bdi", "", locationOf(path)),
            element("small", "", [element("bdi", "", type)])]);
        title.tabIndex = -1;
        this.box.replaceChildren(this.makeAncestors(path, select), title, element("code", "", formatPath(path)));
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
        for (const child of children) {
            const box = element("div", "child");
            parent.append(box);
            this.addNode(child, box, "");
            box.firstChild.append("Child node ", element("bdi", "", data.names[child[0]]));
        }
    },

    addChildren(path, select) {
        const children = [];
        for (let child = path + 1; child < endOf[path]; child = endOf[child])
            children.push(child);
        if (children.length === 0)
            return;
        const list = element("ul", "paths");
        const more = element("button", "more");
        more.type = "button";
        const addSome = () => {
            for (const child of children.splice(0, this.step)) {
                const content = [dotOf(child), element("bdi", "", locationOf(child))];
                list.append(element("li", "", [this.makeButton(child, content, select)]));
            }
            more.textContent = `Show more of ${formatCount(children.length, "other path")}`;
            more.hidden = children.length === 0;
        };
        this.box.append(element("h3", "", formatCount(children.length, "path") + " below"), list, more);
        more.addEventListener("click", addSome);
        addSome();
    },
};
