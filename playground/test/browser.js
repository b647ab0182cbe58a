// What the tests share: the page in a browser, and what it shows.

import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";

export const top = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../..");
export const pageFile = path.join(top, "build/playground/index.html");
export const techniques = ["neighbors", "independent", "joint", "tree", "rules"];

let browser;

export async function startBrowser() {
    const executablePath = process.env.CHROMIUM ?? execFileSync("which", ["chromium"], { encoding: "utf8" }).trim();
    // Where tests run as root, there is no sandbox.
    browser = await chromium.launch({ executablePath, args: ["--no-sandbox"] });
    return browser;
}

export const stopBrowser = () => browser.close();

/** Opens the page. What it complains of, or asks for from outside, fails the test that calls `close`. */
export async function open(options = {}) {
    const context = await browser.newContext({ viewport: { width: 1280, height: 900 }, acceptDownloads: true, ...options });
    const page = await context.newPage();
    const complaints = [];
    page.on("console", (message) => {
        if (["error", "warning"].includes(message.type())) {
            complaints.push(message.text());
        }
    });
    page.on("pageerror", (error) => complaints.push(error.stack));
    page.on("request", (request) => {
        if (!/^(data|blob):/.test(request.url()) && !request.isNavigationRequest()) {
            complaints.push(`request for ${request.url()}`);
        }
    });
    await page.goto((options.address ?? `file://${pageFile}`) + (options.hash ?? ""));
    await drawn(page);
    page.close = async () => {
        await context.close();
        assert.deepEqual(complaints, []);
    };
    return page;
}

/** Waits until the address holds the newest state and its fine picture stands, or the library has said why there is none. */
export async function drawn(page) {
    await page.waitForTimeout(250);
    await page.waitForSelector('#plane[aria-busy="false"]');
}

export const status = (page) => page.textContent("#status");

/** Sets a slider as a user does. */
export async function slide(page, selector, value) {
    await page.locator(selector).fill(String(value));
    await drawn(page);
}

export async function choose(page, selector, value) {
    await page.selectOption(selector, value);
    await drawn(page);
}

/** The pixel of a place in the plane. */
export async function pixelOf(page, x, y) {
    await page.locator("#plane").scrollIntoViewIfNeeded();
    const box = await page.locator("#plane").boundingBox();
    const side = { x: box.width - 46 - 12, y: box.height - 12 - 42 };
    return { x: box.x + 46 + (side.x * x) / 10, y: box.y + 12 + side.y * (1 - y / 10) };
}

/** The answer at a place, in all digits: rows of cells of the table, numbers where the library gave them. */
export async function answerAt(page, x, y) {
    const place = await pixelOf(page, x, y);
    await page.mouse.move(place.x, place.y);
    await page.waitForTimeout(150);
    return page.evaluate(() => ({
        sentence: document.querySelector("#answer .summary, #answer .failed")?.textContent ?? "",
        rows: [...document.querySelectorAll("#answer tbody tr")].map((row) => [...row.children].map((cell) => ({
            text: cell.textContent,
            value: cell.querySelector("data")?.value,
        }))),
    }));
}

/** What color the plane has at a place. */
export async function colorAt(page, x, y) {
    const box = await page.locator("#plane").boundingBox();
    const place = await pixelOf(page, x, y);
    return page.evaluate(([left, top]) => {
        const canvas = document.getElementById("plane");
        const scale = canvas.width / canvas.getBoundingClientRect().width;
        const pixel = new OffscreenCanvas(1, 1).getContext("2d");
        pixel.drawImage(canvas, left * scale, top * scale, 1, 1, 0, 0, 1, 1);
        return [...pixel.getImageData(0, 0, 1, 1).data.slice(0, 3)];
    }, [place.x - box.x, place.y - box.y]);
}

/** The picture of the regions alone, in which a state is to be recognised. */
export const picture = (page) => page.evaluate(() => document.getElementById("plane").toDataURL());

export const parameters = (page) => new URLSearchParams(new URL(page.url()).hash.slice(1));

/** The bytes of what a button saves. */
export async function saved(page, selector) {
    const [download] = await Promise.all([page.waitForEvent("download"), page.click(selector)]);
    const file = await download.path();
    return { name: download.suggestedFilename(), file };
}
