// Everything by keyboard, beside the browser's own Tab, arrows, Space and Enter.
import { byId, element } from "./elements.js";

export class Keys {
  #letters = byId("letters");
  #dialog = byId("keys");

  constructor(connection, player, sides) {
    const mode = (value) => () => connection.act({ do: "set", key: "mode", value });
    const unlessBlind = (act) => () => { if (!sides.isBlind) act(); };
    const ifPlaying = (act) => () => { if (player.is) act(); };
    // name, what is shown, what it does; `ctrl` ones also without the switch
    this.keys = [
      ["m", "m", "Music", unlessBlind(mode("music"))],
      ["c", "c", "Cinema", unlessBlind(mode("cinema"))],
      ["o", "o", "Off", unlessBlind(mode("off"))],
      ["a", "a", "Auto", unlessBlind(mode("auto"))],
      ["e", "e", "Equalizer on or off", unlessBlind(() => {
        connection.act({ do: "set", key: "equalizer", value: !sides.last.sides[sides.last.editing].equalizer });
      })],
      ["b", "b", "The other of A and B", unlessBlind(() => sides.other())],
      ["1", "1", "Listen to A", () => sides.listen("A")],
      ["2", "2", "Listen to B", () => sides.listen("B")],
      ["x", "x", "Listen to X, in a blind test", () => sides.listen("X")],
      ["shift+1", "Shift 1", "X is A", () => sides.answer("A")],
      ["shift+2", "Shift 2", "X is B", () => sides.answer("B")],
      ["l", "l", "A and B equally loud, or not", unlessBlind(() => sides.match(!byId("match").checked))],
      ["space", "Space", "Pause or play", ifPlaying(() => player.pause())],
      ["arrowleft", "←", "Back by 5 seconds", ifPlaying(() => player.leap(-5))],
      ["arrowright", "→", "On by 5 seconds", ifPlaying(() => player.leap(5))],
      ["p", "p", "File before", ifPlaying(() => player.skip(-1))],
      ["n", "n", "Next file", ifPlaying(() => player.skip(1))],
      ["/", "/", "Find a knob", unlessBlind(() => byId("search").focus())],
      ["?", "?", "These keys", () => this.show()],
      ["ctrl+z", "Ctrl Z", "Undo", unlessBlind(() => connection.act({ do: "undo" }))],
      ["ctrl+shift+z", "Ctrl Shift Z", "Redo", unlessBlind(() => connection.act({ do: "redo" }))],
      ["ctrl+y", "Ctrl Y", "Redo", unlessBlind(() => connection.act({ do: "redo" }))],
      ["ctrl+s", "Ctrl S", "Save", unlessBlind(() => connection.act({ do: "save" }))],
    ];
    byId("key-list").append(...this.keys.map(([, shown, what]) => element("div", {},
      element("dt", {}, shown.split(" ").map((key) => element("kbd", {}, key))), element("dd", {}, what))));
    byId("help").addEventListener("click", () => this.show());
    try {
      this.#letters.checked = localStorage.getItem("letters") !== "off";
      this.#letters.addEventListener("change", () => localStorage.setItem("letters", this.#letters.checked ? "on" : "off"));
    } catch {
      // Without storage the switch holds until the page is closed.
    }
    addEventListener("keydown", (event) => this.#press(event));
  }

  show() {
    if (!this.#dialog.open) this.#dialog.showModal();
  }

  #press(event) {
    if (this.#dialog.open || event.altKey || event.defaultPrevented) return;
    const ctrl = event.ctrlKey || event.metaKey;
    if (!ctrl && (!this.#letters.checked || takesKeys(event))) return;
    if (ctrl && event.target.matches("[type=search]")) return;  // the field undoes its own
    const found = this.keys.find(([name]) => names(event, ctrl).includes(name));
    if (!found || (event.repeat && !found[0].startsWith("arrow"))) return;
    event.preventDefault();
    found[3]();
  }
}

// What a key press may be called: a layout may need Shift for ? and /.
function names(event, ctrl) {
  const digit = /^Digit([12])$/.exec(event.code)?.[1];
  const key = event.key === " " ? "space" : event.key.toLowerCase();
  const prefix = ctrl ? "ctrl+" : "";
  if (event.shiftKey) return [`${prefix}shift+${digit ?? key}`, ...(ctrl || !/^[?/]$/.test(key) ? [] : [key])];
  return [prefix + key];
}

// Whether the key means something to what has the focus.
function takesKeys({ target, key }) {
  if (target.matches("input:is([type=search], [type=number]), select, textarea")) return true;
  const isArrow = key.startsWith("Arrow");
  if (isArrow) return target.matches("input, [tabindex], summary");
  return key === " " && target.matches("button, input, summary, a, [tabindex]");
}
