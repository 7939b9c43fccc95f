// Draws the report from the data in the page. Text from the tuning reaches the page as text
// only, never as markup.
"use strict";

const data = JSON.parse(document.getElementById("data").textContent);
const main = document.getElementById("main");
const charts = [];

// ---- Elements -----------------------------------------------------------------------

function element(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes ?? {})) made.setAttribute(key, value);
  made.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return made;
}

const paragraph = (...text) => element("p", {}, ...text);
const soft = (...text) => element("p", { class: "soft" }, ...text);
function decibel(value, digits = 1) {
  if (value === null) return "none";
  const text = Math.abs(value).toFixed(digits);
  return `${+text === 0 ? "" : value > 0 ? "+" : "−"}${text} dB`;
}
const signed = (value) => String(value).replace("-", "−");
const hertz = (value) => (value < 1000 ? `${Math.round(value)} Hz` : `${+(value / 1000).toPrecision(3)} kHz`);

function table(caption, heads, rows) {
  const isNumber = (column) => rows.length > 0 && rows.every((row) => /^[+−-]?[\d.]+( ?[a-zA-Zµ°]+)?$|^none$|^$/.test(String(row[column])));
  const numeric = heads.map((_, column) => column > 0 && isNumber(column));
  const cell = (name, column, content, more) =>
    element(name, { ...(numeric[column] ? { class: "number" } : {}), ...more }, content ?? "");
  const head = element("tr", {}, heads.map((content, i) => cell("th", i, content, { scope: "col" })));
  const body = rows.map((row) => element("tr", {},
    row.map((content, i) => (i === 0 ? cell("th", i, content, { scope: "row" }) : cell("td", i, content)))));
  return element("div", {}, soft(caption),
    element("div", { class: "scroll", tabindex: "0", role: "group", "aria-label": caption },
      element("table", { "aria-label": caption }, element("thead", {}, head), element("tbody", {}, body))));
}

function section(id, title, ...children) {
  main.append(element("section", { id, "aria-labelledby": `${id}-title` },
    element("h2", { id: `${id}-title` }, title), ...children.filter((child) => child !== null)));
}

// ---- Pictures -----------------------------------------------------------------------

const color = (name) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();

const kFrequencyTicks = [20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000];
const kTableHz = [31.5, 63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000];

const kAxes = {
  hz: {
    title: "Frequency", unit: hertz, tableAt: kTableHz,
    scale: {
      type: "logarithmic", min: 20, max: 20000,
      afterBuildTicks: (axis) => { axis.ticks = kFrequencyTicks.map((value) => ({ value })); },
      ticks: { callback: (value) => (value >= 1000 ? `${value / 1000}k` : `${value}`), maxRotation: 0, autoSkipPadding: 8 },
    },
  },
  ms: {
    title: "Time in ms", unit: (value) => `${+value.toFixed(2)} ms`, tableAt: null,
    scale: { type: "linear", ticks: { maxRotation: 0, autoSkipPadding: 12 } },
  },
  lufs: {
    title: "Loudness of the input in LUFS", unit: (value) => `${signed(value)} LUFS`, tableAt: [-31, -21, -11],
    scale: { type: "linear", ticks: { maxRotation: 0, autoSkipPadding: 12 } },
  },
  s: {
    title: "Time in s", unit: (value) => `${+value.toFixed(2)} s`, tableAt: [-0.5, 0.5, 1, 1.5, 2, 3, 4, 5],
    scale: { type: "linear", ticks: { maxRotation: 0, autoSkipPadding: 12 } },
  },
};

function nearest(xs, x) {
  let best = 0;
  for (let i = 1; i < xs.length; ++i) if (Math.abs(xs[i] - x) < Math.abs(xs[best] - x)) best = i;
  return best;
}

// A chart with its heading, a description for people who cannot see it, and a table of its values.
//   of: what the chart shows, if only the heading above it says so
//   series: {name, x, y, color, dash, faint}; y may hold null where there is nothing
function picture({ title, of, heading, axis, yTitle, series, words, yMin, yMax, xRange, tableAt, digits = 1, wide }) {
  const kind = kAxes[axis];
  const name = of ? `${of}: ${title}` : title;
  const canvas = element("canvas", { role: "img", "aria-label": `${name}. ${words}` });
  const shown = series.filter((one) => !one.faint);
  const at = tableAt ?? kind.tableAt;
  const inside = at.filter((x) => axis === "hz" || (x >= series[0].x[0] && x <= series[0].x.at(-1)));
  const rows = inside.map((x) => [kind.unit(x), ...shown.map((one) => {
    const y = one.y[nearest(one.x, x)];
    return y === null ? "none" : y.toFixed(digits).replace("-", "−");
  })]);
  const figure = element("figure", wide ? { class: "wide" } : {},
    element(heading ?? "h4", {}, title),
    element("div", { class: "plot" }, canvas),
    element("figcaption", {}, words),
    element("details", {}, element("summary", {}, "Values as a table"),
      table(`${name}, ${yTitle}`, [kind.title, ...shown.map((one) => one.name)], rows)));
  charts.push({ canvas, kind, series, yTitle, yMin, yMax, xRange: xRange ?? [series[0].x[0], series[0].x.at(-1)], digits });
  return figure;
}

function dataset(one) {
  return {
    label: one.name, data: one.x.map((x, i) => ({ x, y: one.y[i] })),
    borderColor: color(one.faint ? "faint" : one.color), backgroundColor: color(one.faint ? "faint" : one.color),
    borderWidth: one.faint ? 1 : 1.75, borderDash: one.dash ? [6, 4] : [], pointRadius: 0, pointHitRadius: 8,
    faint: one.faint, order: one.faint ? 2 : one.dash ? 0 : 1,  // dashed lines over the line that they follow
  };
}

function draw(entry) {
  const { canvas, kind, series, yTitle, yMin, yMax, xRange, digits } = entry;
  entry.chart?.destroy();
  const grid = { color: color("grid") };
  const text = { color: color("soft") };
  entry.chart = new Chart(canvas, {
    type: "line",
    data: { datasets: series.map(dataset) },
    options: {
      animation: false, responsive: true, maintainAspectRatio: false, parsing: false, normalized: true,
      interaction: { mode: "index", intersect: false },
      scales: {
        x: { min: xRange[0], max: xRange[1], ...kind.scale, grid, ticks: { ...kind.scale.ticks, ...text }, title: { display: true, text: kind.title, ...text } },
        y: { suggestedMin: yMin, suggestedMax: yMax, grid, ticks: text, title: { display: true, text: yTitle, ...text } },
      },
      plugins: {
        legend: {
          position: "bottom",
          labels: { color: color("text"), boxWidth: 24, boxHeight: 1, sort: (a, b) => a.datasetIndex - b.datasetIndex, filter: (item, chart) => !chart.datasets[item.datasetIndex].faint },
        },
        tooltip: {
          filter: (item) => !item.dataset.faint,
          callbacks: {
            title: (items) => (items.length ? kind.unit(items[0].parsed.x) : ""),
            label: (item) => `${item.dataset.label}: ${item.parsed.y.toFixed(digits)}`,
          },
        },
      },
    },
  });
}

const extent = (series) => {
  const values = series.flatMap((one) => one.y.filter((y) => y !== null));
  return values.length ? [Math.min(...values), Math.max(...values)] : [0, 0];
};
const between = (series) => {
  const [low, high] = extent(series);
  return decibel(low) === decibel(high) ? decibel(low) : `${decibel(low)} to ${decibel(high)}`;
};

// ---- Sections -----------------------------------------------------------------------

function header() {
  const faulty = data.files.filter((file) => file.state === "faulty");
  const missing = data.files.filter((file) => file.state === "missing");
  const count = data.files.filter((file) => file.state === "ok").length;
  document.title = `Tuning report: ${data.directory}`;
  document.getElementById("header").append(
    paragraph(element("strong", {}, data.directory), `: ${count} files in order, ${faulty.length} faulty, ${missing.length} missing.`),
    soft(`Measured at 48 kHz with kelda ${data.version}, through the effect library itself.`),
    element("nav", { "aria-label": "Contents" }, element("ul", {},
      [["verdict", "Verdict"], ["files", "Files"], ["runs", "What runs"], ["equalizers", "Equalizers"], ["ears", "Ears"], ["chains", "Chains"], ["changes", "Mode changes"], ["sound", "Sound"]]
        .map(([id, title]) => element("li", {}, element("a", { href: `#${id}` }, title))))));
}

// What is wrong with the tuning, and what a listener hears.
function verdict() {
  const { files, heard, log } = data.verdict;
  const whole = data.problems.length === 0;
  const fine = heard.filter((one) => one.fine);
  const list = (lines) => element("ul", {}, lines.map((line) => element("li", {}, ...[line].flat())));
  section("verdict", "Verdict",
    element("p", whole ? {} : { class: "problem" }, element("strong", {}, whole
      ? "Everything that the tuning asks for runs."
      : "This tuning is not whole: something that it asks for is damaged or missing.")),
    paragraph(fine.length === heard.length
      ? `The sound is as it should be in all ${heard.length} situations: music and cinema, wired and Bluetooth, standard and personalized ears.`
      : `The sound is as it should be in ${fine.length} of ${heard.length} situations:`),
    fine.length === heard.length ? null : table("What a listener hears", ["Situation", "Sound"],
      heard.map((one) => [one.situation, one.fine ? one.verdict : element("strong", { class: "problem" }, one.verdict)])),
    files.length ? soft("Files that are missing or damaged") : null,
    files.length ? list(files.map((file) => [element("code", {}, file.name), " is ", element("strong", { class: "problem" }, file.state),
      ` (${file.effect})`, file.state === "MISSING" ? "" : `: ${file.detail}`])) : null,
    whole ? null : element("details", { open: "" }, element("summary", {}, "Why the engine does not run as the tuning says"), list(data.problems)),
    log.length ? element("details", {}, element("summary", {}, "The effect's log"), list(log)) : null);
}

function files() {
  section("files", "Files", table("Files of the tuning", ["File", "State", "Contents"],
    data.files.map((file) => [element("code", {}, file.name), file.state, file.note])));
}

function runs() {
  section("runs", "What runs",
    soft("What the effect says that it runs, for every device, HRTF and mode. On all other outputs it passes the sound through."),
    table("Stages that run, and their files", ["Chain", "When", "Stages"],
      data.chains.map((chain) => [chain.title, chain.when.join("; "), chain.stages.join("; ")])),
    element("h3", {}, "Mode auto"),
    table("The mode for an application", ["Application", "Wired", "Bluetooth", "Other outputs"],
      data.applications.map((app) => [app.name, app.wired, app.bluetooth, app.other])),
    ...data.warnings.map((warning) => element("p", { class: "problem" }, warning)));
}

function equalizers() {
  const figures = data.equalizers.flatMap((equalizer) => [
    element("h3", {}, element("code", {}, equalizer.name)),
    paragraph(`${equalizer.form}, preamp ${decibel(equalizer.preamp_db, 2)}. The largest gain is ${decibel(equalizer.peak_db, 2)} at ` +
      `${hertz(equalizer.peak_hz)}: ${equalizer.peak_db > 0.005 ? "a sine there at full scale would clip" : `headroom ${Math.abs(equalizer.peak_db).toFixed(2)} dB`}.`),
    equalizer.deviation_db === null
      ? soft("No chain runs this equalizer without an upmix, so its response was not measured.")
      : paragraph(`Measured through the effect, the response differs from the file's by at most ${equalizer.deviation_db.toFixed(3)} dB, 20 Hz to 20 kHz.`),
    ...equalizer.curves.flatMap((curve) => {
      const series = [
        ...curve.bands.map((band) => ({ name: "band", x: data.frequencies, y: band.response, faint: true })),
        { name: "as the file says", x: data.frequencies, y: curve.gain_db, color: "s1" },
        ...(curve.measured_db ? [{ name: "measured", x: data.frequencies, y: curve.measured_db, color: "s2", dash: true }] : []),
      ];
      return [
        picture({
          of: equalizer.name, title: `Response, ${curve.side}`, axis: "hz", yTitle: "Gain in dB", series, wide: true, digits: 2, yMin: -6, yMax: 6,
          words: `Gain of ${between(series.filter((one) => !one.faint))} between 20 Hz and 20 kHz` +
            (curve.bands.length ? `, made of ${curve.bands.length} bands (the thin lines).` : "."),
        }),
        curve.bands.length ? element("details", {}, element("summary", {}, `The ${curve.bands.length} bands`),
          table(`Bands of ${equalizer.name}, ${curve.side}`, ["Band", "Type", "Frequency", "Gain in dB", "Q"], curve.bands.map((band, i) =>
            [`${i + 1}`, band.type, `${band.freq_hz} Hz`, band.gain_db.toFixed(2).replace("-", "−"), `${band.q}`]))) : null,
      ];
    }),
  ]);
  section("equalizers", "Headphone equalizers", ...(figures.length ? figures : [soft("The tuning has none.")]));
}

function ears() {
  const parts = data.ears.flatMap((set) => [
    element("h3", {}, element("code", {}, set.name)),
    paragraph(`${set.source}. Licence: ${set.licence}. ${set.taps} taps per ear.`),
    table("The virtual loudspeakers. Delay: how much earlier the left ear hears the sound than the right; level: how much louder",
      ["Speaker", "Azimuth", "Elevation", "Interaural delay", "Interaural level", "Largest gain", "at"],
      set.planes.map((plane) => [plane.name, `${signed(plane.azimuth_deg)}°`, `${signed(plane.elevation_deg)}°`, `${signed(Math.round(plane.delay_us))} µs`,
        decibel(plane.level_db), decibel(plane.peak_db), hertz(plane.peak_hz)])),
    element("div", { class: "grid" }, set.planes.flatMap((plane) => {
      const peak = (taps) => Math.max(...taps.map(Math.abs));
      // What comes after the last tap above -40 dB cannot be seen.
      const visible = 0.01 * Math.max(peak(plane.left), peak(plane.right));
      const last = plane.left.findLastIndex((tap, i) => Math.max(Math.abs(tap), Math.abs(plane.right[i])) > visible);
      const times = plane.left.slice(0, last + 8).map((_, i) => i / 48);
      const where = `${plane.name}, ${signed(plane.azimuth_deg)}°`;
      const magnitude = [
        { name: "left ear", x: data.frequencies, y: plane.left_db, color: "s1" },
        { name: "right ear", x: data.frequencies, y: plane.right_db, color: "s2", dash: true },
      ];
      return [
        picture({
          of: set.name, title: `${where}: impulse responses`, axis: "ms", yTitle: "Amplitude", digits: 3,
          tableAt: [0, 0.25, 0.5, 0.75, 1, 1.5, 2, 3, 4],
          series: [
            { name: "left ear", x: times, y: plane.left.slice(0, times.length), color: "s1" },
            { name: "right ear", x: times, y: plane.right.slice(0, times.length), color: "s2", dash: true },
          ],
          words: `The left ear peaks at ${peak(plane.left).toFixed(2)}, the right at ${peak(plane.right).toFixed(2)}; ` +
            (Math.abs(plane.delay_us) < 5 ? "both hear it at once." : `the ${plane.delay_us > 0 ? "left" : "right"} ear hears it ${Math.abs(Math.round(plane.delay_us))} µs earlier.`),
        }),
        picture({
          of: set.name, title: `${where}: magnitude`, axis: "hz", yTitle: "Gain in dB", series: magnitude, yMin: -24, yMax: 12,
          words: `The left ear ${between([magnitude[0]])}, the right ear ${between([magnitude[1]])}; overall the left ear is ` +
            `${decibel(plane.level_db)} relative to the right.`,
        }),
      ];
    })),
  ]);
  section("ears", "Ears", ...(parts.length ? parts : [soft("The tuning has no HRIR set that can be read.")]));
}

// The mean power over 1/12 octave, which is four bands of the curve. The room and the upmix give
// every band a gain of its own; the mean shows better what the ear hears as one.
function smoothed(gains_db) {
  const power = gains_db.map((gain) => (gain === null ? 0 : 10 ** (gain / 10)));
  const weights = [0.125, 0.25, 0.25, 0.25, 0.125];
  return power.map((_, at) => {
    let sum = 0, weight = 0;
    weights.forEach((one, i) => {
      const x = power[at + i - 2];
      if (x !== undefined) { sum += one * x; weight += one; }
    });
    return sum > 0 ? 10 * Math.log10(sum / weight) : null;
  });
}

const kImages = [["centre", "from the centre"], ["left", "from the left"], ["diffuse", "from everywhere"]];

function chains() {
  const measured = data.chains.filter((chain) => chain.images);
  section("chains", "Chains",
    paragraph("How each chain was measured: sweeps of " + data.method.level + ", 20 Hz to 20 kHz, one every " + data.method.period_ms.toFixed(0) +
      " ms, from two places of the stereo image: both channels the same (centre) and the left channel alone (left); and pink noise in two " +
      "uncorrelated channels (diffuse). What the upmix does depends on where the sound comes from, and what the level control does on how loud it is; both change with time. So a response " +
      `holds only for this sound, after ${data.method.settling_s} s, averaged over ${data.method.average_s.toFixed(1)} s. ` +
      "The thin lines show bands of 1/48 octave, the thick ones bands of 1/12 octave."),
    table("Latency, level and headroom",
      ["Chain", "Latency as heard", "Without the rings", "Stages declare", "Level, centre", "Level, left", "Level, diffuse", "True peak", "Headroom"],
      measured.map((chain) => {
        const peaks = kImages.map(([key]) => chain.images[key].true_peak_db).filter((db) => db !== null);
        const peak = peaks.length > 0 ? Math.max(...peaks) : null;
        const latencies = [chain.heard_latency_frames, chain.images.centre.arrival_frames, chain.latency_frames];
        return [chain.title, ...latencies.map((frames) => `${(frames / 48).toFixed(2)} ms`),
          ...kImages.map(([key]) => decibel(chain.images[key].level_db)), decibel(peak), decibel(peak === null ? null : -peak)];
      })),
    soft(`Latency as heard: the delay of sound from the centre if the host plays blocks of ${data.method.host_ms} ms; most of it is the wait in the effect's ring buffers. ` +
      "A host that plays blocks of exactly 1024 frames bypasses them. The latency that the stages declare is the length of the silence when the mode changes. " +
      "Level: the gain over all frequencies, both ears together. True peak: the largest of the three sounds at full scale, in dBTP; headroom: how far it is below 0 dBTP."),
    ...data.chains.flatMap((chain) => [
      element("h3", {}, chain.title),
      soft(`${chain.when.join("; ")}. ${chain.stages.join("; ")}.`),
      ...chain.problems.map((problem) => element("p", { class: "problem" }, `Not measured: ${problem}`)),
      chain.images ? element("div", { class: "grid narrow" }, kImages.map(([key, place]) => {
        const image = chain.images[key];
        const series = [
          { name: "left ear", x: data.frequencies, y: smoothed(image.left_db), color: "s1" },
          { name: "right ear", x: data.frequencies, y: smoothed(image.right_db), color: "s2", dash: true },
        ];
        const fine = [image.left_db, image.right_db].map((y) => ({ name: "fine", x: data.frequencies, y, faint: true }));
        return picture({
          of: chain.title, title: `Sound ${place}`, axis: "hz", yTitle: "Gain in dB", series: [...series, ...fine], yMin: -12, yMax: 12,
          words: `The left ear gets ${between([series[0]])}` + (series[1].y.every((y) => y === null) ? ", the right ear nothing." : `, the right ear ${between([series[1]])}.`),
        });
      })) : null,
    ]));
}

const dbfs = (value) => (value === null ? "silence" : `${signed(value.toFixed(1))} dBFS`);

// "12.0 dB softer". Less than half a decibel counts as the same, because it is hard to hear.
function against(value, before) {
  if (value === null || before === null) return value === before ? "as silent" : "silence on one side";
  const difference = value - before;
  if (Math.abs(difference) < 0.5) return `as loud (${decibel(difference)})`;
  return `${Math.abs(difference).toFixed(1)} dB ${difference > 0 ? "louder" : "softer"}`;
}

// The levels of a change of mode as text.
function levels(change) {
  const { before_db: before, just_after_db: soon, later_db: later } = change;
  return { before: dbfs(before), soon: dbfs(soon), soonAgainst: against(soon, before), later: dbfs(later), laterAgainst: against(later, before) };
}

function changes() {
  const { change_level_s: length, change_just_after_s: soon, change_later_s: later } = data.method;
  const seconds = (value) => value.toFixed(1);
  section("changes", "Mode changes",
    paragraph("Pink noise, half centred and half diffuse, on wired headphones in host blocks of 20 ms; the mode changes at 0 s. The level is the RMS of both ears: " +
      `before the change (the last ${seconds(length)} s), just after it (${seconds(soon)} to ${seconds(soon + length)} s, when the new mode has faded in) and ` +
      `${later} s after it (to ${seconds(later + length)} s).`),
    table("What is heard", ["Change", "Before", "Just after", "Against before", `${later} s after`, "Against before", "Silence", "Clicks"],
      data.changes.map((change) => [`${change.from} to ${change.to}`, ...Object.values(levels(change)),
        `${change.silence_ms.toFixed(1)} ms`, `${change.steps}`])),
    ...data.changes.flatMap((change) => {
      const name = `From ${change.from} to ${change.to}`;
      const heard = levels(change);
      const level = (curve, scale) => [{ name: "level", x: curve.times_ms.map((ms) => ms * scale), y: curve.level_db, color: "s1" }];
      return [
        element("h3", {}, name),
        paragraph(`Before the change the sound is at ${heard.before}. Just after it the sound is at ${heard.soon}, ` +
          `${heard.soonAgainst}; ${later} s after it at ${heard.later}, ${heard.laterAgainst}.`),
        element("div", { class: "grid" },
          picture({
            of: name, title: "The fade", axis: "ms", yTitle: "Level in dBFS", yMin: -100, yMax: 0, xRange: [-100, 500],
            tableAt: [-50, -25, 0, 10, 20, 30, 40, 50, 75, 100, 200, 400], series: level(change.fade, 1),
            words: (change.silence_ms > 0
              ? `The sound fades out, is silent for ${change.silence_ms.toFixed(1)} ms and fades in again.`
              : "The sound changes at once, without a fade.") + " Windows of 5 ms.",
          }),
          picture({
            of: name, title: "The seconds after", axis: "s", yTitle: "Level in dBFS", yMin: -45, yMax: -5, xRange: [-1, 6], series: level(change.settling, 0.001),
            words: "How long the level takes to settle. Windows of 100 ms, in which the level of the noise itself varies by 1 or 2 dB.",
          })),
      ];
    }));
}

// Where the noise comes from, with the colours of the lines.
const kPlaces = [["centre", "Centre", "s1"], ["left", "Left", "s2"], ["wide", "Wide", "s3"]];

const titled = (mode) => mode[0].toUpperCase() + mode.slice(1);
const plain = (value, digits) => (value === null ? "none" : value.toFixed(digits).replace("-", "−"));

function soundTable(modes) {
  const rows = [
    ["Worst line beside two steady tones", "lower", (mode) => decibel(mode.lines.pairs.worst_db)],
    ["Worst line beside a chord of 18 partials", "lower", (mode) => decibel(mode.lines.chord.worst_db)],
    ...kPlaces.flatMap(([key, place]) => [
      [`${place}: third octaves, peak to peak`, "lower", (mode) => decibel(mode.colour[key].peak_to_peak_db).replace("+", "")],
      [`${place}: 8 kHz against the middle`, "near 0", (mode) => decibel(mode.colour[key].treble_db)],
      [`${place}: predicted colouration`, "lower", (mode) => `${plain(mode.colour[key].colouration_sone, 2)} sone`],
    ]),
    ["Coherence of the ears, off a diffuse field (rms)", "lower", (mode) => plain(mode.coherence.off, 2)],
    ["Bass of wide sound, 40 to 100 Hz against the whole", "near 0", (mode) => decibel(mode.colour.wide.bass_db)],
    ["Direct over reverberant sound, centre", "", (mode) => decibel(mode.room.centre.direct_over_reverberant_db)],
    ["Direct over reverberant sound, left", "", (mode) => decibel(mode.room.left.direct_over_reverberant_db)],
    ["Ripple of the centre against its bare HRIRs", "lower", (mode) => (mode.room.ripple_db === null ? "none" : decibel(mode.room.ripple_db).replace("+", ""))],
    ["Loudness over bypass, least and most", "near 0", (mode) => {
      const [least, most] = extent(kPlaces.map(([key]) => ({ y: mode.loudness[key] })));
      return `${decibel(least)} to ${decibel(most)}`.replaceAll("dB", "LU");
    }],
  ];
  return table("The figures. The column better says which way is better",
    ["What", "Better", ...modes.map((mode) => titled(mode.mode))], rows.map(([what, better, value]) => [what, better, ...modes.map((mode) => value(mode).replace(/ (?=dB|sone|LU)/g, "\u00a0"))]));
}

function modeSound(mode) {
  const { lines, colour, coherence, room, loudness } = mode;
  const of = titled(mode.mode);
  const spectrum = (one) => [
    { name: "the tones", x: one.freq_hz, y: one.tones_db, color: "s1" },
    // Below the picture's edge where it is silent, and no point where there is nothing but tones.
    { name: "beside the tones", x: one.freq_hz, y: one.rest_db.map((y, i) => (y === null && one.tones_db[i] !== null ? null : Math.max(y ?? -140, -140))), color: "s2" },
  ];
  const lineNote = (one) => `The highest line more than 30 Hz from every tone is at ${decibel(one.worst_db)}, relative to the loudest tone. Twelfths of an octave, the highest line of each.`;
  return [
    element("h3", {}, of),
    element("div", { class: "grid" },
      picture({
        of, title: "Lines beside two steady tones", axis: "hz", yTitle: "Level in dB", yMin: -120, yMax: 0, series: spectrum(lines.pairs), words: lineNote(lines.pairs),
      }),
      picture({
        of, title: "Lines beside a chord", axis: "hz", yTitle: "Level in dB", yMin: -120, yMax: 0, series: spectrum(lines.chord), words: lineNote(lines.chord),
      }),
      picture({
        of, title: "Colour", axis: "hz", yTitle: "Gain in dB", yMin: -9, yMax: 9,
        series: kPlaces.map(([key, place, line]) => ({ name: place.toLowerCase(), x: colour.freq_hz, y: colour[key].gain_db, color: line })),
        words: "Power of both ears over that of both channels, in third octaves: what the ears and the room make of pink noise. " +
          kPlaces.map(([key, place]) => `${place}: ${decibel(colour[key].peak_to_peak_db).replace("+", "")} peak to peak from 125 Hz to 10 kHz`).join("; ") + ".",
      }),
      picture({
        of, title: "Coherence of the ears, wide sound", axis: "hz", yTitle: "Coherence", yMin: -0.6, yMax: 1, digits: 2, xRange: [200, 5000],
        tableAt: [250, 500, 1000, 2000, 4000],
        series: [
          { name: "at the ears", x: coherence.freq_hz, y: coherence.heard, color: "s1" },
          { name: "in a diffuse field", x: coherence.freq_hz, y: coherence.diffuse, color: "s2", dash: true },
        ],
        words: `Uncorrelated noise in both channels. The nearer to the dashed line, the more it is around the listener; off by ${plain(coherence.off, 2)} (rms).`,
      }),
      picture({
        of, title: "Room: the energy still to come", axis: "ms", yTitle: "Level in dB", yMin: -60, yMax: 0, tableAt: [0, 4, 10, 20, 50, 100, 150],
        series: [
          { name: "centre", x: room.times_ms, y: room.centre.decay_db, color: "s1" },
          { name: "left", x: room.times_ms, y: room.left.decay_db, color: "s2", dash: true },
        ],
        words: "At the louder ear. What the first 3 ms bring is over the rest by " +
          `${decibel(room.centre.direct_over_reverberant_db)} from the centre and ${decibel(room.left.direct_over_reverberant_db)} from the left.`,
      }),
      picture({
        of, title: "Loudness against bypass", axis: "lufs", yTitle: "Louder by, in LU", yMin: -6, yMax: 6, xRange: [-32, -10],
        series: kPlaces.map(([key, place, line]) => ({ name: place.toLowerCase(), x: loudness.in_lufs, y: loudness[key], color: line })),
        words: "Pink noise, 8 to 11 s after the start. A level control that brings all to one loudness makes a line that falls by 1 LU for each LU; without one it is flat.",
      })),
  ];
}

function sound() {
  const { modes, handovers } = data.sound;
  const measured = modes.filter((mode) => mode.problems.length === 0);
  section("sound", "Sound",
    paragraph("How music and cinema sound on wired headphones with standard ears. ",
      "Lines: steady tones of different panning, whose spectrum should hold nothing else. Colour, coherence and bass: pink noise of −26 dBFS from the centre, " +
      "from the left and uncorrelated in both channels. Room: the response to a sweep. These figures hold for these sounds; how mixes of real instruments fare is in docs/sound.md of the sources."),
    ...modes.flatMap((mode) => mode.problems.map((problem) => element("p", { class: "problem" }, `${titled(mode.mode)} was not measured: ${problem}`))),
    measured.length ? soundTable(measured) : null,
    ...measured.flatMap(modeSound),
    handovers.length ? element("h3", {}, "Level when the mode changes") : null,
    handovers.length ? element("div", { class: "grid" }, picture({
      title: "Level against a run that was in the new mode all along", axis: "s", yTitle: "Level in dB", yMin: -15, yMax: 6, xRange: [-1, 3], wide: true,
      tableAt: [-0.5, 0.25, 0.5, 0.75, 1, 1.5, 2, 2.5],
      series: handovers.map((change, i) => ({ name: `${change.from} to ${change.to}`, x: change.times_s, y: change.gain_db, color: `s${1 + i % 6}`, dash: change.to === "cinema" })),
      words: "Pink noise of −30 LUFS, half centred and half diffuse; the mode changes at 0 s. The level falls short, 0.2 to 1.5 s after the change, by at most " +
        handovers.map((change) => `${plain(change.short_db, 1)} dB (${change.from} to ${change.to})`).join(", ") + ".",
    })) : null);
}

function drawAll() {
  for (const entry of charts) draw(entry);
}

try {
  Chart.defaults.font.family = getComputedStyle(document.body).fontFamily;
  for (const part of [header, verdict, files, runs, equalizers, ears, chains, changes, sound]) part();
  drawAll();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAll);
  document.documentElement.dataset.drawn = String(charts.length);
} catch (error) {
  main.prepend(element("p", { class: "problem", role: "alert" }, `This page could not be drawn: ${error}`));
  throw error;
}
