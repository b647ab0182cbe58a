// The settings. Every control changes a copy of the state and hands it to `change`; what the state says is written back by `show`, which
// leaves alone what has the focus.

import { digitsOf, element, swatch } from "./answer.js";
import { drawMark, looks, nameOf } from "./categories.js";
import { axisName, measured } from "./plane.js";
import { planeSize } from "./plane_size.js";
import { hasRoomForCut, maxRules, measurements, newRule, numCategoriesOf, onGrid, startingPoints, trainingPoints } from "./state.js";
import { answeringCounts, boxOf, nodeAt, pathTo, replaced, sideOf } from "./tree.js";

const byId = (id) => document.getElementById(id);
const range = (count) => [...Array(count).keys()];
const breakpoints = ["a", "b", "c", "d"];
const meanings = { a: "0 up to", b: "1 from", c: "1 up to", d: "0 from" };

let sliderCount = 0;

/** A slider with its label and its value beside it, as `format` writes it. */
function slider(text, attributes, changed, format = String) {
    const id = `slider-${++sliderCount}`;
    const input = element("input", { type: "range", id, ...attributes });
    const shown = element("output", { for: id });
    input.addEventListener("input", () => changed(Number(input.value)));
    return { label: element("label", { for: id }, text), line: element("span", { class: "slider" }, input, shown), input, shown, format };
}

function button(text, pressed) {
    const made = element("button", { type: "button" }, text);
    made.addEventListener("click", pressed);
    return made;
}

/** Writes a value beside its slider, if it is another one: each change costs a new layout of the page. */
function setShown(input, shown, text) {
    if (shown.value !== text) {
        shown.value = text;
        input.setAttribute("aria-valuetext", text);
    }
}

function set(slid, value) {
    slid.input.value = value;
    setShown(slid.input, slid.shown, slid.format(value));
}

export class Controls {
    constructor(get, change) {
        this.get = get;
        this.change = change;
        this.category = 0;
        this.chosenRule = 0;
        this.action = "place";
        this.lacks = "";
        /** The measurement that a drag in the plane cuts, or "" where it moves what is there. */
        this.cutting = "";
        this.shownKey = {};
        this.connect();
    }

    /** Changes some fields. */
    put(fields) {
        this.change({ ...this.get(), ...fields });
    }

    nameOfAxis(axis) {
        return axisName(this.get(), "xy".indexOf(axis));
    }

    /** A place in the plane in the unit of the measurement. */
    formatOf(axis) {
        return (value) => digitsOf(measured(this.get(), "xy".indexOf(axis), value));
    }

    connect() {
        byId("controls").addEventListener("submit", (event) => event.preventDefault());
        for (const id of ["axis-x", "axis-y"]) {
            byId(id).append(...measurements.map((name, i) => element("option", { value: i }, name.replaceAll("_", " "))));
            byId(id).addEventListener("change", () => this.put({ axes: [Number(byId("axis-x").value), Number(byId("axis-y").value)] }));
        }
        byId("data").addEventListener("change", (event) => this.start(event.target.value));
        byId("num-categories").addEventListener("change", (event) => this.setNumCategories(Number(event.target.value)));
        byId("technique").addEventListener("change", (event) => this.setTechnique(event.target.value));
        byId("missing").addEventListener("change", (event) => this.put({ missing: Number(event.target.value) }));
        byId("lacks").addEventListener("change", (event) => {
            this.lacks = event.target.value;
        });
        byId("action").addEventListener("change", (event) => {
            this.action = event.target.value;
        });
        byId("cutting").addEventListener("change", (event) => {
            this.cutting = event.target.value;
        });
        for (const id of ["k", "order", "threshold"]) {
            byId(id).addEventListener("input", (event) => this.put({ [id]: Number(event.target.value) }));
        }
        byId("add-rule").addEventListener("click", () => this.addRule());
    }

    start(name) {
        if (name === "biopsies") {
            this.put({ data: "biopsies", archive: null });
        } else if (name !== "") {
            this.put({ data: "own", archive: null, ...startingPoints[name]() });
        }
    }

    setNumCategories(numCategories) {
        const state = this.get();
        this.category = Math.min(this.category, numCategories - 1);
        this.put({
            numCategories,
            points: state.points.filter(({ label }) => label < numCategories),
            rules: state.rules.filter(({ label }) => label < numCategories),
        });
    }

    setTechnique(technique) {
        const isEmpty = technique === "rules" && this.get().rules.length === 0;
        const rules = isEmpty ? [newRule(0), { ...newRule(1), x: { on: true, a: 4, b: 6, c: 10, d: 10 } }] : this.get().rules;
        this.put({ technique, rules });
    }

    addRule() {
        const state = this.get();
        this.chosenRule = state.rules.length;
        this.put({ rules: [...state.rules, newRule(Math.min(this.category, numCategoriesOf(state) - 1))] });
    }

    setRule(index, fields) {
        this.chosenRule = index;
        this.put({ rules: this.get().rules.map((rule, i) => (i === index ? { ...rule, ...fields } : rule)) });
    }

    /** Moves a breakpoint; those that it meets go with it. */
    setBreakpoint(index, axis, name, value) {
        const score = { ...this.get().rules[index][axis], [name]: onGrid(value) };
        const place = breakpoints.indexOf(name);
        breakpoints.forEach((other, i) => {
            score[other] = i < place ? Math.min(score[other], score[name]) : i > place ? Math.max(score[other], score[name]) : score[name];
        });
        this.setRule(index, { [axis]: score });
    }

    setLimit(path, value) {
        const { tree } = this.get();
        this.put({ tree: replaced(tree, path, { ...nodeAt(tree, path), limit: onGrid(value) }) });
    }

    addCut(path, axis, limit) {
        this.put({ tree: replaced(this.get().tree, path, { axis, limit: onGrid(limit), low: null, high: null }) });
    }

    /** Cuts the leaf at a place there. Returns the path of the cut, or null where there is no room for one more. */
    cutAt(place) {
        const { tree } = this.get();
        const path = pathTo(tree, place);
        if (!hasRoomForCut(tree, path)) {
            return null;
        }
        this.addCut(path, this.cutting, place[this.cutting]);
        return path;
    }

    /** Cuts a leaf in its middle. */
    halve(path, axis) {
        const box = boxOf(this.get().tree, path, planeSize);
        this.addCut(path, axis, axis === "x" ? (box.left + box.right) / 2 : (box.bottom + box.top) / 2);
    }

    removeCut(path) {
        this.put({ tree: replaced(this.get().tree, path, null) });
    }

    setCategory(label) {
        if (label < this.get().numCategories) {
            this.category = label;
            byId("category").querySelectorAll("input")[label].checked = true;
        }
    }

    // --- What the state says

    show(state) {
        this.showWhatApplies(state);
        byId("data").value = state.data === "biopsies" ? "biopsies" : "";
        byId("axis-x").value = state.axes[0];
        byId("axis-y").value = state.axes[1];
        byId("num-categories").value = state.numCategories;
        byId("technique").value = state.technique;
        byId("missing").value = state.missing;
        for (const id of ["k", "order", "threshold"]) {
            byId(id).value = state[id];
            setShown(byId(id), byId(id).nextElementSibling, String(state[id]));
        }
        const numCategories = numCategoriesOf(state);
        this.ifChanged("categories", `${state.data} ${state.numCategories} ${numCategories}`, () => this.buildCategories(state));
        this.ifChanged("costs", `${state.data} ${numCategories}`, () => this.buildCosts(state));
        this.ifChanged("tree", `${state.data} ${state.axes} ${JSON.stringify(state.tree, (key, value) => (key === "limit" ? 0 : value))}`, () => this.buildTree(state));
        this.ifChanged("rules", `${state.data} ${state.axes} ${numCategories} ${state.rules.length}`, () => this.buildRules(state));
        this.showCosts(state);
        if (state.technique === "tree") {
            this.showTree(state);
        }
        this.showRules(state);
    }

    ifChanged(part, key, build) {
        if (this.shownKey[part] !== key) {
            this.shownKey[part] = key;
            build();
        }
    }

    showWhatApplies(state) {
        const isTraining = state.archive === null;
        const isBayes = state.technique === "independent" || state.technique === "joint";
        const applies = {
            "for-own": state.data === "own",
            "for-biopsies": state.data === "biopsies",
            "for-neighbors": state.technique === "neighbors",
            "for-tree": state.technique === "tree" && isTraining,
            "for-rules": state.technique === "rules",
            "for-training": isTraining,
            "for-bayes": isBayes,
            "for-costs": state.technique !== "rules" && (isTraining || state.technique !== "tree"),
        };
        for (const [name, isShown] of Object.entries(applies)) {
            document.querySelectorAll(`.${name}`).forEach((part) => {
                part.hidden = !isShown;
            });
        }
        byId("technique").disabled = !isTraining;
        byId("loaded").hidden = isTraining;
        byId("add-rule").disabled = state.rules.length >= maxRules;
    }

    buildCategories(state) {
        const legend = range(numCategoriesOf(state)).map((label) => {
            const mark = element("canvas", { class: "mark", width: 26, height: 26, "aria-hidden": "true" });
            const context = mark.getContext("2d");
            context.fillStyle = looks[label].area;
            context.fillRect(0, 0, 26, 26);
            drawMark(context, looks[label], 13, 13, 7);
            return element("li", {}, mark, ` ${nameOf(state, label)}`);
        });
        byId("legend").replaceChildren(...legend);
        this.category = Math.min(this.category, state.numCategories - 1);
        byId("category").replaceChildren(...range(state.numCategories).map((label) => {
            const input = element("input", { type: "radio", name: "category", value: label });
            input.checked = label === this.category;
            input.addEventListener("change", () => {
                this.category = label;
            });
            return element("label", {}, input, swatch(label), nameOf(state, label));
        }));
    }

    buildCosts(state) {
        const count = numCategoriesOf(state);
        this.costSliders = [];
        const rows = [];
        for (const truth of range(count)) {
            for (const called of range(count).filter((other) => other !== truth)) {
                const made = slider(`${nameOf(state, truth)} called ${nameOf(state, called)}`, { min: 0, max: 20, step: 0.5 },
                    (value) => this.setCost(truth, called, value));
                this.costSliders.push({ truth, called, made });
                rows.push(element("div", { class: "cost" }, made.label, made.line));
            }
        }
        byId("costs").replaceChildren(...rows);
        this.frequencySliders = range(count).map((label) => slider(nameOf(state, label), { min: 0.1, max: 10, step: 0.1 },
            (value) => this.put({ frequencies: this.get().frequencies.map((old, i) => (i === label ? value : old)) })));
        byId("frequencies").replaceChildren(...this.frequencySliders.map(({ label, line }) => element("div", { class: "cost" }, label, line)));
    }

    setCost(truth, called, value) {
        this.put({ costs: this.get().costs.map((line, i) => (i === truth ? line.map((old, j) => (j === called ? value : old)) : line)) });
    }

    showCosts(state) {
        for (const { truth, called, made } of this.costSliders) {
            set(made, state.costs[truth][called]);
        }
        this.frequencySliders.forEach((made, label) => set(made, state.frequencies[label]));
    }

    buildTree(state) {
        this.treeParts = [];
        byId("cutting").querySelectorAll("span").forEach((text, axis) => {
            text.textContent = `cuts ${axisName(state, axis)}`;
        });
        byId("tree").replaceChildren(this.treeItem(state.tree, [], ""));
    }

    /** One node as an item of the list, and what lies below it. */
    treeItem(tree, path, side) {
        const item = element("li", {});
        if (tree === null) {
            const text = element("span", {});
            this.treeParts.push({ path, text, side });
            const leaf = this.treeParts.filter((part) => part.text !== undefined).length;
            item.append(text, element("br"));
            if (hasRoomForCut(this.get().tree, path)) {
                for (const axis of ["x", "y"]) {
                    const cut = button(`Cut ${this.nameOfAxis(axis)}`, () => this.halve(path, axis));
                    cut.setAttribute("aria-label", `Cut ${this.nameOfAxis(axis)} at leaf ${leaf}`);
                    item.append(cut);
                }
            }
            return item;
        }
        const name = `${side}${this.nameOfAxis(tree.axis)} ≤`;
        const made = slider(name, { min: 0, max: planeSize, step: 0.01 }, (value) => this.setLimit(path, value), this.formatOf(tree.axis));
        this.treeParts.push({ path, made });
        const remove = button("Remove", () => this.removeCut(path));
        remove.setAttribute("aria-label", `Remove the cut ${name}`);
        made.line.append(remove);
        item.append(made.label, made.line, element("ul", {}, this.treeItem(tree.low, [...path, "low"], "yes: "),
            this.treeItem(tree.high, [...path, "high"], "no: ")));
        return item;
    }

    showTree(state) {
        const count = numCategoriesOf(state);
        for (const { path, made, text, side } of this.treeParts) {
            if (made !== undefined) {
                set(made, nodeAt(state.tree, path).limit);
                continue;
            }
            let points = trainingPoints(state);
            let counts = answeringCounts(points, count, new Array(count).fill(1));
            let node = state.tree;
            for (const name of path) {
                const cut = node;
                points = points.filter((point) => sideOf(cut, point) === name);
                counts = answeringCounts(points, count, counts);
                node = node[name];
            }
            const shares = counts.map((number, label) => `${nameOf(state, label)} ${number}`).join(", ");
            text.textContent = `${side}leaf: ${shares}${points.length === 0 ? ", from above: no point is here" : ""}`;
        }
    }

    buildRules(state) {
        this.chosenRule = Math.min(this.chosenRule, Math.max(state.rules.length - 1, 0));
        this.ruleParts = state.rules.map((rule, index) => this.rulePart(state, index));
        byId("rules").replaceChildren(...this.ruleParts.map(({ part }) => part));
    }

    rulePart(state, index) {
        const part = element("div", { class: "rule", role: "group", "aria-label": `Rule ${index + 1}` });
        part.addEventListener("focusin", () => this.choose(index));
        part.addEventListener("pointerdown", () => this.choose(index));
        const label = element("select", { "aria-label": `Category of rule ${index + 1}` },
            ...range(numCategoriesOf(state)).map((other) => element("option", { value: other }, nameOf(state, other))));
        label.addEventListener("change", () => this.setRule(index, { label: Number(label.value) }));
        const remove = button("Remove", () => this.put({ rules: this.get().rules.filter((rule, i) => i !== index) }));
        remove.setAttribute("aria-label", `Remove rule ${index + 1}`);
        const axes = ["x", "y"].map((axis) => this.scorePart(index, axis));
        part.append(element("p", {}, `Rule ${index + 1}: `), element("span", { class: "slider" }, label, remove), ...axes.map((own) => own.part));
        return { part, label, axes };
    }

    scorePart(index, axis) {
        const on = element("input", { type: "checkbox" });
        on.addEventListener("change", () => this.setRule(index, { [axis]: { ...this.get().rules[index][axis], on: on.checked } }));
        const name = this.nameOfAxis(axis);
        const sliders = breakpoints.map((point) => slider(meanings[point],
            { min: 0, max: planeSize, step: 0.01, "aria-label": `Rule ${index + 1}, ${name}, ${meanings[point]}` },
            (value) => this.setBreakpoint(index, axis, point, value), this.formatOf(axis)));
        const group = element("div", {}, ...sliders.map((made) => element("div", { class: "cost" }, made.label, made.line)));
        const part = element("div", {}, element("label", {}, on, ` looks at ${name}`), group);
        return { part, on, sliders, group };
    }

    choose(index) {
        if (this.chosenRule !== index) {
            this.chosenRule = index;
            this.put({});
        }
    }

    showRules(state) {
        this.ruleParts.forEach(({ part, label, axes }, index) => {
            const rule = state.rules[index];
            part.classList.toggle("chosen", index === this.chosenRule);
            label.value = rule.label;
            axes.forEach(({ on, sliders, group }, i) => {
                const score = rule["xy"[i]];
                on.checked = score.on;
                group.hidden = !score.on;
                breakpoints.forEach((name, j) => set(sliders[j], score[name]));
            });
        });
    }
}
