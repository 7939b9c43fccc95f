// Joins the parts of the page: each takes the state after a change and the meters ten times a second.
import { Connection } from "./connection.js";
import { Drop } from "./drop.js";
import { byId } from "./elements.js";
import { Keys } from "./keys.js";
import { Knobs } from "./knobs.js";
import { Messages } from "./messages.js";
import { Meters } from "./meters.js";
import { Now } from "./now.js";
import { Player } from "./player.js";
import { Sides } from "./sides.js";
import { Spectrum } from "./spectrum.js";

const parts = [];
const messages = new Messages();
let version = -1;
const connection = new Connection({
  state(state) {
    if (state.version < version) return;
    version = state.version;
    document.body.classList.toggle("blind", state.blind.on);
    for (const part of parts) part.state?.(state);
    document.documentElement.dataset.version = state.version;
  },
  meters(meters) {
    for (const part of parts) part.meters?.(meters);
  },
  lost(reason) {
    if (reason !== null) version = -1;
    document.body.classList.toggle("is-lost", reason !== null);
    messages.lost(reason);
  },
  refused: (text) => messages.show({ level: "error", text }),
});

const theme = byId("theme");
theme.value = document.documentElement.dataset.theme ?? "";
theme.addEventListener("change", () => {
  document.documentElement.dataset.theme = theme.value;
  try {
    localStorage.setItem("theme", theme.value);
  } catch {
    // Without storage the choice holds until the page is closed.
  }
});

async function start() {
  try {
    const catalogue = await connection.catalogue();
    const player = new Player(connection);
    const sides = new Sides(connection);
    const now = new Now(connection, catalogue);
    parts.push(messages, now, player, sides, new Meters(catalogue), new Spectrum(),
      new Knobs(connection, catalogue), new Drop(connection, messages), new Keys(connection, player, sides));
    connection.listen();
  } catch (error) {
    messages.lost(`The program cannot be reached (${error.message}). Trying again.`);
    setTimeout(start, 1000);
  }
}
start();
