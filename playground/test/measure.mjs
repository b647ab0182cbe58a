// How fast the page redraws, in a browser: for each technique, 300 points of six categories, while a point, a cut, a breakpoint or a
// slider is dragged for two seconds. Prints a line each; docs/playground.md holds those of one machine.

import { choose, drawn, open, pixelOf, slide, startBrowser, stopBrowser } from "./browser.js";

const middle = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

/** Drags along a circle, a movement for each frame; then how long frames took, how many coarse pictures came, and how late the fine one. */
async function drag(page, from) {
    const start = await pixelOf(page, from.x, from.y);
    await page.evaluate(() => {
        window.coarse = 0;
        new PerformanceObserver((list) => {
            window.coarse += list.getEntriesByName("coarse picture").length;
        }).observe({ entryTypes: ["measure"] });
        window.frames = [];
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

await startBrowser();
for (const [name, technique, sliders] of cases) {
    const fine = [];
    let last;
    for (let round = 0; round < 5; ++round) {
        const page = await open();
        await choose(page, "#data", "six");
        await choose(page, "#technique", technique);
        for (const [selector, value] of sliders) {
            await slide(page, selector, value);
        }
        let from = { x: 5, y: 5 };
        if (technique === "tree") {
            for (const cut of ["Cut x at leaf 1", "Cut y at leaf 2", "Cut y at leaf 1"]) {
                await page.getByRole("button", { name: cut }).click();
            }
            await drawn(page);
        } else if (technique === "rules") {
            from = { x: 4, y: 5 };
        }
        last = await drag(page, from);
        fine.push(last.fine);
        await page.close();
    }
    console.log(`${name}: fine picture ${middle(fine).toFixed(0)} ms (at most ${Math.max(...fine).toFixed(0)}) after the last movement; `
        + `${last.frames} frames, ${last.coarse} coarse pictures, ${last.moves} movements in 2 s; `
        + `a frame ${last.usual.toFixed(1)} ms, the longest ${last.longest.toFixed(1)} ms`);
}
await stopBrowser();
