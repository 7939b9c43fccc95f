// Files and folders, dropped on the page or opened by a button.
import { byId, count, write } from "./elements.js";

const kLimitBytes = 64 * 1024 * 1024;

export class Drop {
  #depth = 0;

  constructor(connection, messages) {
    Object.assign(this, { connection, messages });
    for (const [opener, input] of [["open-files", "files"], ["open-folder", "folder"]]) {
      byId(opener).addEventListener("click", () => byId(input).click());
      byId(input).addEventListener("change", async ({ target }) => {
        await this.#send([...target.files].map((file) => ({ file, path: file.webkitRelativePath || file.name })));
        target.value = "";
      });
    }
    addEventListener("dragenter", (event) => {
      if (!holdsFiles(event)) return;
      ++this.#depth;
      byId("drop").hidden = false;
    });
    addEventListener("dragleave", (event) => {
      if (holdsFiles(event) && --this.#depth <= 0) this.#close();
    });
    addEventListener("dragover", (event) => {
      if (holdsFiles(event)) event.preventDefault();
    });
    addEventListener("drop", async (event) => {
      if (!holdsFiles(event)) return;
      event.preventDefault();
      this.#close();
      // The entries are gone after the first pause: take all of them at once.
      const entries = [...event.dataTransfer.items].map((item) => item.webkitGetAsEntry()).filter(Boolean);
      try {
        await this.#send((await Promise.all(entries.map(filesOf))).flat());
      } catch (error) {
        this.messages.show({ level: "error", text: `The files cannot be read: ${error.message}` });
      }
    });
  }

  #close() {
    this.#depth = 0;
    byId("drop").hidden = true;
  }

  async #send(files) {
    if (files.length === 0) return;
    const bytes = files.reduce((sum, { file }) => sum + file.size, 0);
    if (bytes > kLimitBytes) {
      const text = `${count(files.length, "file")} of ${Math.ceil(bytes / 1024 / 1024)} MB: at most 64 MB are taken.`;
      this.messages.show({ level: "error", text });
      return;
    }
    const names = files.length === 1 ? files[0].path : count(files.length, "file");
    this.messages.show({ level: "info", text: `Trying ${names}…` });
    await this.connection.upload(files);
  }

  state({ sides, editing, project, blind }) {
    const side = sides[editing];
    if (blind.on || !side) return;
    write(byId("tuning-text"), `Side ${editing} plays ${side.tuning}. ${project ? `Save writes ${project}.` : "No project was named at the start, so nothing can be saved."}`);
  }
}

const holdsFiles = (event) => event.dataTransfer?.types.includes("Files") ?? false;

// The files of an entry and of all folders below it, each with its path from the folder on.
async function filesOf(entry) {
  if (entry.isFile) {
    const file = await new Promise((done, failed) => { entry.file(done, failed); });
    return [{ file, path: entry.fullPath.replace(/^\//, "") }];
  }
  const reader = entry.createReader();
  const found = [];
  for (;;) {  // a reader gives some at a time, and none at the end
    const some = await new Promise((done, failed) => { reader.readEntries(done, failed); });
    if (some.length === 0) return found;
    found.push(...(await Promise.all(some.map(filesOf))).flat());
  }
}
