// A and B, equally loud, and which of them X is.
import { byId, capital, chance, count, number, write } from "./elements.js";

const kEnoughTrials = 16;

export class Sides {
  #buttons = [...document.querySelectorAll("#pair .side")];

  constructor(connection) {
    this.connection = connection;
    for (const one of this.#buttons) one.addEventListener("click", () => this.listen(one.dataset.side));
    for (const one of document.querySelectorAll("[data-answer]")) {
      one.addEventListener("click", () => this.answer(one.dataset.answer));
    }
    byId("match").addEventListener("change", (event) => this.match(event.target.checked));
    byId("copy-ab").addEventListener("click", () => connection.act({ do: "copy", from: "A", to: "B" }));
    byId("copy-ba").addEventListener("click", () => connection.act({ do: "copy", from: "B", to: "A" }));
    byId("blind-start").addEventListener("click", () => this.blind(true));
    byId("blind-end").addEventListener("click", () => this.blind(false));
  }

  get isBlind() { return this.last?.blind.on ?? false; }

  listen(side) {
    if (this.isBlind) return this.connection.act({ do: "x", side });
    return side === "X" ? null : this.connection.act({ do: "side", side });
  }
  other() { return this.listen(this.last.side === "A" ? "B" : "A"); }
  answer(side) { return this.isBlind ? this.connection.act({ do: "answer", side }) : null; }
  async match(on) {
    if (await this.connection.act({ do: "match", on }) === null) byId("match").checked = this.last.match.on;
  }
  async blind(on) {
    if (await this.connection.act({ do: "blind", on }) === null) return;
    // The button that was pressed is gone: go on at what takes its place.
    if (on) this.#buttons[1].focus();
    else byId("blind-start").focus();
  }

  state(state) {
    const { blind, match, side } = state;
    if (this.isBlind && !blind.on && this.last.blind.trials > 0) {
      write(byId("result"), `The blind test: ${byId("score").textContent}.`);
      byId("result").hidden = false;
    }
    this.last = state;
    const heard = blind.on ? blind.listening : side;
    for (const one of this.#buttons) {
      const name = one.dataset.side;
      one.setAttribute("aria-pressed", String(name === heard));
      if (name === "X") one.hidden = !blind.on;
      else write(one.querySelector("span"), summary(state.sides[name]));
    }
    byId("compare").hidden = blind.on;
    byId("blind").hidden = !blind.on;
    byId("sides-title").textContent = blind.on ? "Which of the two is X?" : "Compare A and B";
    byId("match").checked = match.on;
    write(byId("match-text"), matched(match));
    if (blind.on) this.#score(blind);
  }

  #score({ trials, right, p, last }) {
    write(byId("last"), last === null ? "" : judged(last));
    write(byId("score"), trials === 0 ? "No answer yet" : `${right} of ${trials}: ${chance(p)}`);
    const verdict = p < 0.05 ? "That is hardly luck: you hear a difference." : "That can well be luck.";
    write(byId("chance"), [trials > 0 ? verdict : "", trials < kEnoughTrials ? `${kEnoughTrials} answers make a fair test.` : ""]
      .filter(Boolean).join(" "));
  }
}

function judged({ answer, was }) {
  return `${answer === was ? "Right" : "Wrong"}: X was ${was}. There is a new X now.`;
}

function summary(side) {
  if (!side) return "";
  const changes = side.changed.length;
  return [
    capital(side.mode), side.device, `${side.hrtf} ears`, side.equalizer ? null : "no equalizer", side.tuning,
    changes > 0 ? count(changes, "changed knob") : null,
  ].filter(Boolean).join(", ");
}

function matched({ on, ready, a_db, b_db }) {
  if (!on) return "The louder of two sounds seems to be the better one.";
  if (!ready) return "Measuring both for some seconds…";
  const [name, gain] = a_db < b_db ? ["A", a_db] : ["B", b_db];
  if (Math.abs(gain) < 0.05) return "Both are as loud as each other by themselves.";
  return `${name} is turned down by ${number(-gain)} dB.`;
}
