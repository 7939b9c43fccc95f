// The files that are played: where, what, and on.
import { byId, duration, write } from "./elements.js";

export class Player {
  #held = false;

  constructor(connection) {
    this.connection = connection;
    this.range = byId("position");
    byId("before").addEventListener("click", () => this.skip(-1));
    byId("next").addEventListener("click", () => this.skip(1));
    byId("pause").addEventListener("click", () => this.pause());
    this.range.addEventListener("input", () => {
      this.#held = true;
      this.#show();
    });
    this.range.addEventListener("change", () => {
      this.#held = false;
      this.seek(Number(this.range.value));
    });
    setInterval(() => this.#show(), 250);
  }

  get is() { return Boolean(this.last); }
  pause() { return this.connection.act({ do: "pause" }); }
  skip(files) { return this.connection.act({ do: "skip", files }); }
  leap(seconds) { return this.seek(this.#position() + seconds); }
  seek(seconds) {
    const to = Math.min(Math.max(0, seconds), this.last.total ?? Infinity);
    this.last.position = to;
    this.at = performance.now();
    return this.connection.act({ do: "seek", seconds: to }, "seek");
  }

  state({ player }) {
    byId("player").hidden = !player;
    this.last = player;
    this.at = performance.now();
    if (!player) return;
    write(byId("pause"), player.paused ? "Play" : "Pause");
    write(byId("file"), player.files > 1 ? `${player.file} (${player.index + 1} of ${player.files})` : player.file);
    byId("before").disabled = player.files < 2;
    byId("next").disabled = player.files < 2;
    this.#show();
  }

  // The state comes at changes only; between them the position goes on by itself.
  #position() {
    const { position, paused, total } = this.last;
    return Math.min(total ?? Infinity, position + (paused ? 0 : (performance.now() - this.at) / 1000));
  }

  #show() {
    if (!this.last) return;
    const at = this.#held ? Number(this.range.value) : this.#position();
    const { total } = this.last;  // null where nobody knows
    const text = duration(at) + (total === null ? "" : ` of ${duration(total)}`);
    this.range.disabled = total === null;
    if (!this.#held) {
      this.range.max = Math.ceil(total ?? at);
      this.range.value = at;
    }
    this.range.setAttribute("aria-valuetext", text);
    write(byId("time"), text);
  }
}
