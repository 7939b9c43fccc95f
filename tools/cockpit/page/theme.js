// Runs before anything is drawn, so that the page never flashes in the wrong colours.
"use strict";
try {
  const theme = localStorage.getItem("theme");
  if (theme) document.documentElement.dataset.theme = theme;
} catch {
  // Without storage the colours are the system's.
}
