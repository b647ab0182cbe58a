// Hands work to the workers: first a coarse picture of the newest state, then the answer where the pointer is, then the fine picture in
// strips, which are dropped as soon as the state changes. Each worker has one task, and one strip more to go on with at once, so a
// newer state never waits for more than that.

export const fineCells = 250;
/** What a coarse picture may take, and about what a strip takes, in milliseconds. A newer state waits for it, but each strip has a cost. */
const coarseTime = 6;
const stripTime = 8;
const mostStripRows = 25;
const coarseSizes = [50, 25, 10];

export class Engine {
    /**
     * `views` are called back: picture(cells, numCells, firstRow, numRows); finished(numFailed, why) when the fine picture stands;
     * tested(cells); answered(question, numbers) or unanswered(question, message); failed(message) if there is no classifier.
     */
    constructor(workerSource, numWorkers, views) {
        this.views = views;
        this.version = 0;
        this.model = null;
        this.missing = 0;
        this.question = null;
        this.requests = [];
        this.perCell = 0;
        this.resetPicture();
        const url = URL.createObjectURL(new Blob([workerSource], { type: "text/javascript" }));
        this.workers = Array.from({ length: numWorkers }, () => this.newWorker(url));
    }

    newWorker(url) {
        const own = { worker: new Worker(url), version: 0, tasks: [] };
        own.worker.onmessage = ({ data }) => this.take(own, data);
        own.worker.onerror = (event) => {
            event.preventDefault();
            this.views.failed("This browser cannot run the classifiers: it needs WebAssembly with exceptions and vectors.");
        };
        return own;
    }

    resetPicture() {
        this.isCoarseAsked = false;
        this.isCoarseDone = false;
        this.isBroken = false;
        this.nextRow = 0;
        this.rowsDone = 0;
        this.isTestAsked = false;
        this.numFailed = 0;
        this.why = "";
    }

    /** A new state: the model, what asked patterns lack, and the points to test on. */
    setModel(model, missing, testNumbers) {
        this.version += 1;
        this.model = model;
        this.missing = missing;
        this.testNumbers = testNumbers;
        this.resetPicture();
        this.pump();
    }

    /** Asks for the whole answer at a place. */
    ask(x, y, isSpoken) {
        this.question = { kind: "answer", x, y, isSpoken: isSpoken || (this.question?.isSpoken ?? false) };
        this.pump();
    }

    /** The archive of the classifier, or a rejection with the library's message. */
    store() {
        return this.request({ kind: "store" });
    }

    /** What is in an archive, or a rejection with the library's message. */
    load(archive, isTableFirst) {
        return this.request({ kind: "load", archive, isTableFirst });
    }

    request(task) {
        return new Promise((resolve, reject) => {
            this.requests.push({ ...task, resolve, reject });
            this.pump();
        });
    }

    /** What comes next, or null; for a worker that is busy a strip alone. */
    nextTask(isBusy) {
        if (isBusy) {
            return this.model === null || this.isBroken ? null : this.nextStripTask();
        }
        if (this.requests.length > 0) {
            return this.requests.shift();
        }
        if (this.model === null || this.isBroken) {
            return null;
        }
        if (!this.isCoarseAsked) {
            this.isCoarseAsked = true;
            const numCells = coarseSizes.find((size) => size * size * this.perCell <= coarseTime) ?? coarseSizes.at(-1);
            return { kind: "rows", numCells, firstRow: 0, numRows: numCells, missing: this.missing };
        }
        if (this.question !== null) {
            const question = { ...this.question, missing: this.missing };
            this.question = null;
            return question;
        }
        const strip = this.nextStripTask();
        if (strip !== null) {
            return strip;
        }
        if (this.rowsDone === fineCells && !this.isTestAsked) {
            this.isTestAsked = true;
            return { kind: "each", numbers: this.testNumbers };
        }
        return null;
    }

    nextStripTask() {
        if (!this.isCoarseDone || this.nextRow >= fineCells) {
            return null;
        }
        const inTime = Math.max(Math.floor(stripTime / (this.perCell * fineCells)), 1);
        const firstRow = this.nextRow;
        const numRows = Math.min(inTime, mostStripRows, fineCells - firstRow);
        this.nextRow += numRows;
        return { kind: "rows", numCells: fineCells, firstRow, numRows, missing: this.missing };
    }

    /** Everybody gets something before somebody gets a second strip. */
    pump() {
        for (const numTasks of [0, 1]) {
            for (const own of this.workers.filter(({ tasks }) => tasks.length === numTasks)) {
                const task = this.nextTask(numTasks > 0);
                if (task !== null) {
                    this.give(own, task);
                }
            }
        }
    }

    give(own, task) {
        // A load replaces what the worker has; a store of a model that cannot be made fails by itself.
        const isNewModel = task.kind !== "load" && own.version !== this.version;
        own.tasks.push({ task, version: this.version });
        own.version = task.kind === "load" ? 0 : this.version;
        const { resolve, reject, ...plain } = task;
        own.worker.postMessage({ model: isNewModel ? this.model : null, task: plain });
    }

    take(own, data) {
        const { task, version } = own.tasks.shift();
        const isNew = version === this.version;
        if (data.error !== undefined) {
            own.version = 0;
        }
        if (task.resolve !== undefined) {
            data.error === undefined ? task.resolve(data) : task.reject(new Error(data.error));
        } else if (data.error !== undefined) {
            this.refused(task, isNew, data.error);
        } else if (task.kind === "rows") {
            this.takeRows(task, data, isNew);
        } else if (isNew && task.kind === "answer") {
            this.views.answered(task, data.numbers);
        } else if (isNew && task.kind === "each") {
            this.views.tested(data.cells);
        }
        this.pump();
    }

    refused(task, isNew, message) {
        if (isNew && task.kind === "answer") {
            this.views.unanswered(task, message);
        } else if (isNew) {
            this.isBroken = true;
            this.views.failed(message);
        }
    }

    takeRows(task, data, isNew) {
        // Of a classifier that could not be made there is no picture, nor of one before it.
        if (this.isBroken) {
            return;
        }
        const isFine = task.numCells === fineCells;
        this.perCell = data.milliseconds / data.cells.length;
        // A coarse picture of a state that has just gone is better than an older one.
        if (isNew || !isFine) {
            this.views.picture(data.cells, task.numCells, task.firstRow, task.numRows);
        }
        if (!isNew) {
            return;
        }
        this.isCoarseDone = true;
        if (!isFine) {
            return;
        }
        this.numFailed += data.numFailed;
        this.why = data.why || this.why;
        this.rowsDone += task.numRows;
        if (this.rowsDone === fineCells) {
            this.views.finished(this.numFailed, this.why);
        }
    }
}
