// The spectrum in third octaves, in and out, and below it what the one has over the other.
import { byId, element, number, write } from "./elements.js";

const kThirds = 31;  // from 20 Hz to 20 kHz
const kHz = [20, 25, 31.5, 40, 50, 63, 80, 100, 125, 160, 200, 250, 315, 400, 500, 630, 800, 1000, 1250, 1600,
  2000, 2500, 3150, 4000, 5000, 6300, 8000, 10000, 12500, 16000, 20000];
const kTopDb = 0;
const kFloorDb = -90;
const kChangeDb = 12;
const kSmoothing = 0.25;  // of a new spectrum, ten times a second
const kWordsMs = 2000;

const calm = matchMedia("(prefers-reduced-motion: reduce)");
const hertz = (hz) => (hz < 1000 ? `${hz} Hz` : `${hz / 1000} kHz`);

export class Spectrum {
  #canvas = byId("spectrum");
  #details = byId("spectrum-details");
  #in = null;
  #out = null;
  #wordsAt = -Infinity;
  #cells;

  constructor() {
    this.#cells = kHz.map((hz) => {
      const cells = [0, 1, 2].map(() => element("td", { class: "number" }));
      this.#details.querySelector("tbody").append(element("tr", {}, element("th", { scope: "row" }, hertz(hz)), cells));
      return cells;
    });
    const again = () => this.#draw();
    new ResizeObserver(again).observe(this.#canvas);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", again);
    new MutationObserver(again).observe(document.documentElement, { attributeFilter: ["data-theme"] });
  }

  meters({ in: before, out: after }) {
    this.#in = smoothed(this.#in, before?.spectrum);
    this.#out = smoothed(this.#out, after?.spectrum);
    const isDue = performance.now() - this.#wordsAt > kWordsMs;
    if (!calm.matches || isDue) this.#draw();
    if (!isDue) return;
    this.#wordsAt = performance.now();
    this.#canvas.setAttribute("aria-label", this.#words());
    if (this.#details.open) this.#table();
  }

  #change(third) {
    const [before, after] = [this.#in?.[third] ?? kFloorDb, this.#out?.[third] ?? kFloorDb];
    return before > kFloorDb && after > kFloorDb ? after - before : null;
  }

  #words() {
    const changes = kHz.map((hz, third) => ({ hz, db: this.#change(third) })).filter(({ db }) => db !== null);
    if (changes.length === 0) return "Spectrum in and out: silence";
    changes.sort((a, b) => a.db - b.db);
    const [least, most] = [changes[0], changes.at(-1)];
    return `Spectrum in and out. Out over in: most at ${hertz(most.hz)}, ${number(most.db, 1, true)} dB; least at ${hertz(least.hz)}, ${number(least.db, 1, true)} dB`;
  }

  #table() {
    this.#cells.forEach(([before, after, change], third) => {
      write(before, number(this.#in?.[third], 1));
      write(after, number(this.#out?.[third], 1));
      write(change, number(this.#change(third), 1, true));
    });
  }

  #draw() {
    const { clientWidth: width, clientHeight: height } = this.#canvas;
    if (width === 0) return;
    const scale = devicePixelRatio;
    if (this.#canvas.width !== Math.round(width * scale) || this.#canvas.height !== Math.round(height * scale)) {
      this.#canvas.width = Math.round(width * scale);
      this.#canvas.height = Math.round(height * scale);
    }
    const style = getComputedStyle(this.#canvas);
    const colour = (name) => style.getPropertyValue(`--${name}`).trim();
    const context = this.#canvas.getContext("2d");
    context.setTransform(scale, 0, 0, scale, 0, 0);
    context.clearRect(0, 0, width, height);
    context.font = `12px ${style.fontFamily}`;
    context.fillStyle = colour("soft");
    context.strokeStyle = colour("grid");

    const left = 30, right = width - 8, top = 8, bottom = height - 20;
    const split = top + (bottom - top) * 0.68;
    const step = (right - left) / kThirds;
    const x = (third) => left + (third + 0.5) * step;
    const y = (db) => top + (kTopDb - Math.min(kTopDb, Math.max(kFloorDb, db))) / (kTopDb - kFloorDb) * (split - 18 - top);
    const middle = (split + bottom) / 2;
    const y2 = (db) => middle - Math.min(1, Math.max(-1, db / kChangeDb)) * (bottom - middle);
    const line = (at, text) => {
      context.beginPath();
      context.moveTo(left, at);
      context.lineTo(right, at);
      context.stroke();
      context.fillText(text, left - 6, at);
    };
    context.textAlign = "right";
    context.textBaseline = "middle";
    for (const db of [0, -30, -60, -90]) line(y(db), String(db).replace("-", "−"));
    for (const db of [kChangeDb, 0, -kChangeDb]) line(y2(db), number(db, 0, true));
    context.textAlign = "center";
    context.textBaseline = "alphabetic";
    for (const [third, text] of [[2, "31"], [7, "100"], [12, "315"], [17, "1k"], [22, "3.1k"], [27, "10k"]]) {
      context.fillText(text, x(third), height - 4);
    }

    const curve = (values, name, fills) => {
      if (!values) return;
      context.beginPath();
      values.forEach((db, third) => (third === 0 ? context.moveTo(x(0), y(db)) : context.lineTo(x(third), y(db))));
      context.strokeStyle = colour(name);
      context.lineWidth = 2;
      context.setLineDash(fills ? [] : [5, 3]);
      context.stroke();
      context.setLineDash([]);
      if (!fills) return;
      context.lineTo(x(kThirds - 1), y(kFloorDb));
      context.lineTo(x(0), y(kFloorDb));
      context.globalAlpha = 0.15;
      context.fillStyle = colour(name);
      context.fill();
      context.globalAlpha = 1;
    };
    curve(this.#out, "s-out", true);
    curve(this.#in, "s-in", false);
    context.fillStyle = colour("s-more");
    for (let third = 0; third < kThirds; ++third) {
      const change = this.#change(third);
      if (change === null) continue;
      context.fillRect(x(third) - step * 0.36, Math.min(middle, y2(change)), step * 0.72, Math.max(1, Math.abs(y2(change) - middle)));
    }
    context.lineWidth = 1;
  }
}

function smoothed(old, spectrum) {
  if (!spectrum) return null;
  const values = spectrum.map((db) => Math.max(kFloorDb, db ?? kFloorDb));
  return old ? values.map((db, i) => old[i] + kSmoothing * (db - old[i])) : values;
}
