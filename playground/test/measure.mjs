// How fast the page redraws, in a browser, at 300 points of six categories with 30 costs. `measure.mjs drag` drags a point, a cut or a
// breakpoint for two seconds, three times for each technique: when the fine picture stood after the last movement, as this process
// saw it, and how many frames there were. `measure.mjs values` sets each technique's parameters to values all over their ranges, one
// after the other: when the fine picture stood after each. Both are measured without an argument. Other work on the machine shows in
// the figures.

import { choose, drawn, open, pixelOf, slide, startBrowser, stopBrowser } from "./browser.js";

const middle = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];
const ms = (value) => value.toFixed(0);

/** Six clouds, each cost another one than 1. */
async function openSix(technique) {
    const page = await open();
    await choose(page, "#data", "six");
    await choose(page, "#technique", technique);
    await page.evaluate(() => document.querySelectorAll("#costs input").forEach((input, i) => {
        input.value = 0.5 + (i % 7);
        input.dispatchEvent(new Event("input"));
    }));
    await drawn(page);
    return page;
}

// --- Dragging

/** Notes frames and coarse pictures from now on. */
const watch = (page) => page.evaluate(() => {
    window.coarse = 0;
    window.frames = [];
    if (window.isWatched) {
        return;
    }
    window.isWatched = true;
    new PerformanceObserver((list) => {
        window.coarse += list.getEntriesByName("coarse picture").length;
    }).observe({ entryTypes: ["measure"] });
    const note = (time) => {
        window.frames.push(time);
        requestAnimationFrame(note);
    };
    requestAnimationFrame(note);
});

/** Drags along a circle; then how long frames took, how many coarse pictures came, and how late the fine one. */
async function drag(page, from) {
    const start = await pixelOf(page, from.x, from.y);
    await watch(page);
    await page.mouse.move(start.x, start.y);
    await page.mouse.down();
    const began = Date.now();
    let last = began;
    const moves = [];
    while (last - began < 2000) {
        last = Date.now();
        const angle = (last - began) / 300;
        // Not awaited one by one: that takes more than a frame.
        moves.push(page.mouse.move(start.x + 40 * Math.sin(angle), start.y + 40 * (1 - Math.cos(angle))));
        await new Promise((resolve) => setTimeout(resolve, 1000 / 60));
    }
    await Promise.all(moves);
    const seen = await page.evaluate(() => ({ frames: [...window.frames], coarse: window.coarse }));
    await drawn(page);
    const stood = await page.evaluate(() => {
        const { startTime, duration } = performance.getEntriesByName("fine picture").at(-1);
        return performance.timeOrigin + startTime + duration;
    });
    await page.mouse.up();
    const times = seen.frames.slice(1).map((time, i) => time - seen.frames[i]);
    return { fine: stood - last, moves: moves.length, times, coarse: seen.coarse };
}

const drags = [
    ["neighbours, k = 5, order 2", "neighbors", []],
    ["neighbours, k = 40, order 3", "neighbors", [["#k", 40], ["#order", 3]]],
    ["neighbours, k = 40, order 7.5", "neighbors", [["#k", 40], ["#order", 7.5]]],
    ["Bayes, independent", "independent", []],
    ["Bayes, joint", "joint", []],
    ["tree, 3 cuts", "tree", []],
    ["rules, 2", "rules", []],
];

async function measureDrags() {
    for (const [name, technique, sliders] of drags) {
        const page = await openSix(technique);
        for (const [selector, value] of sliders) {
            await slide(page, selector, value);
        }
        for (const cut of technique === "tree" ? ["Cut x at leaf 1", "Cut y at leaf 2", "Cut y at leaf 1"] : []) {
            await page.getByRole("button", { name: cut }).click();
        }
        await drawn(page);
        const rounds = [];
        for (let round = 0; round < 3; ++round) {
            // What is dragged is a point, a cut or a breakpoint.
            rounds.push(await drag(page, { x: technique === "rules" ? 4 : 5, y: 5 }));
        }
        await page.close();
        const late = rounds.map(({ fine }) => fine);
        const times = rounds.flatMap((round) => round.times);
        const sum = (what) => rounds.reduce((all, round) => all + round[what], 0);
        const seconds = times.reduce((all, time) => all + time, 0) / 1000;
        console.log(`${name}: fine picture ${ms(middle(late))} ms (at most ${ms(Math.max(...late))}) after the last movement; `
            + `${(times.length / seconds).toFixed(1)} frames a second, the longest ${Math.max(...times).toFixed(1)} ms, `
            + `${times.filter((time) => time > 25).length} of ${times.length} above 25 ms; `
            + `${sum("coarse")} coarse pictures, ${sum("moves")} movements`);
    }
}

// --- Values

/** Sets an input as a user does. Resolves with the time until the fine picture stood. */
const setAndWait = (page, selector, value) => page.evaluate(([where, next]) => new Promise((resolve) => {
    const input = document.querySelector(where);
    const began = performance.now();
    input.value = next;
    input.dispatchEvent(new Event(input.type === "range" ? "input" : "change"));
    const look = () => {
        const picture = performance.getEntriesByName("fine picture").at(-1);
        if (picture !== undefined && picture.startTime >= began) {
            resolve(picture.startTime + picture.duration - began);
        } else {
            requestAnimationFrame(look);
        }
    };
    requestAnimationFrame(look);
}), [selector, value]);

const range = (low, high, step) => Array.from({ length: Math.round((high - low) / step) + 1 }, (each, i) => low + i * step);

/** Sets each control of a list to each of its values, for each value of the control before it. */
async function sweep(page, name, controls, said = "", found = []) {
    const [[selector, values], ...others] = controls;
    for (const value of values) {
        const time = await setAndWait(page, selector, value);
        found.push({ time, said: `${said} ${selector} ${value}` });
        if (others.length > 0) {
            await sweep(page, name, others, `${said} ${selector} ${value}`, found);
        }
    }
    if (said === "") {
        const slowest = found.reduce((one, other) => (other.time > one.time ? other : one));
        console.log(`${name}: ${found.length} settings, fine picture after ${ms(middle(found.map(({ time }) => time)))} ms, `
            + `at most ${ms(slowest.time)} with${slowest.said}; ${found.filter(({ time }) => time > 250).length} above 250 ms`);
    }
}

async function measureValues() {
    const page = await openSix("neighbors");
    await sweep(page, "neighbours", [["#k", [1, 5, 10, 16, 17, 25, 32, 40]], ["#order", range(0.5, 8, 0.5)]]);
    for (const technique of ["independent", "joint"]) {
        await choose(page, "#technique", technique);
        await sweep(page, technique, [["#missing", ["1", "2", "0"]], ["#frequencies input", range(0.1, 10, 1.1)]]);
    }
    await choose(page, "#technique", "tree");
    // Twelve cuts, four deep.
    for (const [axis, leaves] of [["x", [1]], ["y", [1, 3]], ["x", [1, 3, 5, 7]], ["y", [1, 3, 5, 7, 9]]]) {
        for (const leaf of leaves) {
            await page.getByRole("button", { name: `Cut ${axis} at leaf ${leaf}`, exact: true }).click();
        }
    }
    await sweep(page, "tree, 12 cuts", [["#missing", ["1", "2", "0"]], ["#tree input", range(1, 9, 0.5)]]);
    await choose(page, "#technique", "rules");
    for (let rule = 1; rule <= 6; ++rule) {
        if (rule > 2) {
            await page.click("#add-rule");
        }
        await page.getByRole("group", { name: `Rule ${rule}` }).getByRole("checkbox").nth(1).check();
    }
    await sweep(page, "rules, 6", [["#missing", ["1", "2", "0"]], ["#threshold", range(0, 1, 0.1)]]);
    await page.close();
}

const wanted = process.argv[2] ?? "";
await startBrowser();
if (wanted !== "values") {
    await measureDrags();
}
if (wanted !== "drag") {
    await measureValues();
}
await stopBrowser();
