// What went wrong, what was done, and whether the program is there.
import { button, byId, element } from "./elements.js";

export class Messages {
  #id = null;

  lost(reason) {
    const banner = byId("lost");
    banner.textContent = reason ?? "";
    banner.hidden = reason === null;
  }

  // Errors stay until they are closed or another message comes; whatever else goes by itself.
  show({ level, text }) {
    const isError = level === "error";
    byId("alert").replaceChildren();
    byId("status").replaceChildren();
    clearTimeout(this.timer);
    const box = byId(isError ? "alert" : "status");
    const close = () => box.replaceChildren();
    box.append(element("div", { class: isError ? "message error" : "message" },
      element("p", {}, text), button("Close", close, { "aria-label": "Close this message" })));
    if (!isError) this.timer = setTimeout(close, 8000);
  }

  state({ message }) {
    if (!message || message.id === this.#id) return;
    this.#id = message.id;
    this.show(message);
  }
}
