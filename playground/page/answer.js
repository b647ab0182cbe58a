// The answer for a pattern: the decision rule with its numbers. The numbers are those of the library; the formulas say how the posterior
// probabilities and expected costs of its answer follow from match scores, frequencies and costs.

import { looks, nameOf } from "./categories.js";
import { axisName, measured } from "./plane.js";

export const digitsOf = (value) => (Number.isFinite(value) ? String(Number(value.toPrecision(4))) : String(value));

/** A number in four digits, which holds all of them as well. */
const number = (value) => element("data", { value: String(value) }, digitsOf(value));

/** An element with attributes and children, which are elements or texts. */
export function element(name, attributes = {}, ...children) {
    const made = document.createElement(name);
    for (const [key, value] of Object.entries(attributes)) {
        made.setAttribute(key, value);
    }
    made.append(...children);
    return made;
}

export function swatch(label) {
    const made = element("span", { class: "swatch", "aria-hidden": "true" });
    made.style.background = looks[label]?.area ?? "#6f6f6f";
    return made;
}

function placeText(state, question) {
    const part = (axis, value) => `${axisName(state, axis)} ${digitsOf(measured(state, axis, value))}`;
    return [
        state.missing === 1 ? `${axisName(state, 0)} missing` : part(0, question.x),
        state.missing === 2 ? `${axisName(state, 1)} missing` : part(1, question.y),
    ].join(", ");
}

/** Categories of an answer by a tool, in the order of the answer. */
function categoriesOf(numbers) {
    const categories = [];
    for (let i = 1; i < numbers.length; i += 4) {
        const [label, match, posterior, cost] = numbers.slice(i, i + 4);
        categories.push({ label, match, posterior, cost });
    }
    return categories;
}

/** In an answer by nearest neighbours or a tree all categories count as equally frequent. */
function frequencyOf(state, label) {
    return state.technique === "independent" || state.technique === "joint" ? state.frequencies[label] ?? 1 : 1;
}

const costOf = (state, truth, called) => state.costs[truth]?.[called] ?? 1;

function posteriorFormula(state, category, categories) {
    const term = ({ label, match }) => `${digitsOf(match)}·${digitsOf(frequencyOf(state, label))}`;
    return [`${term(category)} / (${categories.map(term).join(" + ")}) = `, number(category.posterior)];
}

function costFormula(state, category, categories) {
    const terms = categories
        .filter(({ label }) => label !== category.label)
        .map(({ label, posterior }) => `${digitsOf(costOf(state, label, category.label))}·${digitsOf(posterior)}`);
    return [`${terms.length === 0 ? "0" : terms.join(" + ")} = `, number(category.cost)];
}

/** A row of a table. Cells carry the head of their column: in a narrow window they stand below each other. */
function row(cells, head) {
    return element("tr", { role: "row" }, ...cells.map((cell, i) => (i === 0 ? element("th", { scope: "row", role: "rowheader" }, ...cell)
        : element("td", { role: "cell", "data-head": head[i] }, ...cell))));
}

/** A table that keeps its meaning for screen readers however the style lays it out. */
function table(caption, head, rows) {
    const heads = head.map((text) => element("th", { scope: "col", role: "columnheader" }, text));
    return element("div", { class: "wide", tabindex: "0", role: "group", "aria-label": caption },
        element("table", { role: "table" }, element("caption", {}, caption),
            element("thead", { role: "rowgroup" }, element("tr", { role: "row" }, ...heads)),
            element("tbody", { role: "rowgroup" }, ...rows.map((cells) => row(cells, head)))));
}

function byTool(state, numbers) {
    const categories = categoriesOf(numbers);
    const decided = categories[0];
    const isStored = state.technique === "tree" && state.archive !== null;
    const rows = categories.map((category) => {
        const { label, match } = category;
        const name = [swatch(label), nameOf(state, label)];
        return isStored ? [name, [number(match)], [number(category.posterior)], [number(category.cost)]]
            : [name, [number(match)], [digitsOf(frequencyOf(state, label))],
                posteriorFormula(state, category, categories), costFormula(state, category, categories)];
    });
    const head = isStored ? ["category", "match score", "posterior", "expected cost"]
        : ["category", "match score m", "frequency f", "posterior p = m·f / sum of m·f", "expected cost = sum of cost·p of the others"];
    const details = [table("Each category, the least expected cost first", head, rows)];
    if (state.technique === "independent" || state.technique === "joint") {
        details.push(element("p", {}, `ln likelihood of ${nameOf(state, decided.label)}: ln(match score) - factor = `
            + `${digitsOf(Math.log(decided.match))} - (${digitsOf(numbers[0])}) = ${digitsOf(Math.log(decided.match) - numbers[0])}`));
    }
    const summary = `${nameOf(state, decided.label)}: posterior ${digitsOf(decided.posterior)}, expected cost ${digitsOf(decided.cost)}`;
    return { summary, details };
}

const scoreText = (score) => (score === -1 || Number.isNaN(score) ? "left out" : digitsOf(score));

/** The geometric mean of the scores that count. */
function meanFormula(x, y, score) {
    const counted = [x, y].filter((value) => value !== -1 && !Number.isNaN(value)).map(digitsOf);
    return counted.length === 0 ? "nothing counts, so 1"
        : counted.length === 1 ? `${counted[0]}` : `√(${counted.join("·")}) = ${digitsOf(score)}`;
}

function byRules(state, numbers) {
    const rows = [];
    for (let i = 1, rule = 1; i < numbers.length; i += 4, ++rule) {
        const [label, score, x, y] = numbers.slice(i, i + 4);
        rows.push([[`rule ${rule}`], [swatch(label), nameOf(state, label)], [scoreText(x)], [scoreText(y)],
            [meanFormula(x, y, score)], [score > state.threshold ? "passes" : "no"]]);
    }
    const decided = numbers[0];
    const summary = decided < 0 ? "no rule passes: no decision" : `${nameOf(state, decided)}: the first rule that passes decides`;
    const head = ["rule", "category", `score of ${axisName(state, 0)}`, `score of ${axisName(state, 1)}`, "geometric mean",
        `> ${digitsOf(state.threshold)}`];
    return { summary, details: [table("Each rule, in the order in which they are tried", head, rows)] };
}

/** Shows an answer, for the pattern in the element's data; returns it in a sentence. */
export function showAnswer(place, state, question, numbers) {
    const { summary, details } = state.technique === "rules" ? byRules(state, numbers) : byTool(state, numbers);
    const sentence = `At ${placeText(state, question)}: ${summary}.`;
    place.replaceChildren(element("p", { class: "summary" }, sentence), ...details);
    place.dataset.x = state.missing === 1 ? "-" : question.x;
    place.dataset.y = state.missing === 2 ? "-" : question.y;
    return sentence;
}
