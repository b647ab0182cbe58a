// What the page shows, as one object, and the address that holds it.

import biopsies from "built/biopsies.json";
import { maxCategories } from "./categories.js";
import { planeSize } from "./plane_size.js";
import { maxCuts, maxDepth, numCuts } from "./tree.js";

export const maxPoints = 600;
export const maxNeighbors = 40;
export const maxRules = 6;
/** An archive of more bytes is not held in the address. */
export const maxArchiveInAddress = 60000;

export const techniques = ["neighbors", "independent", "joint", "tree", "rules"];
export const measurements = biopsies.names;

const noScore = { on: false, a: 0, b: 0, c: planeSize, d: planeSize };

export function newRule(label) {
    return { label, x: { on: true, a: 2, b: 4, c: 6, d: 8 }, y: { ...noScore } };
}

export function newState() {
    return {
        data: "own",
        axes: [0, 5],
        numCategories: 2,
        points: [],
        technique: "neighbors",
        k: 5,
        order: 2,
        costs: Array.from({ length: maxCategories }, () => new Array(maxCategories).fill(1)),
        frequencies: new Array(maxCategories).fill(1),
        missing: 0,
        tree: null,
        threshold: 0.5,
        rules: [],
        archive: null,
        // How many categories the archive decides between, as far as the page has colours.
        numLoaded: 2,
    };
}

/** Random numbers that are the same at every start. */
export function randomFrom(seed) {
    let value = seed;
    return () => {
        value = (Math.imul(value, 1664525) + 1013904223) >>> 0;
        return value / 4294967296;
    };
}

function cloud(random, x, y, spread, label, count) {
    const around = () => (random() + random() + random() + random() - 2) * spread;
    return Array.from({ length: count }, () => ({ x: onGrid(x + around()), y: onGrid(y + around()), label }));
}

function ring(random, label, count) {
    return Array.from({ length: count }, () => {
        const angle = 2 * Math.PI * random();
        const radius = 3.4 + random();
        return { x: onGrid(5 + radius * Math.cos(angle)), y: onGrid(5 + radius * Math.sin(angle)), label };
    });
}

/** Points of one's own lie on a grid that the address can hold. */
export function onGrid(value) {
    return Math.round(Math.min(Math.max(value, 0), planeSize) * 100) / 100;
}

export const startingPoints = {
    empty: () => ({ numCategories: 2, points: [] }),
    two: () => {
        const random = randomFrom(1);
        return { numCategories: 2, points: [...cloud(random, 3.6, 4, 2.2, 0, 40), ...cloud(random, 6.6, 6, 2, 1, 40)] };
    },
    ring: () => {
        const random = randomFrom(2);
        return { numCategories: 2, points: [...cloud(random, 5, 5, 1.8, 0, 50), ...ring(random, 1, 70)] };
    },
    missing: () => {
        const random = randomFrom(3);
        const points = [...cloud(random, 3, 3, 1.8, 0, 30), ...cloud(random, 7, 3.5, 1.8, 1, 30),
            ...cloud(random, 5, 7.5, 1.8, 2, 30)];
        // Every fifth point lacks one of its measurements.
        return {
            numCategories: 3,
            points: points.map((point, i) => (i % 10 === 4 ? { ...point, x: null } : i % 10 === 9 ? { ...point, y: null } : point)),
        };
    },
    six: () => {
        const random = randomFrom(4);
        const points = [];
        for (let label = 0; label < 6; ++label) {
            points.push(...cloud(random, 2 + 3 * (label % 3), 3.2 + 3.6 * Math.floor(label / 3), 1.7, label, 50));
        }
        return { numCategories: 6, points };
    },
};

/** What a measurement of the biopsies is at the ends of the plane. */
export function rangeOf(index) {
    return remembered(`range ${index}`, () => {
        const values = biopsies.rows.map((row) => row[index]);
        const low = Math.min(...values);
        const high = Math.max(...values);
        const margin = 0.04 * (high - low);
        return { low: low - margin, high: high + margin };
    });
}

function biopsyPoints(axes, isOfUse) {
    const ranges = axes.map(rangeOf);
    const scaled = (row, i) => {
        const { low, high } = ranges[i];
        return Math.round(((row[axes[i]] - low) / (high - low)) * planeSize * 1e4) / 1e4;
    };
    return biopsies.rows
        .filter((row, i) => isOfUse(i))
        .map((row) => ({ x: scaled(row, 0), y: scaled(row, 1), label: row.at(-1) }));
}

const isForTest = (index) => index % 3 === 2;
const memory = new Map();

/** The points that the classifier learns from. */
export function trainingPoints(state) {
    if (state.data === "own") {
        return state.points;
    }
    return remembered(`train ${state.axes}`, () => biopsyPoints(state.axes, (i) => !isForTest(i)));
}

/** The points that it is tested on: every third biopsy, or those of one's own that lack nothing. */
export function testPoints(state) {
    if (state.data === "own") {
        return state.points.filter((point) => point.x !== null && point.y !== null);
    }
    return remembered(`test ${state.axes}`, () => biopsyPoints(state.axes, isForTest));
}

function remembered(key, make) {
    if (!memory.has(key)) {
        memory.set(key, make());
    }
    return memory.get(key);
}

export function numCategoriesOf(state) {
    return state.archive !== null ? state.numLoaded : state.data === "own" ? state.numCategories : 2;
}

// --- The address. A point is five characters: twice two for a coordinate in hundredths plus one, 0 if it is missing, and one for
// the category.

const digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

const pairOf = (value) => {
    const number = value === null ? 0 : Math.round(value * 100) + 1;
    return digits[number >> 6] + digits[number & 63];
};
const valueOf = (pair) => {
    const number = digits.indexOf(pair[0]) * 64 + digits.indexOf(pair[1]);
    return number <= 0 ? null : onGrid((number - 1) / 100);
};

function pointsText(points) {
    return points.map((point) => pairOf(point.x) + pairOf(point.y) + point.label).join("");
}

function pointsFrom(text, numCategories) {
    const points = [];
    for (const part of (text.match(/[\w-]{4}[0-5]/g) ?? []).slice(0, maxPoints)) {
        const label = Number(part[4]);
        if (label < numCategories) {
            points.push({ x: valueOf(part.slice(0, 2)), y: valueOf(part.slice(2, 4)), label });
        }
    }
    return points;
}

/** Root first: x or y with the limit, L for a leaf. */
function treeText(tree) {
    return tree === null ? "L" : `${tree.axis}${tree.limit}~${treeText(tree.low)}~${treeText(tree.high)}`;
}

function treeFrom(text) {
    const words = text.split("~");
    let cuts = 0;
    const read = (depth) => {
        const word = words.shift() ?? "L";
        const limit = Number(word.slice(1));
        if (!/^[xy]/.test(word) || Number.isNaN(limit) || depth >= maxDepth || ++cuts > maxCuts) {
            return null;
        }
        const low = read(depth + 1);
        return { axis: word[0], limit: onGrid(limit), low, high: read(depth + 1) };
    };
    return read(0);
}

const scoreText = (score) => `${score.on ? 1 : 0}~${score.a}~${score.b}~${score.c}~${score.d}`;

function scoreFrom(words) {
    const [on, ...breaks] = words.map(Number);
    const [a, b, c, d] = breaks.map(onGrid).sort((first, second) => first - second);
    return { on: on === 1, a, b, c, d };
}

function rulesFrom(text, numCategories) {
    return text
        .split("!")
        .filter((part) => part !== "")
        .map((part) => part.split("~"))
        .filter((words) => words.length === 11 && words.every((word) => word !== "" && !Number.isNaN(Number(word))))
        .slice(0, maxRules)
        .map((words) => ({
            label: numberIn(words[0], 0, numCategories - 1, 0),
            x: scoreFrom(words.slice(1, 6)),
            y: scoreFrom(words.slice(6)),
        }));
}

function numberIn(text, low, high, otherwise) {
    const value = Number(text ?? NaN);
    return text !== "" && value >= low && value <= high ? value : otherwise;
}

const wholeIn = (text, low, high, otherwise) => Math.round(numberIn(text, low, high, otherwise));

/** The part of the address behind #. */
export function addressOf(state) {
    const numCategories = numCategoriesOf(state);
    const range = [...Array(numCategories).keys()];
    const words = new URLSearchParams({
        d: state.data === "own" ? "own" : `biopsies.${state.axes.join(".")}`,
        n: state.numCategories,
        t: state.technique,
        k: state.k,
        o: state.order,
        c: range.map((i) => range.filter((j) => i !== j).map((j) => state.costs[i][j]).join("~")).join("~"),
        f: range.map((i) => state.frequencies[i]).join("~"),
        m: state.missing,
        tree: treeText(state.tree),
        h: state.threshold,
        r: state.rules.map((rule) => `${rule.label}~${scoreText(rule.x)}~${scoreText(rule.y)}`).join("!"),
    });
    if (state.data === "own") {
        words.set("p", pointsText(state.points));
    }
    if (state.archive !== null && state.archive.length <= maxArchiveInAddress) {
        words.set("a", bytesText(state.archive));
        words.set("l", state.numLoaded);
    }
    return words.toString();
}

/** The state of an address; whatever is missing in it or makes no sense is as in a new one. */
export function stateFrom(address) {
    const words = new URLSearchParams(address);
    const state = newState();
    const [data, ...axes] = (words.get("d") ?? "own").split(".");
    if (data === "biopsies") {
        state.data = data;
        state.axes = axes.concat(["", ""]).slice(0, 2)
            .map((text, i) => wholeIn(text, 0, measurements.length - 1, state.axes[i]));
    }
    state.numCategories = wholeIn(words.get("n"), 2, maxCategories, 2);
    state.technique = techniques.includes(words.get("t")) ? words.get("t") : "neighbors";
    state.k = wholeIn(words.get("k"), 1, maxNeighbors, state.k);
    state.order = numberIn(words.get("o"), 0.5, 8, state.order);
    state.missing = wholeIn(words.get("m"), 0, 2, 0);
    state.threshold = numberIn(words.get("h"), 0, 1, state.threshold);
    state.tree = treeFrom(words.get("tree") ?? "L");
    state.archive = bytesFrom(words.get("a") ?? "");
    state.numLoaded = wholeIn(words.get("l"), 2, maxCategories, 2);
    const numCategories = numCategoriesOf(state);
    const costs = (words.get("c") ?? "").split("~");
    const frequencies = (words.get("f") ?? "").split("~");
    for (let i = 0; i < numCategories; ++i) {
        for (let j = 0; j < numCategories; ++j) {
            if (i !== j) {
                state.costs[i][j] = numberIn(costs.shift(), 0, 20, 1);
            }
        }
        state.frequencies[i] = numberIn(frequencies.shift(), 0.1, 10, 1);
    }
    state.points = pointsFrom(words.get("p") ?? "", state.numCategories);
    state.rules = rulesFrom(words.get("r") ?? "", numCategories);
    return state;
}

function bytesText(bytes) {
    let text = "";
    for (const byte of bytes) {
        text += String.fromCharCode(byte);
    }
    return btoa(text).replaceAll("+", "-").replaceAll("/", "_").replaceAll("=", "");
}

function bytesFrom(text) {
    try {
        const plain = atob(text.replaceAll("-", "+").replaceAll("_", "/"));
        return plain === "" ? null : Uint8Array.from(plain, (character) => character.charCodeAt(0));
    } catch {
        return null;
    }
}

export function hasRoomForCut(tree, path) {
    return numCuts(tree) < maxCuts && path.length < maxDepth;
}
