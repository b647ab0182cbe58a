// What the engine hands to its workers, and what it shows of their answers, with workers that answer when the test says so.

import assert from "node:assert/strict";
import { test } from "node:test";
import { Engine, fineCells } from "../page/engine.js";

class AskedWorker {
    constructor() {
        this.asked = [];
        AskedWorker.made.push(this);
    }

    postMessage(message) {
        this.asked.push(message);
    }

    /** Answers the oldest task, after some milliseconds for each cell; cells say which model they were decided by. */
    answer(error, perCell = 0.005) {
        const { model, task } = this.asked.shift();
        this.model = model ?? this.model;
        const count = task.kind === "rows" ? task.numCells * task.numRows : 1;
        const cells = new Uint8Array(count).fill(this.model);
        this.onmessage({ data: error === undefined ? { cells, numFailed: 0, why: "", milliseconds: count * perCell, numbers: [] } : { error, milliseconds: 1 } });
    }
}
globalThis.Worker = AskedWorker;

function started(numWorkers) {
    AskedWorker.made = [];
    const seen = { pictures: [], finished: 0, failed: [] };
    const engine = new Engine("", numWorkers, {
        picture: (cells, numCells, firstRow, numRows) => seen.pictures.push({ model: cells[0], numCells, firstRow, numRows }),
        answered() {},
        tested() {},
        unanswered() {},
        failed: (message) => seen.failed.push(message),
        finished: () => {
            seen.finished += 1;
        },
    });
    return { engine, seen, workers: AskedWorker.made };
}

test("The fine picture consists of strips that follow each other; a busy worker has one more to go on with", () => {
    const { engine, seen, workers } = started(2);
    engine.setModel(1, 0, []);
    assert.deepEqual(workers.map(({ asked }) => asked.length), [1, 0]);
    workers[0].answer();
    for (let turn = 0; seen.finished === 0; turn = 1 - turn) {
        const asked = workers.map((worker) => worker.asked.length);
        assert.ok(Math.max(...asked) <= 2, `${asked}`);
        if (seen.pictures.length < 20) {
            assert.deepEqual(asked, [2, 2]);
        }
        workers[workers[turn].asked.length > 0 ? turn : 1 - turn].answer();
    }
    const [coarse, ...fine] = seen.pictures;
    assert.ok(coarse.numCells < fineCells && coarse.numRows === coarse.numCells);
    const rows = fine.flatMap(({ firstRow, numRows }) => Array.from({ length: numRows }, (each, i) => firstRow + i));
    assert.deepEqual(rows.sort((a, b) => a - b), [...Array(fineCells).keys()]);
    assert.equal(seen.finished, 1);
});

test("A strip has as many rows as eight milliseconds allow, from 1 to 25", () => {
    for (const [perCell, numRows] of [[0.1, 1], [0.004, 8], [0.0013, 24], [0, 25]]) {
        const { engine, workers } = started(1);
        engine.setModel(1, 0, []);
        workers[0].answer(undefined, perCell);
        assert.deepEqual(workers[0].asked.map(({ task }) => task.numRows), [numRows, numRows]);
    }
});

test("A newer state comes next, by a model that each worker is given once, and no strip of an older one is shown", () => {
    const { engine, seen, workers } = started(2);
    engine.setModel(1, 0, []);
    workers[0].answer();
    engine.setModel(2, 0, []);
    const before = seen.pictures.length;
    workers[0].answer();
    workers[0].answer();
    assert.equal(seen.pictures.length, before);
    assert.equal(workers[0].asked.length, 1);
    assert.equal(workers[0].asked[0].model, 2);
    assert.ok(workers[0].asked[0].task.numCells < fineCells);
    while (seen.finished === 0) {
        workers.find(({ asked }) => asked.length > 0).answer();
    }
    assert.ok(seen.pictures.slice(before).every(({ model }) => model === 2));
});

test("Where the classifier cannot be made, nothing is drawn, not even what was under way before", () => {
    const { engine, seen, workers } = started(2);
    engine.setModel(1, 0, []);
    engine.setModel(2, 0, []);
    assert.deepEqual(workers.map(({ asked }) => asked[0].model), [1, 2]);
    workers[1].answer("no classifier");
    workers[0].answer();
    assert.deepEqual(seen, { pictures: [], finished: 0, failed: ["no classifier"] });
    assert.ok(workers.every(({ asked }) => asked.length === 0));
    engine.setModel(3, 0, []);
    workers[0].answer();
    assert.deepEqual(seen.pictures.map(({ model }) => model), [3]);
});
