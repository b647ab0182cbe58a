// How fast the page redraws, in a browser: for each technique, 300 points of six categories, while a point, a cut, a breakpoint or a
// slider is dragged for two seconds. Prints a line each. Other work on the machine shows in the figures.

import { choose, drawn, open, pixelOf, slide, startBrowser, stopBrowser } from "./browser.js";

const middle = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

/** Drags along a circle, a movement for each frame; then how long frames took, how many coarse pictures came, and how late the fine one. */
async function drag(page, from) {
    const start = await pixelOf(page, from.x, from.y);
    await page.evaluate(() => {
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
    await page.mouse.move(start.x, start.y);
    await page.mouse.down();
    const began = Date.now();
    let moves = 0;
    while (Date.now() - began < 2000) {
        const angle = (Date.now() - began) / 300;
        await page.mouse.move(start.x + 40 * Math.sin(angle), start.y + 40 * (1 - Math.cos(angle)));
        moves += 1;
    }
    const seen = await page.evaluate(() => ({ frames: [...window.frames], coarse: window.coarse }));
    await page.mouse.up();
    await drawn(page);
    const fine = await page.evaluate(() => performance.getEntriesByName("fine picture").at(-1).duration);
    const times = seen.frames.slice(1).map((time, i) => time - seen.frames[i]);
    return { fine, moves, frames: times.length, coarse: seen.coarse, usual: middle(times), longest: Math.max(...times) };
}

const cases = [
    ["neighbors, k = 5, order 2", "neighbors", []],
    ["neighbors, k = 40, order 3", "neighbors", [["#k", 40], ["#order", 3]]],
    ["independent", "independent", []],
    ["joint", "joint", []],
    ["tree, 3 cuts", "tree", []],
    ["rules, 2", "rules", []],
];

async function openCase(technique, sliders) {
    const page = await open();
    await choose(page, "#data", "six");
    await choose(page, "#technique", technique);
    for (const [selector, value] of sliders) {
        await slide(page, selector, value);
    }
    for (const cut of technique === "tree" ? ["Cut x at leaf 1", "Cut y at leaf 2", "Cut y at leaf 1"] : []) {
        await page.getByRole("button", { name: cut }).click();
    }
    await drawn(page);
    return page;
}

await startBrowser();
for (const [name, technique, sliders] of cases) {
    const page = await openCase(technique, sliders);
    const rounds = [];
    for (let round = 0; round < 3; ++round) {
        // What is dragged is a point, a cut or a breakpoint.
        rounds.push(await drag(page, { x: technique === "rules" ? 4 : 5, y: 5 }));
    }
    await page.close();
    const [late, usual] = [rounds.map(({ fine }) => fine), rounds.map((round) => round.usual)];
    const sum = (what) => rounds.reduce((all, round) => all + round[what], 0);
    console.log(`${name}: fine picture ${middle(late).toFixed(0)} ms (at most ${Math.max(...late).toFixed(0)}) after the last movement; `
        + `${sum("frames")} frames, ${sum("coarse")} coarse pictures, ${sum("moves")} movements in 6 s; `
        + `a frame ${middle(usual).toFixed(1)} ms, the longest ${Math.max(...rounds.map(({ longest }) => longest)).toFixed(1)} ms`);
}
await stopBrowser();
