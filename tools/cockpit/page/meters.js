// Levels in and out, the planes, and how the machine keeps up.
import { byId, element, number, write } from "./elements.js";

const kLevels = [
  // name, key, digits, unit; where the bar begins and ends, and from where it warns
  { name: "Loudness now", key: "momentary", unit: "LUFS", from: -60, to: 0 },
  { name: "Loudness, 3 s", key: "short", unit: "LUFS", from: -60, to: 0 },
  { name: "True peak", key: "true_peak", unit: "dBTP", from: -60, to: 0, warn: -0.5 },
  { name: "Correlation", key: "correlation", digits: 2, unit: "", from: -1, to: 1 },
  { name: "Balance", key: "balance", digits: 2, unit: "", from: -1, to: 1 },
];
const kMachine = [
  { name: "Knob to sound", key: "heard_after_ms", digits: 0, unit: "ms" },
  { name: "Latency", key: "latency_ms", digits: 1, unit: "ms" },
  { name: "Load of a core", key: "load", digits: 1, unit: "%" },
  { name: "Longest cycle", key: "worst", digits: 0, unit: "%" },
  { name: "Slow cycles", key: "slow", digits: 0, unit: "" },
  { name: "Xruns", key: "xruns", digits: 0, unit: "", bad: true },
  { name: "This page’s load", key: "cockpit_load", digits: 1, unit: "%" },
  { name: "Limiter", key: "limiter_db", digits: 1, unit: "dB" },
  { name: "Equally loud to", key: "match_lu", digits: 2, unit: "LU" },
];
const kPlaneFloorDb = -72;
const kCalmMs = 1000;

const calm = matchMedia("(prefers-reduced-motion: reduce)");

const share = (value, from, to) => (value === null || value === undefined ? 0 : Math.min(1, Math.max(0, (value - from) / (to - from))));

export class Meters {
  #shownAt = -Infinity;

  constructor({ plane_names: planeNames = [] }) {
    this.levels = kLevels.map((level) => {
      const cells = ["in", "out"].map(() => {
        const text = element("span", { class: "number" });
        const bar = element("span", { class: level.from < 0 && level.to > 0 ? "meter middle" : "meter", "aria-hidden": "true" });
        return { cell: element("td", {}, text, bar), text, bar };
      });
      const change = element("td", { class: "number" });
      document.querySelector("#levels tbody").append(element("tr", {},
        element("th", { scope: "row" }, level.name, level.unit ? element("span", { class: "soft" }, ` ${level.unit}`) : null),
        cells.map(({ cell }) => cell), change));
      return { ...level, cells, change };
    });
    this.machine = kMachine.map((one) => {
      const value = element("dd", { class: "number" });
      byId("machine").append(element("div", {}, element("dt", {}, one.name), value));
      return { ...one, value };
    });
    this.planes = planeNames.map((name) => {
      const bar = element("span", { class: "meter", "aria-hidden": "true" });
      const text = element("span", { class: "number" });
      byId("planes").append(element("li", {}, element("b", {}, name), bar, text));
      return { bar, text };
    });
  }

  meters(meters) {
    if (calm.matches && performance.now() - this.#shownAt < kCalmMs) return;
    this.#shownAt = performance.now();
    for (const { key, digits, from, to, warn, cells, change } of this.levels) {
      const values = [meters.in?.[key], meters.out?.[key]];
      cells.forEach(({ cell, text, bar }, i) => {
        write(text, number(values[i], digits));
        bar.style.setProperty("--at", share(values[i], from, to));
        cell.classList.toggle("is-hot", warn !== undefined && values[i] > warn);
      });
      write(change, values.every(Number.isFinite) ? number(values[1] - values[0], digits, true) : "–");
    }
    for (const { key, digits, unit, bad, value } of this.machine) {
      const text = number(meters[key], digits);
      write(value, text === "–" || !unit ? text : `${text} ${unit}`);
      if (bad) value.classList.toggle("is-bad", meters[key] > 0);
    }
    byId("planes-part").hidden = !meters.planes;
    this.planes.forEach(({ bar, text }, i) => {
      const level = meters.planes?.[i] ?? null;
      bar.style.setProperty("--at", share(level, kPlaneFloorDb, 0));
      write(text, level === null || level < kPlaneFloorDb ? "silent" : `${number(level, 0)} dB`);
    });
  }
}
