// The page in a browser: every control, the answers, the address, keys, touch, what is saved and loaded, and how it looks.

import assert from "node:assert/strict";
import { execFile, execFileSync } from "node:child_process";
import fs from "node:fs";
import http from "node:http";
import os from "node:os";
import path from "node:path";
import { after, before, describe, test } from "node:test";
import { promisify } from "node:util";
import { createRequire } from "node:module";
import zlib from "node:zlib";
import { looks } from "../page/categories.js";
import { answerAt, choose, colorAt, drawn, open, pageFile, parameters, picture, pixelOf, saved, slide, startBrowser, status, stopBrowser, techniques,
    top } from "./browser.js";

before(startBrowser);
after(stopBrowser);

const folder = fs.mkdtempSync(path.join(os.tmpdir(), "playground-"));
after(() => fs.rmSync(folder, { recursive: true }));

/** The color of the regions of a category. */
const areaOf = (label) => [1, 3, 5].map((i) => parseInt(looks[label].area.slice(i, i + 2), 16));

const drawnWhole = "250 × 250 cells drawn.";

/** A page with 300 points of six categories, classified by a technique. */
async function openSix(technique, options) {
    const page = await open(options);
    await choose(page, "#data", "six");
    await choose(page, "#technique", technique);
    if (technique === "tree") {
        await page.getByRole("button", { name: "Cut x at leaf 1" }).click();
        await page.getByRole("button", { name: "Cut y at leaf 2" }).click();
        await page.getByRole("button", { name: "Cut y at leaf 1" }).click();
        await drawn(page);
    }
    return page;
}

/** Sets whatever a technique has to something else than at the start. */
async function unsettle(page, technique) {
    const sliders = {
        neighbors: [["#k", 7], ["#order", 3]],
        independent: [["#frequencies input >> nth=3", 4]],
        joint: [["#frequencies input >> nth=1", 2.5]],
        tree: [["#tree input >> nth=0", 4.55]],
        rules: [["#threshold", 0.4], ['input[aria-label="Rule 1, x, 1 up to"]', 5.25]],
    };
    for (const [selector, value] of sliders[technique]) {
        await slide(page, selector, value);
    }
    if (technique !== "rules") {
        await slide(page, "#costs input >> nth=4", 6);
    }
}

// Two at a time, because a machine of two processors has room for that.
describe("The page", { concurrency: 2 }, () => {
    test("opens from a folder and from a server, and asks for nothing else", async () => {
        const page = await open();
        assert.equal(await status(page), drawnWhole);
        await page.close();
        const server = http.createServer((request, response) => {
            response.setHeader("Content-Type", "text/html");
            response.end(fs.readFileSync(pageFile));
        }).listen(0);
        const served = await open({ address: `http://localhost:${server.address().port}/` });
        assert.equal(await status(served), drawnWhole);
        await served.close();
        server.close();
    });

    test("is no larger than it has to be", () => {
        const bytes = fs.readFileSync(pageFile);
        assert.ok(bytes.length < 900_000, `${bytes.length} bytes`);
        assert.ok(zlib.gzipSync(bytes).length < 340_000, `${zlib.gzipSync(bytes).length} bytes compressed`);
    });

    for (const width of [360, 1280, 1920]) {
        test(`fits into ${width} pixels with every technique, and is accessible`, async () => {
            const axe = fs.readFileSync(createRequire(import.meta.url).resolve("axe-core"), "utf8");
            for (const technique of techniques) {
                const page = await openSix(technique, { viewport: { width, height: 900 }, colorScheme: technique === "joint" ? "dark" : "light" });
                await answerAt(page, 4, 6);
                await page.evaluate(() => {
                    document.querySelectorAll("details").forEach((part) => {
                        part.open = true;
                    });
                });
                const wide = await page.evaluate(() => document.documentElement.scrollWidth);
                assert.ok(wide <= width, `${technique}: ${wide} pixels wide`);
                const [answer, plane, settings] = await page.evaluate(() => [
                    document.querySelector("#answer .wide"), document.querySelector("#plane"), document.querySelector("#controls"),
                ].map((part) => ({ room: part.clientWidth, wide: part.scrollWidth, ...part.getBoundingClientRect().toJSON() })));
                assert.ok(answer.wide <= answer.room, `${technique}: the answer is cut at ${answer.room} of ${answer.wide} pixels`);
                // Settings are beside the plane where there is room, with no empty place between.
                assert.ok(width === 360 ? settings.top > plane.bottom : settings.left > plane.right && settings.left < plane.right + 40,
                    `${technique}: the plane ends at ${plane.right}, ${plane.bottom}, the settings begin at ${settings.left}, ${settings.top}`);
                await page.evaluate(axe);
                const { violations } = await page.evaluate(() => window.axe.run());
                const serious = violations.filter(({ impact }) => ["serious", "critical"].includes(impact));
                assert.deepEqual(serious.map(({ id, nodes }) => [technique, id, nodes[0].html]), []);
                await page.screenshot({ path: path.join(top, `build/playground-shots/${technique}-${width}.png`), fullPage: true });
                await page.close();
            }
        });
    }
});

describe("The points", () => {
    test("are placed, moved and removed by the mouse", async () => {
        const page = await open();
        await choose(page, "#data", "empty");
        assert.match(await status(page), /^ktClassifierDefs::InsufficientTrainData: No valid data was provided for training\.$/);
        const click = async (x, y) => {
            const place = await pixelOf(page, x, y);
            await page.mouse.click(place.x, place.y);
        };
        await slide(page, "#k", 1);
        await click(2, 2);
        await page.getByRole("radio", { name: "B" }).check();
        await click(8, 8);
        await drawn(page);
        assert.equal(parameters(page).get("p").length, 10);
        assert.deepEqual(await colorAt(page, 3, 1), areaOf(0));
        assert.deepEqual(await colorAt(page, 7, 9), areaOf(1));

        const [from, to] = [await pixelOf(page, 8, 8), await pixelOf(page, 2, 9)];
        await page.mouse.move(from.x, from.y);
        await page.mouse.down();
        await page.mouse.move(to.x, to.y, { steps: 5 });
        await page.mouse.up();
        await drawn(page);
        assert.deepEqual(await colorAt(page, 8, 1), areaOf(0));
        assert.deepEqual(await colorAt(page, 1, 8), areaOf(1));
        assert.equal(parameters(page).get("p").length, 10);

        await page.getByRole("radio", { name: "only ask" }).check();
        await click(5, 5);
        await drawn(page);
        assert.equal(parameters(page).get("p").length, 10);
        await page.getByRole("radio", { name: "remove" }).check();
        await click(2, 9);
        await drawn(page);
        assert.equal(parameters(page).get("p").length, 5);
        assert.deepEqual(await colorAt(page, 1, 8), areaOf(0));
        await page.close();
    });

    test("are placed and moved by a finger", async () => {
        const page = await open({ hasTouch: true, viewport: { width: 360, height: 740 } });
        await choose(page, "#data", "empty");
        await page.locator("#plane").scrollIntoViewIfNeeded();
        const place = await pixelOf(page, 3, 7);
        await page.touchscreen.tap(place.x, place.y);
        await drawn(page);
        assert.equal(await status(page), drawnWhole);
        const before = parameters(page).get("p");
        assert.equal(before.length, 5);
        const session = await page.context().newCDPSession(page);
        const touch = (type, x, y) => session.send("Input.dispatchTouchEvent", { type, touchPoints: type === "touchEnd" ? [] : [{ x, y }] });
        await touch("touchStart", place.x + 8, place.y + 8);
        await touch("touchMove", place.x + 90, place.y + 60);
        await touch("touchEnd");
        await drawn(page);
        const moved = parameters(page).get("p");
        assert.equal(moved.length, 5);
        assert.notEqual(moved, before);
        await page.close();
    });

    test("are placed, taken up, moved and removed by keys", async () => {
        const page = await open();
        await choose(page, "#data", "empty");
        await page.focus("#plane");
        for (const key of ["ArrowLeft", "ArrowUp", "Enter", "2", "ArrowRight", "Shift+ArrowDown", "Enter"]) {
            await page.keyboard.press(key);
        }
        await drawn(page);
        assert.equal(parameters(page).get("p").match(/.{5}/g).length, 2);
        assert.match(parameters(page).get("p"), /^.{4}0.{4}1$/);
        const placed = parameters(page).get("p");
        for (const key of ["p", "ArrowRight", "ArrowRight", "p", "ArrowRight"]) {
            await page.keyboard.press(key);
        }
        await drawn(page);
        assert.notEqual(parameters(page).get("p"), placed);
        assert.equal(parameters(page).get("p").slice(0, 5), placed.slice(0, 5));
        assert.match(await page.textContent("#announcement"), /^At x .*: B: posterior 1, expected cost 0\.|^At x .*: A: /);
        await page.keyboard.press("Delete");
        await drawn(page);
        assert.equal(parameters(page).get("p"), placed.slice(0, 5));
        await page.close();
    });

    test("of the biopsies are drawn by two of their measurements, and those not learnt from are called", async () => {
        const page = await open();
        await choose(page, "#data", "biopsies");
        assert.equal(await status(page), drawnWhole);
        assert.match(await page.textContent("#tested"), /^Of the 189 biopsies that it has not learnt from, it calls \d+ by another category, at a cost of \d+\.$/);
        assert.equal(parameters(page).get("d"), "biopsies.0.5");
        assert.match(await page.textContent("#legend"), /benign.*malignant/);
        const before = await picture(page);
        await choose(page, "#axis-x", "1");
        await choose(page, "#axis-y", "2");
        assert.equal(parameters(page).get("d"), "biopsies.1.2");
        assert.notEqual(await picture(page), before);
        assert.match((await answerAt(page, 5, 5)).sentence, /^At worst texture .*, worst area .*: (benign|malignant): posterior/);
        await page.close();
    });

    test("that lack a measurement teach Bayes, and are refused by nearest neighbours in the library's words", async () => {
        const page = await open();
        await choose(page, "#data", "missing");
        assert.equal(await status(page),
            "ktClassifierDefs::BadFeatures: K-nearest neighbor classification does not support invalid measurements");
        await choose(page, "#technique", "joint");
        assert.equal(await status(page), drawnWhole);
        const before = parameters(page).get("p").length;
        await choose(page, "#lacks", "y");
        const place = await pixelOf(page, 5, 9.5);
        await page.mouse.click(place.x, place.y);
        await drawn(page);
        assert.equal(parameters(page).get("p").length, before + 5);
        assert.match(parameters(page).get("p"), /AA0$/);
        await page.close();
    });

    test("start from each of the sets that there are", async () => {
        const page = await open();
        const sets = { two: 80, ring: 120, missing: 90, six: 300, empty: 0 };
        const offered = await page.locator("#data option").evaluateAll((options) => options.map(({ value }) => value));
        assert.deepEqual(offered.sort(), ["", "biopsies", ...Object.keys(sets)].sort());
        for (const [name, count] of Object.entries(sets)) {
            await choose(page, "#data", name);
            assert.equal(parameters(page).get("p").length, 5 * count, name);
        }
        await page.close();
    });

    test("have two to six categories", async () => {
        const page = await open();
        await choose(page, "#num-categories", "4");
        assert.equal(await page.locator("#category input").count(), 4);
        assert.equal(await page.locator("#costs input").count(), 12);
        await choose(page, "#data", "six");
        assert.equal(await page.locator("#costs input").count(), 30);
        await choose(page, "#num-categories", "3");
        assert.equal(parameters(page).get("p").match(/.{5}/g).length, 150);
        await page.close();
    });
});

describe("The techniques", () => {
    test("are drawn in 250 cells each way at last", async () => {
        const page = await open();
        await choose(page, "#data", "empty");
        await choose(page, "#technique", "rules");
        // Rule 1 passes from 3.15 on, between the middles of two fine cells, within one cell of the coarse pictures.
        await slide(page, 'input[aria-label="Rule 1, x, 0 up to"]', 2.3);
        for (const y of [0.5, 5, 9.5]) {
            assert.notDeepEqual(await colorAt(page, 3.14, y), areaOf(0));
            assert.deepEqual(await colorAt(page, 3.18, y), areaOf(0));
        }
        await page.close();
    });

    test("neighbours follow k and the order of the norm", async () => {
        const page = await openSix("neighbors");
        const five = await picture(page);
        await slide(page, "#k", 1);
        const one = await picture(page);
        assert.notEqual(one, five);
        await slide(page, "#order", 1);
        assert.notEqual(await picture(page), one);
        await page.close();
    });

    test("a tree grows by cuts, which sliders and the mouse move", async () => {
        const page = await openSix("tree");
        assert.equal(parameters(page).get("tree").match(/[xy]/g).length, 3);
        const before = parameters(page).get("tree");
        await slide(page, "#tree input >> nth=0", 4);
        assert.match(parameters(page).get("tree"), /^x4~/);
        const [from, to] = [await pixelOf(page, 4, 5.5), await pixelOf(page, 6, 5.5)];
        await page.mouse.move(from.x, from.y);
        await page.mouse.down();
        await page.mouse.move(to.x, to.y, { steps: 4 });
        await page.mouse.up();
        await drawn(page);
        assert.match(parameters(page).get("tree"), /^x(5\.9|6)\d?~/);
        assert.notEqual(parameters(page).get("tree"), before);
        await page.getByRole("button", { name: /^Remove the cut x/ }).click();
        await drawn(page);
        assert.equal(parameters(page).get("tree"), "L");
        await page.close();
    });

    test("a tree is drawn: a drag cuts the leaf that it begins in, and places no point", async () => {
        const page = await openSix("neighbors");
        await choose(page, "#technique", "tree");
        const points = parameters(page).get("p");
        const stroke = async (from, to) => {
            const [start, end] = [await pixelOf(page, ...from), await pixelOf(page, ...to)];
            await page.mouse.move(start.x, start.y);
            await page.mouse.down();
            await page.mouse.move(end.x, end.y, { steps: 4 });
            await page.mouse.up();
            await drawn(page);
        };
        /** The tree with limits in tenths: a pixel is less than that. */
        const tree = () => parameters(page).get("tree").replaceAll(/[\d.]+/g, (limit) => Number(limit).toFixed(1));
        await page.getByRole("radio", { name: "cuts x", exact: true }).check();
        await stroke([3, 9], [4, 9]);
        assert.equal(tree(), "x4.0~L~L");
        await page.getByRole("radio", { name: "cuts y", exact: true }).check();
        await stroke([8, 3], [8, 7]);
        assert.equal(tree(), "x4.0~L~y7.0~L~L");
        await page.getByRole("radio", { name: "moves cuts and points" }).check();
        await stroke([8, 7], [8, 5]);
        assert.equal(tree(), "x4.0~L~y5.0~L~L");
        // Six cuts deep is as deep as it goes.
        await page.getByRole("radio", { name: "cuts x", exact: true }).check();
        for (const x of [9, 8.5, 8, 7.5, 7]) {
            await stroke([x, 2], [x, 2]);
        }
        assert.equal(await status(page), "There is room for 12 cuts, 6 deep.");
        assert.equal(parameters(page).get("tree").match(/[xy]/g).length, 6);
        assert.equal(parameters(page).get("p"), points);
        await page.close();
    });

    test("rules are added, changed by sliders and the mouse, and removed; none at all are refused", async () => {
        const page = await openSix("rules");
        assert.equal(await status(page), drawnWhole);
        const rules = () => parameters(page).get("r").split("!");
        assert.equal(rules().length, 2);
        await page.click("#add-rule");
        await drawn(page);
        assert.equal(rules().length, 3);
        await page.getByLabel("Category of rule 3").selectOption("4");
        await page.getByRole("group", { name: "Rule 3" }).getByRole("checkbox").nth(1).check();
        await slide(page, 'input[aria-label="Rule 3, y, 0 up to"]', 5);
        // A breakpoint takes those along that it meets.
        assert.equal(rules()[2], "4~1~2~4~6~8~1~5~5~10~10");
        const [from, to] = [await pixelOf(page, 8, 2.5), await pixelOf(page, 9, 2.5)];
        await page.mouse.move(from.x, from.y);
        await page.mouse.down();
        await page.mouse.move(to.x, to.y, { steps: 4 });
        await page.mouse.up();
        await drawn(page);
        assert.match(rules()[2], /^4~1~2~4~6~(8\.9|9)\d?~1~5~5~10~10$/);
        const before = await picture(page);
        await slide(page, "#threshold", 0.95);
        assert.notEqual(await picture(page), before);
        for (const number of [3, 2, 1]) {
            await page.getByRole("button", { name: `Remove rule ${number}` }).click();
        }
        await drawn(page);
        assert.equal(await status(page), "ktClassifierDefs::BadParams: rules.size() == 0");
        await page.close();
    });

    test("costs and frequencies move the border", async () => {
        const page = await open();
        await choose(page, "#technique", "independent");
        const equal = await picture(page);
        await slide(page, "#costs input >> nth=0", 20);
        const costly = await picture(page);
        assert.notEqual(costly, equal);
        assert.deepEqual(await colorAt(page, 4.9, 5), areaOf(0));
        await slide(page, "#costs input >> nth=0", 1);
        await slide(page, "#frequencies input >> nth=1", 10);
        assert.notEqual(await picture(page), equal);
        assert.equal(parameters(page).get("f"), "1~10");
        await page.close();
    });

    test("a pattern that lacks a measurement is decided by the other one, or refused", async () => {
        const page = await openSix("independent");
        await choose(page, "#missing", "2");
        assert.deepEqual(await colorAt(page, 1.5, 9.3), await colorAt(page, 1.5, 0.5));
        assert.match((await answerAt(page, 1.5, 0.5)).sentence, /^At x 1\.5\d*, y missing: /);
        await choose(page, "#missing", "1");
        assert.deepEqual(await colorAt(page, 0.5, 1.5), await colorAt(page, 9.3, 1.5));
        assert.notDeepEqual(await colorAt(page, 0.5, 1.5), await colorAt(page, 0.5, 9.3));
        assert.match((await answerAt(page, 0.5, 1.5)).sentence, /^At x missing, y 1\.5\d*: /);
        await choose(page, "#technique", "neighbors");
        const refusal = "ktClassifierDefs::BadFeatures: K-nearest neighbor classification does not support invalid measurements";
        assert.equal(await status(page), refusal);
        assert.equal((await answerAt(page, 2, 2)).sentence, refusal);
        await page.close();
    });
});

/** What the formula says: everything up to the last equality sign. */
function computed(formula) {
    return Function(`return ${formula.slice(0, formula.lastIndexOf("=")).replaceAll("·", "*")}`)();
}

describe("The answer", () => {
    for (const technique of ["neighbors", "independent", "joint", "tree"]) {
        test(`of ${technique} follows from its formulas`, async () => {
            const page = await openSix(technique);
            await slide(page, "#costs input >> nth=2", 7.5);
            if (technique === "joint") {
                await slide(page, "#frequencies input >> nth=3", 4);
            }
            const { sentence, rows } = await answerAt(page, 4.1, 5.2);
            assert.match(sentence, /^At x 4\.\d+, y 5\.\d+: [A-F]: posterior [\d.e-]+, expected cost [\d.e-]+\.$/);
            assert.ok(rows.length > 1);
            let sum = 0;
            for (const [, match, , posterior, cost] of rows) {
                assert.ok(Number(match.value) >= 0 && Number(match.value) <= 1);
                assert.ok(Math.abs(computed(posterior.text) - Number(posterior.value)) < 2e-3, posterior.text);
                assert.ok(Math.abs(computed(cost.text) - Number(cost.value)) < 1e-2, cost.text);
                sum += Number(posterior.value);
            }
            assert.ok(Math.abs(sum - 1) < 1e-12);
            const costs = rows.map((row) => Number(row[4].value));
            assert.deepEqual(costs, [...costs].sort((a, b) => a - b));
            await page.close();
        });
    }

    test("of rules shows the mean of each rule's scores", async () => {
        const page = await openSix("rules");
        await page.getByRole("group", { name: "Rule 1" }).getByRole("checkbox").nth(1).check();
        await slide(page, 'input[aria-label="Rule 1, y, 1 from"]', 8);
        const { sentence, rows } = await answerAt(page, 3.5, 4);
        const [x, y] = [rows[0][2].text, rows[0][3].text].map(Number);
        assert.ok(Math.abs(x - 0.75) < 0.02 && Math.abs(y - 0.5) < 0.02);
        assert.ok(Math.abs(Number(rows[0][4].text.split("= ")[1]) - Math.sqrt(x * y)) < 1e-3);
        assert.match(sentence, /A: the first rule that passes decides\.$/);
        assert.equal(rows[0][5].text, "passes");
        assert.match((await answerAt(page, 0.5, 0.5)).sentence, /no rule passes: no decision\.$/);
        await page.close();
    });
});

describe("The address", () => {
    for (const technique of techniques) {
        test(`holds the state of ${technique}`, async () => {
            const page = await openSix(technique);
            await unsettle(page, technique);
            const before = { picture: await picture(page), address: page.url() };
            const again = await open({ hash: new URL(page.url()).hash });
            assert.equal(await picture(again), before.picture);
            assert.equal(again.url(), before.address);
            await again.close();
            await page.close();
        });
    }

    for (const technique of techniques) {
        test(`holds every slider of ${technique}`, async () => {
            const page = await openSix(technique);
            const sliders = page.locator("#controls input[type=range]:visible");
            const count = await sliders.count();
            assert.ok(count >= (technique === "rules" ? 9 : 30), `${count} sliders`);
            for (let i = 0; i < count; ++i) {
                const slider = sliders.nth(i);
                const before = { address: page.url(), value: await slider.inputValue() };
                const low = Number(await slider.getAttribute("min"));
                await slider.fill(String(low === Number(before.value) ? await slider.getAttribute("max") : low));
                assert.notEqual(await slider.inputValue(), before.value);
                await page.waitForFunction((address) => location.href !== address, before.address);
                const shown = await slider.evaluate((input) => document.querySelector(`output[for="${input.id}"]`).value);
                assert.equal(Number(shown), Number(await slider.inputValue()));
            }
            await page.close();
        });
    }

    test("that makes no sense shows a page that works", async () => {
        const page = await open({ hash: "#d=biopsies.99.x&n=77&t=none&k=-4&o=abc&c=~~a~b&tree=x~y~q5&r=1~2!zz&p=%%%&a=!!&m=9&h=" });
        assert.equal(await status(page), drawnWhole);
        await page.close();
    });
});

const native = () => process.env.PLAYGROUND_NATIVE;

/** Compiles a C++ program against the library of this machine. */
async function compiled(source, program) {
    await promisify(execFile)("g++", ["-std=c++17", "-Wall", "-Wextra", "-Werror", `-I${top}/include`, `-I${top}/foundation/include`, source, "-o", program,
        `-L${native()}`, "-lclastool", "-lktfoundation", `-Wl,-rpath,${native()}`]);
    return program;
}

const numbersOf = (text) => text.trim().split("\n").map((line) => line.split(" ").map(Number));

function assertNear(actual, expected, what) {
    assert.ok(Math.abs(actual - expected) <= 1e-12 * Math.max(1, Math.abs(expected)), `${what}: ${actual}, not ${expected}`);
}

/** Compares what a program prints with what the page shows at the same place. */
async function compare(page, run) {
    const rules = parameters(page).get("t") === "rules";
    for (const [x, y] of [[2, 2], [4.1, 5.2], [9.7, 0.4], [5.5, 8.8]]) {
        const { sentence, rows } = await answerAt(page, x, y);
        const place = await page.evaluate(() => document.querySelector("#answer").dataset);
        const printed = numbersOf(run(place.x, place.y));
        if (rules) {
            const label = "ABCDEF"[printed[0][0]];
            assert.ok(sentence.includes(label === undefined ? "no decision" : `: ${label}: the first rule`), `${sentence} ${printed}`);
            continue;
        }
        assert.equal(printed.length, rows.length);
        rows.forEach((row, i) => {
            assert.equal(row[0].text, "ABCDEF"[printed[i][0]]);
            const [match, posterior, cost] = row.filter((cell) => cell.value !== undefined).map((cell) => Number(cell.value));
            assertNear(match, printed[i][1], "match score");
            assertNear(posterior, printed[i][2], "posterior");
            assertNear(cost, printed[i][3], "expected cost");
        });
    }
}

describe("What is saved", { concurrency: 2 }, () => {
    for (const technique of techniques) {
        test(`of ${technique} gives the same answers in C++, and its program stores the same archive`, async () => {
            const own = path.join(folder, technique);
            fs.mkdirSync(own);
            const page = await openSix(technique);
            await unsettle(page, technique);
            const archive = await saved(page, "#save-archive");
            assert.equal(archive.name, "classifier.ktar");
            const source = await saved(page, "#save-cpp");
            assert.equal(source.name, "playground.cpp");
            fs.copyFileSync(source.file, path.join(own, "trained.cpp"));
            const program = await compiled(path.join(own, "trained.cpp"), path.join(own, "trained"));
            await compare(page, (x, y) => execFileSync(program, [x, y], { encoding: "utf8" }));
            execFileSync(program, ["--store", path.join(own, "stored.ktar")]);
            assert.deepEqual(fs.readFileSync(path.join(own, "stored.ktar")), fs.readFileSync(archive.file));

            // The archive in the page and in the C++ program that loads it.
            const before = await picture(page);
            await page.setInputFiles("#load-archive", archive.file);
            await drawn(page);
            assert.match(await page.textContent("#file-status"), /is loaded\.$/);
            assert.equal(await status(page), drawnWhole);
            if (!["tree", "rules"].includes(technique)) {
                assert.equal(await picture(page), before);
            }
            const loading = await saved(page, "#save-cpp");
            fs.copyFileSync(loading.file, path.join(own, "loaded.cpp"));
            const loader = await compiled(path.join(own, "loaded.cpp"), path.join(own, "loaded"));
            fs.copyFileSync(archive.file, path.join(own, "classifier.ktar"));
            await compare(page, (x, y) => execFileSync(loader, [x, y], { encoding: "utf8", cwd: own }));
            if (process.env.PLAYGROUND_PYTHON !== undefined && technique !== "rules") {
                const python = await saved(page, "#save-python");
                await compare(page, (x, y) => execFileSync(process.env.PLAYGROUND_PYTHON, [python.file, x, y], { encoding: "utf8", cwd: own }));
            }
            const again = await open({ hash: new URL(page.url()).hash });
            await answerAt(again, 5.5, 8.8);
            assert.equal(await picture(again), await picture(page));
            await again.close();
            await page.click("#train-again");
            await drawn(page);
            assert.equal(await picture(page), before);
            await page.close();
        });

        test(`of ${technique} is a Python program`, async () => {
            const page = await openSix(technique);
            await unsettle(page, technique);
            const source = await saved(page, "#save-python");
            assert.equal(source.name, "playground.py");
            const file = path.join(folder, `${technique}.py`);
            fs.copyFileSync(source.file, file);
            execFileSync("python3", ["-m", "py_compile", file]);
            if (process.env.PLAYGROUND_PYTHON !== undefined) {
                await compare(page, (x, y) => execFileSync(process.env.PLAYGROUND_PYTHON, [file, x, y], { encoding: "utf8" }));
            }
            await page.close();
        });
    }

    test("a damaged archive is refused in the library's words, and changes nothing", async () => {
        const page = await openSix("independent");
        const archive = fs.readFileSync((await saved(page, "#save-archive")).file);
        const before = await picture(page);
        const damaged = path.join(folder, "damaged.ktar");
        fs.writeFileSync(damaged, archive.subarray(0, 100));
        await page.setInputFiles("#load-archive", damaged);
        await page.waitForFunction(() => document.getElementById("file-status").textContent.startsWith("damaged.ktar"));
        assert.match(await page.textContent("#file-status"), /^damaged\.ktar: ktArchive::\w+: .+/);
        assert.equal(await picture(page), before);
        fs.writeFileSync(damaged, Buffer.concat([archive, Buffer.from("more")]));
        await page.setInputFiles("#load-archive", damaged);
        await page.waitForFunction(() => document.getElementById("file-status").textContent.includes("behind"));
        assert.equal(parameters(page).has("a"), false);
        await page.close();
    });

    test("the parameters of an archive can be changed without its points", async () => {
        const page = await openSix("neighbors");
        const archive = await saved(page, "#save-archive");
        await choose(page, "#data", "empty");
        await page.setInputFiles("#load-archive", archive.file);
        await drawn(page);
        assert.equal(await page.locator("#costs input").count(), 30);
        assert.equal(await page.locator("#technique").isDisabled(), true);
        const before = await picture(page);
        await slide(page, "#k", 40);
        assert.notEqual(await picture(page), before);
        await page.close();
    });

    test("the programs are shown", async () => {
        const page = await open();
        await page.click("#programs summary");
        await drawn(page);
        assert.match(await page.textContent("#cpp"), /ktClassifierTrainParamsKNN\(5, ktPatternDistanceMetricNorm\(2\), costs\(\)\)/);
        assert.match(await page.textContent("#python"), /clastool\.KNNParams\(5, clastool\.Norm\(2\), costs\)/);
        await page.close();
    });

    test("the address is copied, or the page says that it cannot", async () => {
        const page = await open({ permissions: ["clipboard-read", "clipboard-write"] });
        await page.click("#copy-address");
        await page.waitForFunction(() => document.getElementById("file-status").textContent !== "");
        assert.match(await page.textContent("#file-status"), /^The address is copied\.$|^This browser lets no page copy here/);
        await page.close();
    });
});
