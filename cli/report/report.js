
// What the user does, and what follows.

const queryBox = document.getElementById("query");
const measureBox = document.getElementById("measure");
const enlargeButton = document.getElementById("enlarge");
const wholeButton = document.getElementById("whole");

function select(path) {
    tree.reveal(path);
    details.show(path, select);
    picture.markSelected();
    enlargeButton.disabled = endOf[path] === path + 1 || path === picture.root;
}

function enlarge(path) {
    picture.root = path;
    wholeButton.hidden = path === 0;
    picture.draw();
    select(path);
}

function filterChanged() {
    applyFilter();
    tree.openForSearch();
    tree.reveal(tree.selected);
    picture.update(measureBox.value);
    const isFiltered = filter.query || filter.hiddenTypes.size;
    document.getElementById("hits").textContent =
        isFiltered ? `${formatCount(filter.hitCount, "hit")} in ${formatCount(pathCount - 1, "path")}` : "";
}

function search(text) {
    queryBox.value = text;
    filter.query = text.trim().toLowerCase();
    filterChanged();
    details.show(tree.selected, select);
}

function firstHit() {
    return tree.rows.find(path => state[path] === hit);
}

queryBox.addEventListener("input", () => search(queryBox.value));
queryBox.addEventListener("keydown", event => {
    const path = event.key === "Enter" || event.key === "ArrowDown" ? firstHit() : undefined;
    if (path !== undefined) {
        event.preventDefault();
        tree.box.focus();
        select(path);
    }
});
document.addEventListener("keydown", event => {
    if (event.key === "Escape" && queryBox.value)
        search("");
});

tree.box.addEventListener("scroll", () => tree.draw(), {passive: true});
tree.box.addEventListener("keydown", event => {
    if (event.ctrlKey || event.altKey || event.metaKey)
        return;
    const path = tree.handleKey(event);
    if (path === undefined)
        return;
    event.preventDefault();
    if (path !== null)
        select(path);
});
tree.box.addEventListener("click", event => {
    const row = event.target.closest(".row");
    if (!row)
        return;
    const path = Number(row.dataset.path);
    const isTwisty = event.target.closest(".twisty") !== null;
    if ((isTwisty || event.detail === 2) && tree.hasChildren(path))
        tree.setOpen(path, !tree.open[path]);
    if (!isTwisty)
        select(path);
});

picture.svg.addEventListener("click", event => {
    const rect = event.target.closest("[data-path]");
    if (rect)
        select(Number(rect.dataset.path));
});
picture.svg.addEventListener("dblclick", event => {
    const rect = event.target.closest("[data-path]");
    if (rect && endOf[rect.dataset.path] > Number(rect.dataset.path) + 1)
        enlarge(Number(rect.dataset.path));
});
measureBox.addEventListener("change", () => picture.update(measureBox.value));
enlargeButton.addEventListener("click", () => enlarge(tree.selected));
wholeButton.addEventListener("click", () => enlarge(0));
new ResizeObserver(() => {
    picture.draw();
    tree.draw();
}).observe(picture.svg);
window.addEventListener("resize", () => tree.draw());

// On paper there is nothing to scroll: it gets all rows that are open, within reason.
window.addEventListener("beforeprint", () => {
    const most = 3000;
    tree.draw(0, Math.min(tree.rows.length, most));
    const cut = document.getElementById("cut");
    cut.hidden = tree.rows.length <= most;
    cut.textContent = `${formatCount(tree.rows.length - most, "more row")} left out.`;
});
window.addEventListener("afterprint", () => {
    document.getElementById("cut").hidden = true;
    tree.draw();
});

function showHeader() {
    document.title = data.project + " – project metadata";
    document.getElementById("project").append(element("bdi", "", data.project));
    const withNode = data.paths.filter(path => path[3]).length;
    document.getElementById("summary").textContent =
        `${formatCount(pathCount - 1, "path")}, ${withNode.toLocaleString("en")} with metadata; as of ${data.time}`;
    for (const id of ["damages", "harmless", "foreign"]) {
        const section = document.getElementById(id);
        section.hidden = data[id].length === 0;
        for (const [file, problem] of data[id])
            section.querySelector("ul").append(element("li", "", [element("code", "", [element("bdi", "", file)]), ": ",
                element("bdi", "", problem)]));
    }
}

function showTypes() {
    for (const [type, {count, mark, hue}] of types) {
        const box = element("input");
        box.type = "checkbox";
        box.checked = true;
        box.addEventListener("change", () => {
            filter.hiddenTypes[box.checked ? "delete" : "add"](type);
            filterChanged();
        });
        document.getElementById("types").append(element("label", "",
            [box, makeDot(mark, hue), element("bdi", "", type), element("span", "number", count.toLocaleString("en"))]));
    }
    document.getElementById("types").hidden = types.size === 0;
}

showHeader();
showTypes();
tree.open[0] = 1;
filterChanged();
select(0);
