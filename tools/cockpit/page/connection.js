// What the page says to the program, and what it hears from it.

const kPauseMs = 50;  // between two values of one knob
const kSilenceMs = 5000;  // the meters come ten times a second
const kRetryMs = 1000;

export class Connection {
  // `hears`: { state(state), meters(meters), lost(reason or null), refused(text) }
  constructor(hears) {
    this.hears = hears;
    this.waiting = [];
    this.busy = false;
    this.sent = new Map();
    this.heardAt = performance.now();
    setInterval(() => this.#look(), kRetryMs);
  }

  async catalogue() {
    const answer = await fetch("catalogue");
    if (!answer.ok) throw new Error(`the program answers ${answer.status}`);
    return answer.json();
  }

  listen() {
    this.events?.close();
    this.events = new EventSource("events");
    this.heardAt = performance.now();
    this.events.addEventListener("state", (event) => this.#heard("state", event));
    this.events.addEventListener("meters", (event) => this.#heard("meters", event));
    this.events.addEventListener("error", () => this.#lose());
  }

  // Does one thing after the other, so that none overtakes. What has a `slot` replaces what waits
  // with the same slot, and is sent 20 times a second at most; the last one is always sent.
  // Resolves to the version that holds it, or null where it was refused or replaced.
  act(action, slot = null) {
    return new Promise((done) => {
      const last = this.waiting.at(-1);
      if (slot !== null && last?.slot === slot) {
        last.done(null);
        this.waiting.pop();
      }
      this.waiting.push({ action, slot, done });
      this.#next();
    });
  }

  // Files with their relative names. What became of them comes as a message of the state.
  async upload(files) {
    const form = new FormData();
    for (const { file, path } of files) form.append("file", file, path);
    await this.#post("drop", { body: form });
  }

  async #next() {
    if (this.busy) return;
    this.busy = true;
    while (this.waiting.length > 0) {
      const { slot } = this.waiting[0];
      const wait = slot === null ? 0 : (this.sent.get(slot) ?? -kPauseMs) + kPauseMs - performance.now();
      if (wait > 0) {
        await new Promise((done) => { setTimeout(done, wait); });
        continue;  // it may have been replaced meanwhile
      }
      const { action, done } = this.waiting.shift();
      if (slot !== null) this.sent.set(slot, performance.now());
      const said = await this.#post("action", {
        headers: { "Content-Type": "application/json" }, body: JSON.stringify(action),
      });
      done(said && said.version);
    }
    this.busy = false;
  }

  async #post(where, what) {
    try {
      const answer = await fetch(where, { method: "POST", ...what });
      const said = await answer.json().catch(() => ({}));
      if (answer.ok) return said;
      this.hears.refused(said.error ?? `The program refuses it (${answer.status}).`);
    } catch {
      this.#lose();
      this.hears.refused("The program does not answer. Nothing was changed.");
    }
    return null;
  }

  #heard(what, event) {
    this.heardAt = performance.now();
    if (this.isLost) {
      this.isLost = false;
      this.hears.lost(null);
    }
    this.hears[what](JSON.parse(event.data));
  }

  async #lose() {
    if (this.isLost) return;
    this.isLost = true;
    const reason = await this.catalogue().then(
      () => "The program takes no more pages: close one of the others.",
      () => "The program has ended, or cannot be reached. This page connects again by itself; after a new start, open the address that it prints.");
    if (this.isLost) this.hears.lost(reason);
  }

  #look() {
    const silent = performance.now() - this.heardAt > kSilenceMs;
    if (silent) this.#lose();
    if (silent || this.events?.readyState === EventSource.CLOSED) this.listen();
  }
}
