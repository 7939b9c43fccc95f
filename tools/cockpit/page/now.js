// What plays and why, its loudness, and the settings of a phone.
import { byId, capital, element, number, write } from "./elements.js";

const kNames = { ble: "Bluetooth LE", usb: "USB", hdmi: "HDMI" };

export class Now {
  #choices = {};

  constructor(connection, catalogue) {
    this.connection = connection;
    this.#add("mode", catalogue.modes.map((value) => [value, capital(value)]));
    this.device = byId("device");
    this.device.append(...catalogue.devices.map((value) => element("option", { value }, kNames[value] ?? capital(value))));
    this.device.addEventListener("change", () => this.#set("device", this.device.value));
    this.#add("hrtf", catalogue.hrtfs.map((value) => [value, capital(value)]));
    this.#add("equalizer", [[true, "On"], [false, "Off"]]);
    byId("undo").addEventListener("click", () => connection.act({ do: "undo" }));
    byId("redo").addEventListener("click", () => connection.act({ do: "redo" }));
    byId("save").addEventListener("click", () => connection.act({ do: "save" }));
  }

  #add(key, values) {
    const segments = document.querySelector(`#${key} .segments`);
    this.#choices[key] = values.map(([value, text]) => {
      const input = element("input", { type: "radio", name: key, value: String(value) });
      input.addEventListener("change", () => this.#set(key, value));
      segments.append(element("label", {}, input, element("span", {}, text)));
      return { value, input };
    });
  }

  // What is refused goes back to what is.
  async #set(key, value) {
    if (await this.connection.act({ do: "set", key, value }) === null) this.#show();
  }

  #show() {
    const side = this.last.sides[this.last.editing];
    for (const [key, choice] of Object.entries(this.#choices)) {
      for (const { value, input } of choice) input.checked = side?.[key] === value;
    }
    this.device.value = side?.device ?? "";
  }

  state(state) {
    this.last = state;
    const { blind, plays, why, output, trouble, unsaved, project } = state;
    write(byId("plays"), blind.on ? "Blind test" : plays ? capital(plays) : "Nothing plays");
    write(byId("why"), [blind.on ? "" : why, output ? `to ${output}` : ""].filter(Boolean).join(" · "));
    write(byId("trouble"), trouble ?? "");
    byId("trouble").hidden = !trouble;
    document.title = `${blind.on || !plays ? "" : `${capital(plays)} – `}Kelda Upmix`;

    const save = byId("save");
    byId("undo").disabled = blind.on || state.undo === 0;
    byId("redo").disabled = blind.on || state.redo === 0;
    save.disabled = blind.on || unsaved === 0;
    write(save, unsaved > 0 ? `Save (${unsaved})` : "Save");
    save.title = project ? `Save to ${project}` : "Start with --project FILE.toml to save";
    save.setAttribute("aria-description", save.title);
    this.#show();
  }

  meters({ in: before, out: after }) {
    const change = before?.short != null && after?.short != null ? after.short - before.short : null;
    write(byId("loud-in"), number(before?.short));
    write(byId("loud-out"), number(after?.short));
    write(byId("loud-change"), number(change, 1, true));
  }
}
