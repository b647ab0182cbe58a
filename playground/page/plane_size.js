/** The plane goes from 0 to this in both directions. Measurements of other units are scaled to it. */
export const planeSize = 10;
