// Where the head has travelled, and where with the beam: points of straight stretches, the oldest ones forgotten.

const kMost = 4000;
const kForgotten = 1000;  // at once
const kStraightMm = 0.02;  // off the line

export class Path {
  #points = [];  // {x, y, lit}: lit from the point before to this one; null: nobody saw the way

  // Answers the stretch that is new, or null.
  add(x, y, lit) {
    const points = this.#points;
    const last = points.at(-1);
    const point = {x, y, lit};
    if (!last) {
      points.push(point);
      return lit ? {from: point, to: point, lit} : null;
    }
    if (last.x === x && last.y === y && last.lit === lit) return null;
    const before = points.at(-2);
    if (before && last.lit === lit && straight(before, last, point)) points[points.length - 1] = point;
    else points.push(point);
    if (points.length > kMost) points.splice(0, kForgotten);
    return {from: last, to: point, lit};
  }

  // What comes next does not follow from what came before.
  gap() {
    if (this.#points.length > 0 && this.#points.at(-1)) this.#points.push(null);
  }

  clear() {
    this.#points = [];
  }

  steps() {
    const steps = [];
    this.#points.forEach((to, i) => {
      const from = this.#points[i - 1];
      if (from && to) steps.push({from, to, lit: to.lit});
      else if (to?.lit) steps.push({from: to, to, lit: true});
    });
    return steps;
  }
}

// b lies on the way from a to c.
function straight(a, b, c) {
  const [x, y] = [c.x - a.x, c.y - a.y];
  const [u, v] = [b.x - a.x, b.y - a.y];
  const length = Math.hypot(x, y);
  if (length === 0) return false;
  const along = (u * x + v * y) / length;
  return along >= 0 && along <= length && Math.abs(u * y - v * x) / length < kStraightMm;
}
