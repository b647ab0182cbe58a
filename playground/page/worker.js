// Runs the classifiers beside the page. A message holds a model, if this worker has to make another classifier first, and one task;
// the answer holds what the task gave, or the library's message.

import makeModule from "built/classifiers.mjs";
import { planeSize } from "./plane_size.js";

const ready = makeModule();

/** What the library refused, in its own words. */
class Refusal extends Error {}

function checked(module, outcome) {
    if (outcome < 0) {
        throw new Refusal(module.UTF8ToString(module._message()));
    }
    return outcome;
}

function giveNumbers(module, numbers) {
    module.HEAPF64.set(numbers, module._numbersOf(numbers.length) / 8);
}

function numbersFrom(module, count) {
    const start = module._numbersOf(count) / 8;
    return module.HEAPF64.slice(start, start + count);
}

function bytesFrom(module, count) {
    const start = module._bytesOf(count);
    return module.HEAPU8.slice(start, start + count);
}

function load(module, archive, isTableFirst) {
    module.HEAPU8.set(archive, module._bytesOf(archive.length));
    const technique = checked(module, module._load(isTableFirst ? 1 : 0));
    return { technique, numbers: numbersFrom(module, 4 + 36 + 6) };
}

function make(module, model) {
    if (model.archive !== null) {
        load(module, model.archive, model.isTableFirst);
    }
    giveNumbers(module, model.numbers);
    checked(module, model.archive !== null ? module._retrain() : module._train());
}

/** The cells, and of those that got no answer how many there are and why. */
function picture(module, numFailed, count) {
    return { cells: bytesFrom(module, count), numFailed, why: numFailed > 0 ? module.UTF8ToString(module._message()) : "" };
}

const tasks = {
    rows(module, { numCells, firstRow, numRows, missing }) {
        const numFailed = checked(module, module._decide(planeSize, numCells, firstRow, numRows, missing));
        return picture(module, numFailed, numCells * numRows);
    },
    each(module, { numbers }) {
        giveNumbers(module, numbers);
        const numFailed = checked(module, module._decideEach());
        return picture(module, numFailed, numbers.length / 2);
    },
    answer(module, { x, y, missing }) {
        return { numbers: numbersFrom(module, checked(module, module._answer(x, y, missing))) };
    },
    store(module) {
        return { archive: bytesFrom(module, checked(module, module._store())) };
    },
    load(module, { archive, isTableFirst }) {
        return load(module, archive, isTableFirst);
    },
};

self.onmessage = async ({ data: { model, task } }) => {
    const module = await ready;
    const began = performance.now();
    try {
        if (model !== null) {
            make(module, model);
        }
        const given = tasks[task.kind](module, task);
        self.postMessage({ ...given, milliseconds: performance.now() - began });
    } catch (error) {
        const message = error instanceof Refusal ? error.message : `The classifier failed: ${error}`;
        self.postMessage({ error: message, milliseconds: performance.now() - began });
    }
};
