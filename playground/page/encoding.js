// The state as the numbers that src/classifiers.cpp reads.

import { numCategoriesOf, trainingPoints } from "./state.js";
import { answeringCounts, sideOf } from "./tree.js";

const techniqueNumbers = { neighbors: 0, independent: 1, joint: 1, tree: 2, rules: 3 };
export const techniqueNames = ["neighbors", "independent", "tree", "rules"];

function costsAndFrequencies(state) {
    const range = [...Array(numCategoriesOf(state)).keys()];
    return [
        range.length,
        ...range.flatMap((i) => range.map((j) => (i === j ? 0 : state.costs[i][j]))),
        ...range.map((i) => state.frequencies[i]),
    ];
}

/** A cut is written before what lies on its sides; a leaf with the counts that it answers with. */
function treeNumbers(tree, points, numCategories, otherwise, out) {
    const counts = answeringCounts(points, numCategories, otherwise);
    if (tree === null) {
        out.push(-1, ...counts);
        return;
    }
    out.push(tree.axis === "x" ? 0 : 1, tree.limit);
    for (const side of ["low", "high"]) {
        treeNumbers(tree[side], points.filter((point) => sideOf(tree, point) === side), numCategories, counts, out);
    }
}

const scoreNumbers = (score) => [score.on ? 1 : 0, score.a, score.b, score.c, score.d];

function techniqueSpecifics(state, points) {
    switch (state.technique) {
    case "neighbors":
        return [state.k, state.order];
    case "independent":
        return [0];
    case "joint":
        return [1];
    case "tree": {
        const out = [];
        const numCategories = numCategoriesOf(state);
        treeNumbers(state.tree, points, numCategories, new Array(numCategories).fill(1), out);
        return out;
    }
    default:
        return [
            state.threshold,
            state.rules.length,
            ...state.rules.flatMap((rule) => [rule.label, ...scoreNumbers(rule.x), ...scoreNumbers(rule.y)]),
        ];
    }
}

/** What a worker makes its classifier from: numbers to train with, or an archive and numbers to retrain with. */
export function modelOf(state) {
    if (state.archive !== null) {
        const numbers = state.technique === "rules" ? [state.threshold]
            : [...costsAndFrequencies(state), state.k, state.order];
        return { archive: state.archive, isTableFirst: state.technique === "rules", numbers: Float64Array.from(numbers) };
    }
    const points = trainingPoints(state);
    const numbers = [techniqueNumbers[state.technique], ...costsAndFrequencies(state), points.length];
    for (const point of points) {
        numbers.push(point.x ?? NaN, point.y ?? NaN, point.label);
    }
    numbers.push(...techniqueSpecifics(state, points));
    return { archive: null, numbers: Float64Array.from(numbers) };
}
