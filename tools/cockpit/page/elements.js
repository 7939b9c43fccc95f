// Elements, and the words for numbers.

export const byId = (id) => document.getElementById(id);

export function element(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes ?? {})) {
    if (value !== false && value !== null && value !== undefined) {
      made.setAttribute(key, value === true ? "" : value);
    }
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return made;
}

export function button(text, onClick, attributes) {
  const made = element("button", { type: "button", ...attributes }, text);
  made.addEventListener("click", onClick);
  return made;
}

// Writes a text only where it changed: the meters come ten times a second.
export function write(node, text) {
  if (node.textContent !== text) node.textContent = text;
}

export const capital = (text) => text.charAt(0).toUpperCase() + text.slice(1);

// -12.3 with a real minus; `sign`: also a plus.
export function number(value, digits = 1, sign = false) {
  if (value === null || value === undefined || !Number.isFinite(value)) return "–";
  const text = Math.abs(value).toFixed(digits);
  if (Number(text) === 0) return text;
  return (value < 0 ? "−" : sign ? "+" : "") + text;
}

export function duration(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  const two = (n) => String(n).padStart(2, "0");
  const hours = Math.floor(whole / 3600);
  const minutes = Math.floor(whole / 60) % 60;
  return hours > 0 ? `${hours}:${two(minutes)}:${two(whole % 60)}` : `${minutes}:${two(whole % 60)}`;
}

export const count = (n, one, many = `${one}s`) => `${n} ${n === 1 ? one : many}`;

// How often chance alone has so many right, in words.
export function chance(p) {
  if (p > 0.1) return `chance does as well in ${Math.round(p * 100)} of 100 tries`;
  const tries = Number((1 / p).toPrecision(2));
  return `chance gets this in 1 of ${tries.toLocaleString("en")} tries`;
}
