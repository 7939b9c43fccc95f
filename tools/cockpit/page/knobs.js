// Every key of the tuning's presets as a knob.
import { button, byId, capital, count, element, write } from "./elements.js";

// What is heard in which mode; a room of its own belongs to cinema.
const kHeard = { music: ["music", "room", "level-music"], cinema: ["cinema", "level-cinema"] };
const kPositions = 1000;  // of a slider over a logarithm
const kWideRange = 10;  // from here on times make a better slider than differences
const kGestureMs = 1000;  // key presses within it are one step of undo

const trimmed = (value) => String(Number(value.toPrecision(5))).replace("-", "−");
const withUnit = (value, unit) => trimmed(value) + (unit ? ` ${unit}` : "");

// "centre_level_db" is "Centre level": its unit stands beside the number.
function title({ key, unit }) {
  const words = key.split("_");
  const last = words.length > 1 ? words.at(-1) : "";
  if (last !== "" && unit.toLowerCase().startsWith(last)) words.pop();
  return capital(words.join(" ").replace(/ db per s$/, " rate"));
}

// Some four hundred steps of 1, 2 or 5.
function niceStep({ min, max }) {
  const wanted = (max - min) / 400;
  const power = 10 ** Math.floor(Math.log10(wanted));
  return Number((power * [1, 2, 5, 10].find((n) => n * power >= wanted)).toPrecision(1));
}

class Knob {
  #held = false;
  #typing = false;
  #gesture = "";
  #turnedAt = -Infinity;
  #awaited = 0;  // requests without an answer
  #version = 0;  // of the last answer

  constructor(connection, set, entry) {
    Object.assign(this, { connection, set, entry, value: entry.default, changed: false });
    this.title = title(entry);
    this.id = `${set.set}-${entry.key}`;
    this.text = [this.title, entry.key, entry.text, entry.advice, set.title].join(" ").toLowerCase();
    this.logarithmic = entry.min > 0 && entry.max / entry.min >= kWideRange;
    this.#build();
    this.#show();
  }

  #build() {
    const { id, entry } = this;
    const name = this.title + (entry.unit ? ` in ${entry.unit}` : "");
    const step = niceStep(entry);
    this.range = element("input", {
      type: "range", id, ...(this.logarithmic ? { min: 0, max: kPositions, step: 1 } : { min: entry.min, max: entry.max, step: "any" }),
    });
    if (!this.logarithmic) this.step = step;
    this.field = element("input", {
      type: "number", id: `${id}-number`, "aria-label": `${name}, as a number`, min: entry.min, max: entry.max, step: "any",
      inputmode: entry.min < 0 ? false : "decimal", "aria-describedby": `${id}-wrong`,
    });
    this.wrong = element("p", { class: "wrong", id: `${id}-wrong` });
    this.mark = element("span", { class: "mark", hidden: true }, "changed");
    this.more = element("div", { class: "more", id: `${id}-more`, hidden: true },
      entry.advice ? element("p", {}, "Turn it up for ", entry.advice, ".") : null,
      entry.heard ? element("p", {}, `Heard ${entry.heard}.`) : null,
      element("p", { class: "soft" }, element("code", {}, entry.key),
        `: ${withUnit(entry.min, entry.unit)} to ${withUnit(entry.max, entry.unit)}, default ${withUnit(entry.default, entry.unit)}`));
    this.advice = button("?", () => {
      this.more.hidden = !this.more.hidden;
      this.advice.setAttribute("aria-expanded", String(!this.more.hidden));
    }, { class: "round", "aria-label": `Advice on ${this.title}`, "aria-expanded": "false", "aria-controls": `${id}-more` });
    this.reset = button("Reset", () => this.#act("reset"),
      { class: "reset", "aria-label": `Reset ${this.title} to the file`, title: "Back to what the project’s file says" });
    this.initial = button("Default", () => this.#act("default"),
      { class: "initial", "aria-label": `Default of ${this.title}: ${withUnit(entry.default, entry.unit)}`, title: `The library’s default: ${withUnit(entry.default, entry.unit)}` });
    const tick = element("span", { class: "tick" });
    tick.style.setProperty("--at", this.#share(entry.default));
    this.row = element("div", { class: "knob", "data-key": `${this.set.set}.${entry.key}` },
      element("div", { class: "name" },
        element("label", { for: id }, this.title), this.mark, element("p", { class: "soft" }, entry.text)),
      element("div", { class: "slide" }, this.range, tick,
        element("div", { class: "ends soft", "aria-hidden": "true" },
          element("span", {}, withUnit(entry.min, "")), element("span", {}, withUnit(entry.max, "")))),
      element("div", { class: "field" }, this.field, element("span", { class: "unit soft", "aria-hidden": "true" }, entry.unit)),
      element("div", { class: "tools" }, this.reset, this.initial, this.advice),
      this.wrong, this.more);

    this.range.addEventListener("pointerdown", () => {
      this.#held = true;
      this.#gesture = "";
    });
    for (const end of ["pointerup", "pointercancel", "blur"]) this.range.addEventListener(end, () => this.#release());
    this.range.addEventListener("keydown", (event) => this.#press(event));
    this.range.addEventListener("input", () => this.#turn(this.#fromRange()));
    this.field.addEventListener("input", () => { this.#typing = true; });
    this.field.addEventListener("change", () => this.#enter());
  }

  // Where a value lies on the slider, from 0 to 1, and back.
  #share(value) {
    const { min, max } = this.entry;
    return this.logarithmic ? Math.log(value / min) / Math.log(max / min) : (value - min) / (max - min);
  }
  #fromRange() {
    const { min, max } = this.entry;
    const at = Number(this.range.value);
    if (!this.logarithmic) return this.#rounded(at);
    if (at === 0 || at === kPositions) return at === 0 ? min : max;
    return Number((min * (max / min) ** (at / kPositions)).toPrecision(3));
  }
  #rounded(value) {
    const { min, max } = this.entry;
    const steps = Math.round(value / this.step) * this.step;
    return Number(Math.min(max, Math.max(min, steps)).toPrecision(6));
  }

  // The browser's own keys move a slider without steps by too much.
  #press(event) {
    const direction = { ArrowUp: 1, ArrowRight: 1, ArrowDown: -1, ArrowLeft: -1, PageUp: 10, PageDown: -10 }[event.key];
    if (direction === undefined || this.logarithmic || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    this.#turn(this.#rounded(this.value + direction * this.step));
  }

  #enter() {
    const { min, max, unit } = this.entry;
    const value = this.field.valueAsNumber;
    const isWrong = !(value >= min && value <= max);
    this.field.setAttribute("aria-invalid", String(isWrong));
    this.wrong.textContent = isWrong ? `${this.title}: from ${withUnit(min, unit)} to ${withUnit(max, unit)}` : "";
    if (!isWrong) this.#turn(value);
  }

  async #turn(value) {
    if (this.#gesture === "" || (!this.#held && performance.now() - this.#turnedAt > kGestureMs)) {
      this.#gesture = crypto.randomUUID();
    }
    this.#turnedAt = performance.now();
    this.#typing = false;
    this.value = value;
    this.#show();
    await this.#sent({ do: "knob", set: this.set.set, key: this.entry.key, value, gesture: this.#gesture }, this.id);
  }

  async #act(what) {
    this.#gesture = "";
    this.#typing = false;
    this.range.focus();  // the button goes with the change
    await this.#sent({ do: what, set: this.set.set, key: this.entry.key });
  }

  async #sent(action, slot = null) {
    ++this.#awaited;
    const version = await this.connection.act(action, slot);
    --this.#awaited;
    this.#version = Math.max(this.#version, version ?? 0);
    this.#settle();
  }

  #release() {
    this.#held = false;
    this.#settle();
  }

  // Takes what the program says, unless the hand is on the knob or its own values are on the way.
  state(value, changed, version) {
    this.said = { value, changed, version };
    this.#settle();
  }
  #settle() {
    if (!this.said || this.#held || this.#awaited > 0 || this.said.version < this.#version) return;
    this.value = this.said.value;
    this.changed = this.said.changed;
    this.#show();
  }

  #show() {
    const { entry, value } = this;
    const text = withUnit(value, entry.unit);
    const isDefault = Math.abs(value - entry.default) <= 1e-6 * Math.max(1, Math.abs(entry.default));
    const at = this.logarithmic ? Math.round(this.#share(value) * kPositions) : value;
    if (Number(this.range.value) !== at) this.range.value = at;
    this.range.setAttribute("aria-valuetext", text + (isDefault ? ", the default" : ""));
    if (!this.#typing) {
      this.field.value = Number(value.toPrecision(5));
      this.field.setAttribute("aria-invalid", "false");
      write(this.wrong, "");
    }
    this.row.classList.toggle("is-changed", this.changed);
    this.mark.hidden = !this.changed;
    this.reset.disabled = !this.changed;
    this.initial.disabled = isDefault;
  }
}

export class Knobs {
  #sections;
  #search = byId("search");
  #onlyChanged = byId("only-changed");

  constructor(connection, catalogue) {
    this.#sections = catalogue.sets.map((set) => {
      const knobs = set.keys.map((entry) => new Knob(connection, set, entry));
      const note = element("span", { class: "soft" });
      const details = element("details", { class: "card set", "data-set": set.set },
        element("summary", {}, element("h3", {}, set.title), note),
        element("div", { role: "group", "aria-label": set.title }, knobs.map((knob) => knob.row)));
      byId("knobs").append(details);
      return { set, knobs, note, details };
    });
    this.#search.addEventListener("input", () => this.#filter());
    this.#onlyChanged.addEventListener("change", () => this.#filter());
  }

  state({ version, editing, sides, blind, plays }) {
    const side = sides[editing];
    if (blind.on || !side) return;
    const playing = plays?.split(",")[0] ?? "";
    for (const { set, knobs, note, details } of this.#sections) {
      for (const knob of knobs) {
        const { key } = knob.entry;
        knob.state(side.values[set.set][key], side.changed.includes(`${set.set}.${key}`), version);
      }
      const changes = side.changed.filter((name) => name.startsWith(`${set.set}.`)).length;
      const isHeard = kHeard[playing]?.includes(set.set) ?? false;
      if (!this.opened) details.open = isHeard;
      details.classList.toggle("is-heard", isHeard);
      write(note, [count(knobs.length, "knob"), isHeard ? "heard now" : "not heard now", changes > 0 ? `${changes} changed` : null]
        .filter(Boolean).join(" · "));
    }
    this.opened = true;
    if (this.#onlyChanged.checked) this.#filter();
  }

  #filter() {
    const words = this.#search.value.toLowerCase().split(/\s+/).filter(Boolean);
    const filters = words.length > 0 || this.#onlyChanged.checked;
    let found = 0;
    for (const { knobs, details } of this.#sections) {
      let shown = 0;
      for (const knob of knobs) {
        knob.row.hidden = !words.every((word) => knob.text.includes(word)) || (this.#onlyChanged.checked && !knob.changed);
        shown += knob.row.hidden ? 0 : 1;
      }
      details.hidden = shown === 0;
      if (filters && shown > 0) details.open = true;
      found += shown;
    }
    write(byId("found"), filters ? (found > 0 ? `${count(found, "knob")} found` : "No knob found") : "");
  }
}
