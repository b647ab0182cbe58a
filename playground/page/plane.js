// The plane on its canvas: the picture of the regions, the points, the cuts or the rule that is being edited, and where the pointer is.

import { drawMark, looks, noArea, noCategory, otherLook } from "./categories.js";
import { fineCells } from "./engine.js";
import { planeSize } from "./plane_size.js";
import { measurements, rangeOf, trainingPoints } from "./state.js";
import { boxOf, nodesOf } from "./tree.js";

const margin = { left: 46, right: 12, top: 12, bottom: 42 };
/** How near to something the pointer has to be to take hold of it, in pixels: a finger is wider than a mouse. */
const reachOf = (pointerType) => (pointerType === "touch" ? 22 : 9);

function rgbOf(color) {
    return [1, 3, 5].map((i) => parseInt(color.slice(i, i + 2), 16));
}

export class Plane {
    constructor(canvas) {
        this.canvas = canvas;
        this.context = canvas.getContext("2d");
        this.regions = document.createElement("canvas");
        this.regions.width = fineCells;
        this.regions.height = fineCells;
        this.regionsContext = this.regions.getContext("2d");
        this.image = this.regionsContext.createImageData(fineCells, fineCells);
        this.marks = new Map();
        this.colors = new Map();
        looks.forEach((look, label) => this.colors.set(label, rgbOf(look.area)));
        this.colors.set(looks.length, rgbOf(otherLook.area));
        this.clearRegions();
    }

    clearRegions() {
        this.setCells(new Uint8Array(1).fill(noCategory), 1, 0, 1);
    }

    /** Rows of a grid of cells become rows of the picture. */
    setCells(cells, numCells, firstRow, numRows) {
        const scale = fineCells / numCells;
        const data = this.image.data;
        for (let row = firstRow * scale; row < (firstRow + numRows) * scale; ++row) {
            const start = (Math.floor(row / scale) - firstRow) * numCells;
            for (let column = 0; column < fineCells; ++column) {
                const label = cells[start + Math.floor(column / scale)];
                // Cells without a decision are hatched.
                const shade = (row + column) % 10 < 2 ? 205 : 255;
                const [r, g, b] = label === noCategory ? [shade, shade, shade] : this.colors.get(label);
                const place = 4 * (row * fineCells + column);
                data[place] = r;
                data[place + 1] = g;
                data[place + 2] = b;
                data[place + 3] = 255;
            }
        }
        this.regionsContext.putImageData(this.image, 0, 0, 0, firstRow * scale, fineCells, numRows * scale);
    }

    /** Makes the canvas as fine as the screen. */
    resize() {
        const { width, height } = this.canvas.getBoundingClientRect();
        const ratio = window.devicePixelRatio || 1;
        this.canvas.width = Math.round(width * ratio);
        this.canvas.height = Math.round(height * ratio);
        this.ratio = ratio;
        this.width = width;
        this.height = height;
        this.side = { x: width - margin.left - margin.right, y: height - margin.top - margin.bottom };
    }

    left(x) {
        return margin.left + (this.side.x * x) / planeSize;
    }

    top(y) {
        return margin.top + this.side.y * (1 - y / planeSize);
    }

    /** The place of a pointer in the plane. */
    placeOf(event) {
        const box = this.canvas.getBoundingClientRect();
        const x = ((event.clientX - box.left - margin.left) / this.side.x) * planeSize;
        const y = (1 - (event.clientY - box.top - margin.top) / this.side.y) * planeSize;
        const inside = (value) => Math.min(Math.max(value, 0), planeSize);
        return { x: inside(x), y: inside(y), isInside: x >= 0 && x <= planeSize && y >= 0 && y <= planeSize };
    }

    distance(place, other) {
        return Math.hypot(
            (this.side.x * (place.x - other.x)) / planeSize, (this.side.y * (place.y - other.y)) / planeSize);
    }

    /** The point of one's own that is next to a place, or -1. What lacks a measurement is drawn on the edge. */
    pointAt(points, place, pointerType) {
        let nearest = -1;
        let least = reachOf(pointerType);
        points.forEach((point, index) => {
            const away = this.distance(place, { x: point.x ?? 0, y: point.y ?? 0 });
            if (away <= least) {
                least = away;
                nearest = index;
            }
        });
        return nearest;
    }

    /** The cut of the tree next to a place, as its path, or null. */
    cutAt(tree, place, pointerType) {
        let nearest = null;
        let least = reachOf(pointerType);
        for (const { node, path } of nodesOf(tree)) {
            if (node === null) {
                continue;
            }
            const box = boxOf(tree, path, planeSize);
            const on = node.axis === "x" ? { x: node.limit, y: Math.min(Math.max(place.y, box.bottom), box.top) }
                : { x: Math.min(Math.max(place.x, box.left), box.right), y: node.limit };
            const away = this.distance(place, on);
            if (away <= least) {
                least = away;
                nearest = path;
            }
        }
        return nearest;
    }

    /** The breakpoint of a rule next to a place, as its axis and name, or null. */
    breakpointAt(rule, place, pointerType) {
        let nearest = null;
        let least = reachOf(pointerType);
        for (const axis of ["x", "y"]) {
            for (const name of rule[axis].on ? ["b", "c", "a", "d"] : []) {
                const on = axis === "x" ? { x: rule.x[name], y: place.y } : { x: place.x, y: rule.y[name] };
                const away = this.distance(place, on);
                if (away < least) {
                    least = away;
                    nearest = { axis, name };
                }
            }
        }
        return nearest;
    }

    draw(state, probe, selectedRule) {
        const context = this.context;
        context.setTransform(this.ratio, 0, 0, this.ratio, 0, 0);
        context.clearRect(0, 0, this.width, this.height);
        context.imageSmoothingEnabled = false;
        context.drawImage(this.regions, margin.left, margin.top, this.side.x, this.side.y);
        if (state.archive === null && state.technique === "tree") {
            this.drawTree(state.tree);
        }
        if (state.archive === null && state.technique === "rules" && state.rules[selectedRule] !== undefined) {
            this.drawRule(state.rules[selectedRule]);
        }
        this.drawPoints(trainingPoints(state));
        this.drawProbe(probe, state.missing);
        context.strokeStyle = "#333333";
        context.lineWidth = 1;
        context.strokeRect(margin.left, margin.top, this.side.x, this.side.y);
        this.drawAxes(state);
    }

    /** The mark of a category as a picture, which is drawn many times as fast as its outline. */
    markOf(label, size) {
        const key = `${label} ${size} ${this.ratio}`;
        if (!this.marks.has(key)) {
            const made = document.createElement("canvas");
            const half = Math.ceil(1.5 * size + 1);
            made.width = made.height = Math.ceil(2 * half * this.ratio);
            const context = made.getContext("2d");
            context.scale(this.ratio, this.ratio);
            drawMark(context, looks[label], half, half, size);
            this.marks.set(key, made);
        }
        return this.marks.get(key);
    }

    /** Marks stand on whole pixels of the screen, so that they stay sharp. */
    drawPoints(points) {
        const context = this.context;
        const size = this.side.x < 400 ? 3.4 : 4.2;
        const half = Math.ceil(1.5 * size + 1);
        context.setTransform(1, 0, 0, 1, 0, 0);
        for (const point of points) {
            const [left, top] = [this.left(point.x ?? 0) - half, this.top(point.y ?? 0) - half];
            context.drawImage(this.markOf(point.label, size), Math.round(left * this.ratio), Math.round(top * this.ratio));
        }
        context.setTransform(this.ratio, 0, 0, this.ratio, 0, 0);
    }

    line(x0, y0, x1, y1, dash, width = 2) {
        const context = this.context;
        context.beginPath();
        context.setLineDash(dash);
        context.moveTo(this.left(x0), this.top(y0));
        context.lineTo(this.left(x1), this.top(y1));
        context.lineWidth = width + 2;
        context.strokeStyle = "#ffffff";
        context.stroke();
        context.lineWidth = width;
        context.strokeStyle = "#222222";
        context.stroke();
        context.setLineDash([]);
    }

    drawTree(tree) {
        for (const { node, path } of nodesOf(tree)) {
            if (node === null) {
                continue;
            }
            const box = boxOf(tree, path, planeSize);
            if (node.axis === "x") {
                this.line(node.limit, box.bottom, node.limit, box.top, []);
            } else {
                this.line(box.left, node.limit, box.right, node.limit, []);
            }
        }
    }

    drawRule(rule) {
        for (const [name, dash] of [["a", [6, 5]], ["b", []], ["c", []], ["d", [6, 5]]]) {
            if (rule.x.on) {
                this.line(rule.x[name], 0, rule.x[name], planeSize, dash, 1.5);
            }
            if (rule.y.on) {
                this.line(0, rule.y[name], planeSize, rule.y[name], dash, 1.5);
            }
        }
    }

    drawProbe(probe, missing) {
        if (probe === null) {
            return;
        }
        const context = this.context;
        const [x, y] = [this.left(probe.x), this.top(probe.y)];
        const across = missing === 1 ? [margin.left, margin.left + this.side.x] : [x - 11, x + 11];
        const along = missing === 2 ? [margin.top, margin.top + this.side.y] : [y - 11, y + 11];
        for (const [color, width] of [["#ffffff", 4], ["#000000", 1.6]]) {
            context.beginPath();
            context.moveTo(across[0], y);
            context.lineTo(across[1], y);
            context.moveTo(x, along[0]);
            context.lineTo(x, along[1]);
            context.strokeStyle = color;
            context.lineWidth = width;
            context.stroke();
        }
    }

    drawAxes(state) {
        const context = this.context;
        const color = getComputedStyle(this.canvas).color;
        context.fillStyle = color;
        context.strokeStyle = color;
        context.font = "12px system-ui, sans-serif";
        context.lineWidth = 1;
        context.textAlign = "center";
        for (const { place, text } of ticksOf(state, 0)) {
            context.fillText(text, this.left(place), this.height - margin.bottom + 16);
        }
        context.fillText(axisName(state, 0), margin.left + this.side.x / 2, this.height - 6);
        context.textAlign = "right";
        for (const { place, text } of ticksOf(state, 1)) {
            context.fillText(text, margin.left - 5, this.top(place) + 4);
        }
        context.save();
        context.translate(11, margin.top + this.side.y / 2);
        context.rotate(-Math.PI / 2);
        context.textAlign = "center";
        context.fillText(axisName(state, 1), 0, 0);
        context.restore();
    }
}

/** What a value of the plane is in the unit of the measurement. */
export function measured(state, axis, value) {
    if (state.data === "own") {
        return value;
    }
    const { low, high } = rangeOf(state.axes[axis]);
    return low + ((high - low) * value) / planeSize;
}

export function axisName(state, axis) {
    return state.data === "own" ? "xy"[axis] : measurements[state.axes[axis]].replaceAll("_", " ");
}

function ticksOf(state, axis) {
    const low = measured(state, axis, 0);
    const high = measured(state, axis, planeSize);
    const rough = (high - low) / 5;
    const unit = 10 ** Math.floor(Math.log10(rough));
    const step = [1, 2, 5, 10].map((times) => times * unit).find((size) => size >= rough);
    const decimals = Math.max(0, -Math.floor(Math.log10(step)));
    const ticks = [];
    for (let n = Math.ceil(low / step); n * step <= high; ++n) {
        ticks.push({ place: ((n * step - low) / (high - low)) * planeSize, text: (n * step).toFixed(decimals) });
    }
    return ticks;
}
