// The categories and how they look. People who confuse colours tell the areas apart, as test/colors.test.js says; each category has a
// shape of its own as well.

export const maxCategories = 6;

export const looks = [
    { letter: "A", area: "#98baf0", mark: "#003f75", shape: "disc" },
    { letter: "B", area: "#f0bf60", mark: "#7d3300", shape: "triangle" },
    { letter: "C", area: "#61dba2", mark: "#005c42", shape: "square" },
    { letter: "D", area: "#e3b1d7", mark: "#7c2557", shape: "diamond" },
    { letter: "E", area: "#f8f292", mark: "#5f5700", shape: "plus" },
    { letter: "F", area: "#b3aeab", mark: "#333333", shape: "cross" },
];

// What the cells of a picture hold beside the numbers of categories.
export const noCategory = 255;
export const otherCategory = maxCategories;

export const otherLook = { letter: "?", area: "#6f6f6f", mark: "#000000", shape: "disc" };
export const noArea = "#ffffff";

/** What a category is called: its letter, and its name where the data have names. */
export function nameOf(state, label) {
    const names = state.data === "biopsies" ? ["benign", "malignant"] : [];
    return names[label] ?? looks[label]?.letter ?? `category ${label}`;
}

/** Draws the mark of a category around a place. */
export function drawMark(context, look, x, y, size) {
    context.beginPath();
    if (look.shape === "disc") {
        context.arc(x, y, size, 0, 2 * Math.PI);
    } else if (look.shape === "triangle") {
        polygon(context, x, y, [[0, -1.25], [1.15, 0.8], [-1.15, 0.8]], size);
    } else if (look.shape === "square") {
        context.rect(x - 0.9 * size, y - 0.9 * size, 1.8 * size, 1.8 * size);
    } else if (look.shape === "diamond") {
        polygon(context, x, y, [[0, -1.3], [1.3, 0], [0, 1.3], [-1.3, 0]], size);
    } else {
        const turned = look.shape === "cross" ? Math.PI / 4 : 0;
        const arm = [[-0.4, -1.3], [0.4, -1.3], [0.4, -0.4], [1.3, -0.4], [1.3, 0.4], [0.4, 0.4], [0.4, 1.3],
            [-0.4, 1.3], [-0.4, 0.4], [-1.3, 0.4], [-1.3, -0.4], [-0.4, -0.4]];
        const [c, s] = [Math.cos(turned), Math.sin(turned)];
        polygon(context, x, y, arm.map(([u, v]) => [c * u - s * v, s * u + c * v]), size);
    }
    context.fillStyle = look.mark;
    context.fill();
    context.lineWidth = 1;
    context.strokeStyle = "#ffffff";
    context.stroke();
}

function polygon(context, x, y, corners, size) {
    corners.forEach(([u, v], i) => {
        if (i === 0) {
            context.moveTo(x + size * u, y + size * v);
        } else {
            context.lineTo(x + size * u, y + size * v);
        }
    });
    context.closePath();
}
