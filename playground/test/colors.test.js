// Areas of different categories look different to people who confuse colours, and marks stand out from their area.

import assert from "node:assert/strict";
import { test } from "node:test";
import { looks } from "../page/categories.js";

// G. M. Machado, M. M. Oliveira, L. A. F. Fernandes, "A physiologically-based model for simulation of color vision deficiency", 2009,
// for linear RGB.
const eyes = {
    "all three kinds of cones": [[1, 0, 0], [0, 1, 0], [0, 0, 1]],
    "no long-wave cones": [[0.152286, 1.052583, -0.204868], [0.114503, 0.786281, 0.099216], [-0.003882, -0.048116, 1.051998]],
    "no medium-wave cones": [[0.367322, 0.860646, -0.227968], [0.280085, 0.672501, 0.047413], [-0.01182, 0.04294, 0.968881]],
    "no short-wave cones": [[1.255528, -0.076749, -0.178779], [-0.078411, 0.930809, 0.147602], [0.004733, 0.691367, 0.3039]],
};

const linear = (color) => [1, 3, 5].map((i) => parseInt(color.slice(i, i + 2), 16) / 255)
    .map((part) => (part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4));
const times = (matrix, vector) => matrix.map((row) => row.reduce((sum, factor, i) => sum + factor * vector[i], 0));

/** CIE L*a*b* for daylight D65. */
function lab(rgb) {
    const xyz = times([[0.4124, 0.3576, 0.1805], [0.2126, 0.7152, 0.0722], [0.0193, 0.1192, 0.9505]], rgb);
    const [x, y, z] = [xyz[0] / 0.9505, xyz[1], xyz[2] / 1.089]
        .map((part) => (part > 0.008856 ? Math.cbrt(part) : 7.787 * part + 16 / 116));
    return [116 * y - 16, 500 * (x - y), 200 * (y - z)];
}

const luminance = (color) => times([[0.2126, 0.7152, 0.0722]], linear(color))[0];

for (const [eye, matrix] of Object.entries(eyes)) {
    test(`Areas differ for ${eye}`, () => {
        const seen = looks.map(({ area }) => lab(times(matrix, linear(area))));
        for (let i = 0; i < seen.length; ++i) {
            for (let j = 0; j < i; ++j) {
                const distance = Math.hypot(...seen[i].map((part, k) => part - seen[j][k]));
                // Twelve steps that a trained eye can just tell, more than five times what neighbouring areas need.
                assert.ok(distance > 12, `${looks[i].letter} and ${looks[j].letter}: ${distance}`);
            }
        }
    });
}

test("Marks have a contrast of 4.5 to their area, as texts have", () => {
    for (const { letter, area, mark } of looks) {
        const contrast = (luminance(area) + 0.05) / (luminance(mark) + 0.05);
        assert.ok(contrast >= 4.5, `${letter}: ${contrast}`);
    }
});

test("Each category has a shape of its own", () => {
    assert.equal(new Set(looks.map(({ shape }) => shape)).size, looks.length);
});
