// Where the head has travelled, and where with the beam: points of straight stretches, the oldest ones forgotten. They
// stand in arrays that are as long from the beginning as they can become.

const kMost = 4000;
const kForgotten = 1000;  // at once
const kStraightMm = 0.02;  // off the line
const [kDark, kLit, kGap] = [0, 1, 2];  // the way from the point before to this one; a gap has no place

export class Path {
  #count = 0;
  #x = new Float64Array(kMost);
  #y = new Float64Array(kMost);
  #kinds = new Uint8Array(kMost);

  // Answers the stretch that is new, or null.
  add(x, y, lit) {
    const point = {x, y, lit};
    const last = this.#at(this.#count - 1);
    if (!last) {
      this.#push(x, y, lit ? kLit : kDark);
      return lit ? {from: point, to: point, lit} : null;
    }
    if (last.x === x && last.y === y && last.lit === lit) return null;
    const before = this.#at(this.#count - 2);
    if (before && last.lit === lit && straight(before, last, point)) --this.#count;
    this.#push(x, y, lit ? kLit : kDark);
    return {from: last, to: point, lit};
  }

  // What comes next does not follow from what came before.
  gap() {
    if (this.#at(this.#count - 1)) this.#push(0, 0, kGap);
  }

  clear() {
    this.#count = 0;
  }

  steps() {
    const steps = [];
    for (let i = 0; i < this.#count; ++i) {
      const [from, to] = [this.#at(i - 1), this.#at(i)];
      if (from && to) steps.push({from, to, lit: to.lit});
      else if (to?.lit) steps.push({from: to, to, lit: true});
    }
    return steps;
  }

  // null: there is no point there.
  #at(i) {
    return i < 0 || this.#kinds[i] === kGap ? null : {x: this.#x[i], y: this.#y[i], lit: this.#kinds[i] === kLit};
  }
  #push(x, y, kind) {
    if (this.#count === kMost) {
      for (const list of [this.#x, this.#y, this.#kinds]) list.copyWithin(0, kForgotten);
      this.#count -= kForgotten;
    }
    this.#x[this.#count] = x;
    this.#y[this.#count] = y;
    this.#kinds[this.#count++] = kind;
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
