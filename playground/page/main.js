// The page: one state, which controls, pointer, keys and the address change, and which plane, controls and workers follow.

import workerSource from "built/worker.txt";
import { element, showAnswer } from "./answer.js";
import { nameOf, noCategory } from "./categories.js";
import { Controls } from "./controls.js";
import { Engine, fineCells } from "./engine.js";
import { Plane, axisName } from "./plane.js";
import { planeSize } from "./plane_size.js";
import { archiveName, cppProgram, noPythonBecause, pythonProgram } from "./programs.js";
import { modelOf, techniqueNames } from "./encoding.js";
import { addressOf, maxArchiveInAddress, maxNeighbors, maxPoints, newState, onGrid, startingPoints, stateFrom, testPoints } from "./state.js";
import { maxCuts, maxDepth, nodeAt } from "./tree.js";

const byId = (id) => document.getElementById(id);

let state = location.hash.length > 1 ? stateFrom(location.hash.slice(1)) : { ...newState(), ...startingPoints.two() };
let probe = null;
let isDirty = true;
let isModelDirty = true;
let held = null;
let carried = -1;
let lastMove = 0;
/** The picture that stands with the next drawing of the plane: its name for measurements. */
let pictureToNote = "";
let addressTimer = 0;
let ownAddress = "";

const plane = new Plane(byId("plane"));
const controls = new Controls(() => state, change);
const engine = new Engine(workerSource, Math.min(navigator.hardwareConcurrency, 4), {
    picture(cells, numCells, firstRow, numRows) {
        plane.setCells(cells, numCells, firstRow, numRows);
        pictureToNote = numCells < fineCells ? "coarse picture" : pictureToNote;
        isDirty = true;
    },
    answered(question, numbers) {
        const sentence = showAnswer(byId("answer"), state, question, numbers);
        if (question.isSpoken) {
            byId("announcement").textContent = sentence;
        }
    },
    tested: showTested,
    unanswered(question, message) {
        byId("answer").replaceChildren(element("p", { class: "failed" }, message));
        if (question.isSpoken) {
            byId("announcement").textContent = message;
        }
    },
    failed(message) {
        plane.clearRegions();
        tell(message, true);
        byId("tested").textContent = "";
        isDirty = true;
    },
    finished(numFailed, why) {
        pictureToNote = "fine picture";
        const all = fineCells * fineCells;
        tell(numFailed === 0 ? `${fineCells} × ${fineCells} cells drawn.`
            : numFailed === all ? why : `${numFailed} of ${all} cells have no answer. ${why}`, numFailed > 0);
    },
});

/** That a picture stands, for measurements: since the last change of the state. */
function notePicture() {
    performance.clearMeasures(pictureToNote);
    performance.measure(pictureToNote, { start: lastMove, end: performance.now() });
    pictureToNote = "";
}

function tell(text, isFailure = false) {
    byId("plane").setAttribute("aria-busy", String(isModelDirty));
    byId("status").textContent = text;
    byId("status").classList.toggle("failed", isFailure);
}

function change(next) {
    state = next;
    isModelDirty = true;
    isDirty = true;
    byId("plane").setAttribute("aria-busy", "true");
    lastMove = performance.now();
    clearTimeout(addressTimer);
    addressTimer = setTimeout(keepAddress, 200);
}

function keepAddress() {
    ownAddress = `#${addressOf(state)}`;
    history.replaceState(null, "", ownAddress);
    const isTooLong = state.archive !== null && state.archive.length > maxArchiveInAddress;
    if (isTooLong) {
        byId("file-status").textContent = "The archive is too long to be held in the address.";
    }
}

function frame() {
    if (isModelDirty) {
        isModelDirty = false;
        controls.show(state);
        byId("plane").setAttribute("aria-label", `Plane of ${axisName(state, 0)} and ${axisName(state, 1)}`);
        engine.setModel(modelOf(state), state.missing, testPoints(state).flatMap(({ x, y }) => [x, y]));
        showPrograms();
        ask(false);
    }
    if (isDirty) {
        isDirty = false;
        plane.draw(state, probe, controls.chosenRule);
        if (pictureToNote !== "") {
            notePicture();
        }
    }
    requestAnimationFrame(frame);
}

function ask(isSpoken) {
    if (probe !== null) {
        engine.ask(probe.x, probe.y, isSpoken);
    }
}

function showTested(cells) {
    const points = testPoints(state);
    let wrong = 0;
    let cost = 0;
    let undecided = 0;
    points.forEach(({ label }, i) => {
        if (cells[i] === noCategory) {
            undecided += 1;
        } else if (cells[i] !== label) {
            wrong += 1;
            cost += state.costs[label][cells[i]] ?? 1;
        }
    });
    const which = state.data === "own" ? `${points.length} points that lack nothing` : `${points.length} biopsies that it has not learnt from`;
    const costs = state.technique === "rules" ? "" : `, at a cost of ${Number(cost.toFixed(4))}`;
    byId("tested").textContent = points.length === 0 ? ""
        : `Of the ${which}, it calls ${wrong} by another category${costs}${undecided > 0 ? `, and decides nothing for ${undecided}` : ""}.`;
}

// --- The pointer

function addPoint(place) {
    if (state.points.length >= maxPoints) {
        tellFile(`There is room for ${maxPoints} points.`, true);
        return -1;
    }
    const point = {
        x: controls.lacks === "x" ? null : onGrid(place.x),
        y: controls.lacks === "y" ? null : onGrid(place.y),
        label: controls.category,
    };
    change({ ...state, points: [...state.points, point] });
    return state.points.length - 1;
}

/** A point moves in the measurements that it has. */
function movePoint(index, place) {
    const points = state.points.map((point, i) => (i !== index ? point : {
        ...point,
        x: point.x === null ? null : onGrid(place.x),
        y: point.y === null ? null : onGrid(place.y),
    }));
    change({ ...state, points });
}

function removePoint(index) {
    change({ ...state, points: state.points.filter((point, i) => i !== index) });
}

/** What the pointer takes hold of: a cut or a breakpoint of what is being edited, or a point. */
function takeHold(event, place) {
    const isTraining = state.archive === null;
    if (isTraining && state.technique === "tree") {
        const isNew = controls.cutting !== "";
        const path = isNew ? controls.cutAt(place) : plane.cutAt(state.tree, place, event.pointerType);
        if (path !== null) {
            const { axis } = nodeAt(state.tree, path);
            return (to) => controls.setLimit(path, to[axis]);
        }
        if (isNew) {
            tell(`There is room for ${maxCuts} cuts, ${maxDepth} deep.`, true);
            return () => {};
        }
    }
    const index = controls.chosenRule;
    if (isTraining && state.technique === "rules" && state.rules[index] !== undefined) {
        const found = plane.breakpointAt(state.rules[index], place, event.pointerType);
        if (found !== null) {
            return (to) => controls.setBreakpoint(index, found.axis, found.name, to[found.axis]);
        }
    }
    if (state.data !== "own" || controls.action === "ask") {
        return () => {};
    }
    const near = plane.pointAt(state.points, place, event.pointerType);
    if (controls.action === "remove") {
        if (near >= 0) {
            removePoint(near);
        }
        return () => {};
    }
    const point = near >= 0 ? near : addPoint(place);
    return (to) => movePoint(point, to);
}

function pointAt(place) {
    probe = { x: place.x, y: place.y };
    isDirty = true;
    ask(false);
}

function connectPointer() {
    const canvas = byId("plane");
    canvas.addEventListener("pointerdown", (event) => {
        const place = plane.placeOf(event);
        if (!place.isInside || event.button !== 0) {
            return;
        }
        canvas.setPointerCapture(event.pointerId);
        pointAt(place);
        held = takeHold(event, place);
    });
    canvas.addEventListener("pointermove", (event) => {
        const place = plane.placeOf(event);
        if (held !== null || place.isInside) {
            pointAt(place);
        }
        held?.(place);
    });
    for (const name of ["pointerup", "pointercancel"]) {
        canvas.addEventListener(name, () => {
            held = null;
        });
    }
}

// --- The keys

const arrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowDown: [0, -1], ArrowUp: [0, 1] };

function moveProbe([right, up], step) {
    const from = probe ?? { x: planeSize / 2, y: planeSize / 2 };
    probe = { x: onGrid(from.x + right * step), y: onGrid(from.y + up * step) };
    isDirty = true;
    if (carried >= 0) {
        movePoint(carried, probe);
    }
    ask(true);
}

/** The nearest point of one's own however far it is, or -1. */
function nearestPoint() {
    let nearest = -1;
    let least = Infinity;
    state.points.forEach((point, i) => {
        const away = plane.distance(probe, { x: point.x ?? 0, y: point.y ?? 0 });
        if (away < least) {
            least = away;
            nearest = i;
        }
    });
    return nearest;
}

function pressed(key) {
    if (state.data !== "own" || probe === null) {
        return;
    }
    const keys = {
        Enter: () => addPoint(probe),
        " ": () => addPoint(probe),
        p: () => {
            carried = carried >= 0 ? -1 : nearestPoint();
            const point = state.points[carried];
            if (point !== undefined) {
                probe = { x: point.x ?? probe.x, y: point.y ?? probe.y };
            }
            byId("announcement").textContent = carried >= 0 ? `A point of ${nameOf(state, point.label)} taken up.` : "Put down.";
        },
        Delete: () => {
            const near = nearestPoint();
            if (near >= 0) {
                removePoint(near);
                byId("announcement").textContent = "A point removed.";
            }
            carried = -1;
        },
    };
    keys.Backspace = keys.Delete;
    keys.P = keys.p;
    keys[key]?.();
    isDirty = true;
}

function connectKeys() {
    byId("plane").addEventListener("keydown", (event) => {
        if (event.ctrlKey || event.metaKey || event.altKey) {
            return;
        }
        if (event.key in arrows) {
            event.preventDefault();
            moveProbe(arrows[event.key], event.shiftKey ? 0.04 : 0.2);
        } else if (/^[1-6]$/.test(event.key)) {
            controls.setCategory(Number(event.key) - 1);
        } else if (["Enter", " ", "p", "P", "Delete", "Backspace"].includes(event.key)) {
            event.preventDefault();
            pressed(event.key);
        }
    });
    byId("plane").addEventListener("blur", () => {
        carried = -1;
    });
}

// --- Files

function save(name, content) {
    const url = URL.createObjectURL(new Blob([content], { type: "application/octet-stream" }));
    const link = document.createElement("a");
    link.href = url;
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(url), 1000);
}

function tellFile(text, isFailure = false) {
    byId("file-status").textContent = text;
    byId("file-status").classList.toggle("failed", isFailure);
}

async function saveArchive() {
    try {
        const { archive } = await engine.store();
        save(archiveName, archive);
        tellFile(`${archiveName}, ${archive.length} bytes.`);
    } catch (error) {
        tellFile(error.message, true);
    }
}

/** The state with the technique and parameters of an archive. */
function withLoaded(archive, { technique, numbers }) {
    const [numLoaded, k, order, isJoint] = numbers;
    const size = state.costs.length;
    const name = techniqueNames[technique];
    return {
        ...state,
        archive,
        numLoaded,
        technique: name === "independent" && isJoint === 1 ? "joint" : name,
        k: k > 0 ? Math.min(k, maxNeighbors) : state.k,
        order: order > 0 ? order : state.order,
        costs: state.costs.map((line, i) => line.map((old, j) => numbers[4 + i * size + j])),
        frequencies: state.frequencies.map((old, i) => numbers[4 + size * size + i]),
    };
}

async function loadArchive(file) {
    try {
        const archive = new Uint8Array(await file.arrayBuffer());
        const loaded = await engine.load(archive, state.technique === "rules");
        change(withLoaded(archive, loaded));
        tellFile(`${file.name}, ${archive.length} bytes, is loaded.`);
    } catch (error) {
        tellFile(`${file.name}: ${error.message}`, true);
    }
}

function connectFiles() {
    byId("save-archive").addEventListener("click", saveArchive);
    byId("save-cpp").addEventListener("click", () => save("playground.cpp", cppProgram(state)));
    byId("save-python").addEventListener("click", () => {
        const why = noPythonBecause(state);
        why === "" ? save("playground.py", pythonProgram(state)) : tellFile(why, true);
    });
    byId("copy-address").addEventListener("click", async () => {
        keepAddress();
        try {
            await navigator.clipboard.writeText(location.href);
            tellFile("The address is copied.");
        } catch {
            tellFile("This browser lets no page copy here; the address is in its own line.", true);
        }
    });
    byId("load-archive").addEventListener("change", async (event) => {
        if (event.target.files.length > 0) {
            await loadArchive(event.target.files[0]);
            event.target.value = "";
        }
    });
    byId("train-again").addEventListener("click", () => {
        const rules = state.technique === "rules" && state.rules.length === 0;
        change({ ...state, archive: null, technique: rules ? "neighbors" : state.technique });
    });
    byId("programs").addEventListener("toggle", showPrograms);
}

function showPrograms() {
    if (byId("programs").open) {
        byId("cpp").textContent = cppProgram(state);
        byId("python").textContent = noPythonBecause(state) || pythonProgram(state);
    }
}

// --- The start

window.addEventListener("resize", () => {
    plane.resize();
    isDirty = true;
});
window.addEventListener("hashchange", () => {
    if (location.hash !== ownAddress) {
        change(stateFrom(location.hash.slice(1)));
    }
});
connectPointer();
connectKeys();
connectFiles();
plane.resize();
new ResizeObserver(() => {
    plane.resize();
    isDirty = true;
}).observe(byId("plane"));
requestAnimationFrame(frame);
