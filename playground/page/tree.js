// A decision tree: null is a leaf, anything else a cut { axis, limit, low, high }. A pattern goes to `low` if the measurement is at
// most the limit, and to `high` otherwise, also if it lacks the measurement.

export const maxCuts = 12;
export const maxDepth = 6;

export function numCuts(tree) {
    return tree === null ? 0 : 1 + numCuts(tree.low) + numCuts(tree.high);
}

/** The node at a path of "low" and "high". */
export function nodeAt(tree, path) {
    return path.reduce((node, side) => node[side], tree);
}

/** The tree with another node at the path. */
export function replaced(tree, path, node) {
    if (path.length === 0) {
        return node;
    }
    return { ...tree, [path[0]]: replaced(tree[path[0]], path.slice(1), node) };
}

export function sideOf(cut, point) {
    const value = cut.axis === "x" ? point.x : point.y;
    return value !== null && value <= cut.limit ? "low" : "high";
}

/** How many points of each category reach a node. */
export function countsOf(points, numCategories) {
    const counts = new Array(numCategories).fill(0);
    for (const point of points) {
        counts[point.label] += 1;
    }
    return counts;
}

/** The path to the leaf that a point reaches. */
export function pathTo(tree, point) {
    const path = [];
    for (let node = tree; node !== null; node = node[path.at(-1)]) {
        path.push(sideOf(node, point));
    }
    return path;
}

/**
 * The counts that a node answers with. A leaf that no point reached answers as the cut above it would, and every category counts one
 * where there are no points at all.
 */
export function answeringCounts(points, numCategories, otherwise) {
    return points.length === 0 ? otherwise : countsOf(points, numCategories);
}

/** The part of the plane that a node answers for. */
export function boxOf(tree, path, size) {
    const box = { left: 0, right: size, bottom: 0, top: size };
    let node = tree;
    for (const side of path) {
        const edge = node.axis === "x" ? (side === "low" ? "right" : "left") : side === "low" ? "top" : "bottom";
        box[edge] = side === "low" ? Math.min(box[edge], node.limit) : Math.max(box[edge], node.limit);
        node = node[side];
    }
    return box;
}

/** Every node with its path, root first. */
export function* nodesOf(tree, path = []) {
    yield { node: tree, path };
    if (tree !== null) {
        yield* nodesOf(tree.low, [...path, "low"]);
        yield* nodesOf(tree.high, [...path, "high"]);
    }
}
