// What a person may miss on the page as it stands: returns a list of faults, as texts.
const faults = [];
const visible = (node) => node.checkVisibility({ opacityProperty: true, visibilityProperty: true }) && node.getClientRects().length > 0;
const name = (node) => node.id || node.textContent.trim().slice(0, 40) || node.outerHTML.slice(0, 60);

// Contrast of every text with what lies behind it, as WCAG 2 defines it.
const canvas = document.createElement("canvas").getContext("2d", { willReadFrequently: true });
const rgba = (color) => {
  canvas.clearRect(0, 0, 1, 1);
  canvas.fillStyle = color;
  canvas.fillRect(0, 0, 1, 1);
  const [r, g, b, a] = canvas.getImageData(0, 0, 1, 1).data;
  return [r, g, b, a / 255];
};
const over = ([r, g, b, a], behind) => [r, g, b].map((c, i) => c * a + behind[i] * (1 - a));
const behind = (node) => {
  const own = rgba(getComputedStyle(node).backgroundColor);
  return own[3] === 1 || !node.parentElement ? over(own, [255, 255, 255]) : over(own, behind(node.parentElement));
};
const luminance = (rgb) => {
  const [r, g, b] = rgb.map((c) => (c / 255 <= 0.04045 ? c / 255 / 12.92 : ((c / 255 + 0.055) / 1.055) ** 2.4));
  return 0.2126 * r + 0.7152 * g + 0.0722 * b;
};
const contrast = (one, other) => {
  const [dark, light] = [luminance(one), luminance(other)].sort((a, b) => a - b);
  return (light + 0.05) / (dark + 0.05);
};
let texts = 0;
const hasText = (node) => [...node.childNodes].some((child) => child.nodeType === Node.TEXT_NODE && child.data.trim())
  || node.matches("input:not([type=range], [type=radio], [type=checkbox], [type=file])");
for (const node of document.body.querySelectorAll("*")) {
  if (!hasText(node) || !visible(node) || node.closest(":disabled, noscript")) continue;
  ++texts;
  const style = getComputedStyle(node);
  const background = behind(node);
  const ratio = contrast(over(rgba(style.color), background), background);
  const size = parseFloat(style.fontSize);
  const needed = size >= 24 || (size >= 18.66 && style.fontWeight >= 700) ? 3 : 4.5;
  if (ratio < needed) faults.push(`contrast ${ratio.toFixed(2)} of "${name(node)}"`);
}
if (texts < 60) faults.push(`only ${texts} texts`);

// What is pressed has room for a finger, and nothing is wider than the screen.
for (const node of document.querySelectorAll("button, select, summary, input:not([type=file])")) {
  if (!visible(node) && !node.matches("[type=radio]")) continue;
  const { width, height } = (node.closest(".switch, .segments label") ?? node).getBoundingClientRect();
  if (width > 0 && (width < 44 || height < 44)) faults.push(`${Math.round(width)} x ${Math.round(height)}: ${name(node)}`);
}
const wide = document.documentElement.scrollWidth - innerWidth;
if (wide > 0) faults.push(`${wide} pixels too wide`);
return faults;
