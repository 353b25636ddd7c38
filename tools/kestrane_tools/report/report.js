// Draws the figures of the page from the JSON in #results. Verdict, findings, six figures and tables
// stand in the HTML already; without this file they are all there is.
//
// Data in, marks out: one function per figure, no state but the URL fragment. d3 5.16 and 7 alike.
"use strict";

(() => {
  const byId = (id) => document.getElementById(id);
  const model = JSON.parse(byId("results").textContent);
  const LINES = 15, CELLS = 50, BLOCKS = LINES * CELLS;
  const ORIGINS = ["measured", "thin (1–9 points)", "extended from its sector", "borrowed sector", "no plane"];
  const ORIGIN_COLOURS = ["#2a7fbf", "#a6cfe8", "#d9dee4", "#e69f3c", "#ffffff"];
  const NONE = "#eef1f4", ABOVE = "#e4572e", BAD = "#b3261e", WARN = "#a85b00", BLUE = "#2a7fbf", INK = "#1b2430";
  const { unit, fan, poses, histogram } = model;
  const maps = model.maps || [];
  const limits = model.meta.limits || {};
  const planeCount = model.planes ? model.planes.status.length : maps.length ? maps[0].blocks.shape[0] : 0;
  const planeNumbers = d3.range(planeCount);
  const mapOf = (id) => maps.find((map) => map.id === id);

  // --- numbers ---------------------------------------------------------------------------------------
  const known = (value) => value !== null && value !== undefined && Number.isFinite(value);
  const minus = (text) => text.replace(/^-(?=0\.?0*$)/, "").replace("-", "−");
  const length = (value) => (known(value) ? minus(value.toFixed(3)) : "–");
  const count = (value) => (known(value) ? d3.format(",")(Math.round(value)) : "–");
  const short = (value) => minus(d3.format(".4~g")(value));
  const isLength = (map) => map.kind !== "class" && map.kind !== "count";
  const clamp = (value, low, high) => Math.max(low, Math.min(high, value));

  // A figure of a block, and one of a plane.
  const written = (map, value) => (!known(value) ? "–" : map.kind === "class" ? ORIGINS[Math.round(value)]
    : map.kind === "count" ? count(value) : `${minus(value.toFixed(4))} ${unit}`);
  const planeWritten = (map, value) => (!known(value) ? "–" : map.kind === "class" ? `${Math.round(100 * value)} %`
    : map.kind === "count" ? count(value) : length(value));

  async function unpack(packed) {
    const bytes = Uint8Array.from(atob(packed.data), (letter) => letter.charCodeAt(0));
    const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("deflate"));
    const raw = new Uint8Array(await new Response(stream).arrayBuffer());
    return Float64Array.from({ length: raw.length / 2 }, (_, i) => {
      const q = (raw[i] << 8) | raw[raw.length / 2 + i];
      return q === 65535 ? NaN : packed.low + packed.step * q;
    });
  }

  // --- state: the URL fragment -------------------------------------------------------------------------
  const initial = { map: maps.length ? maps[0].id : "", sort: "worst", whole: "0", plane: "", order: "" };
  const state = { ...initial };
  const allowed = {
    map: (value) => Boolean(mapOf(value)),
    sort: (value) => /^(worst|number)$/.test(value),
    whole: (value) => /^[01]$/.test(value),
    plane: (value) => /^\d*$/.test(value) && Number(value) < planeCount,
    order: (value) => /^[a-z0-9]*-(asc|desc)$/.test(value),
  };

  function readFragment() {
    const given = new URLSearchParams(location.hash.slice(1));
    Object.keys(state).filter((key) => given.has(key) && allowed[key](given.get(key))).forEach((key) => { state[key] = given.get(key); });
  }

  function change(changes) {
    Object.assign(state, changes);
    const told = Object.entries(state).filter(([key, value]) => value !== initial[key]);
    history.replaceState(null, "", `#${new URLSearchParams(told)}`);
  }

  // --- colours ---------------------------------------------------------------------------------------
  const blueRed = (share) => d3.interpolateRdBu(1 - clamp(share, 0, 1));
  const paleDark = (share) => d3.interpolateYlGnBu(0.06 + 0.94 * clamp(share, 0, 1));

  const pixelOf = (css) => { const { r, g, b } = d3.rgb(css); return ((255 << 24) | (b << 16) | (g << 8) | r) >>> 0; };

  // From a value to a colour, as CSS and as the pixel of a canvas.
  function painter(map) {
    const ramp = map.kind === "class" ? ORIGIN_COLOURS
      : d3.range(256).map((i) => (map.kind === "signed" ? blueRed : paleDark)(i / 255));
    const share = (v) => (map.kind === "signed" ? 0.5 + v / (2 * map.top) : v / map.top);
    const place = (v) => (map.kind === "class" ? Math.round(v) : clamp(Math.round(255 * share(v)), 0, 255));
    const pixels = ramp.map(pixelOf), none = pixelOf(NONE), above = pixelOf(ABOVE);
    const isAbove = (v) => map.kind === "size" && known(map.limit) && v > map.limit;
    const css = (v) => (!known(v) ? NONE : isAbove(v) ? ABOVE : ramp[place(v)]);
    return { css, pixel: (v) => (Number.isNaN(v) ? none : isAbove(v) ? above : pixels[place(v)]) };
  }

  // --- the fan in y and z ------------------------------------------------------------------------------
  const depthOf = (row) => model.grid.z_start + row * model.grid.z_step;
  const sideOf = (line, row) => model.grid.y_start[row] + line * model.grid.y_step[row];
  const rangeOf = (row) => `z ${depthOf(row).toFixed(0)}–${depthOf(row + 1).toFixed(0)}`;

  // The piece of the fan that is shown: lengths, with a margin of a hundredth.
  function extent() {
    const { lines, rows } = state.whole === "1" ? { lines: [0, LINES], rows: [0, CELLS] } : model.extent;
    const [left, right] = d3.extent(rows.flatMap((row) => lines.map((line) => sideOf(line, row))));
    const margin = 0.01 * (right - left);
    return { left: left - margin, right: right + margin, near: depthOf(rows[0]) - margin, far: depthOf(rows[1]) + margin };
  }

  // The block of a place as it is drawn, -1 outside: between two depths the sides run straight.
  function blockAt(y, z) {
    const row = Math.floor((z - model.grid.z_start) / model.grid.z_step);
    if (!(row >= 0 && row < CELLS)) return -1;
    const share = (z - depthOf(row)) / model.grid.z_step;
    const side = (line) => sideOf(line, row) + share * (sideOf(line, row + 1) - sideOf(line, row));
    const line = Math.floor((y - side(0)) / (side(1) - side(0)));
    return line >= 0 && line < LINES ? line * CELLS + row : -1;
  }

  const ofPlane = (map, plane) => map.values.subarray(plane * BLOCKS, (plane + 1) * BLOCKS);

  // Which block each pixel of a canvas shows: found once for all planes and quantities.
  const nets = new Map();
  function netOf(width, height) {
    const key = `${width} ${height} ${state.whole}`;
    if (!nets.has(key)) {
      const box = extent();
      const y = (u) => box.left + ((u + 0.5) / width) * (box.right - box.left);
      const z = (v) => box.near + ((v + 0.5) / height) * (box.far - box.near);
      nets.set(key, Int32Array.from({ length: width * height }, (_, i) => blockAt(y(i % width), z(Math.floor(i / width)))));
    }
    return nets.get(key);
  }

  // values: 750 of one plane or of all together
  function paintMap(canvas, values, paint) {
    const { width, height } = canvas;
    const context = canvas.getContext("2d");
    const image = context.createImageData(width, height);
    const pixels = new Uint32Array(image.data.buffer);
    const net = netOf(width, height);
    const colours = Uint32Array.from(values, paint.pixel);
    for (let i = 0; i < pixels.length; ++i) if (net[i] >= 0) pixels[i] = colours[net[i]];
    context.putImageData(image, 0, 0);
    const box = extent(), { near, far, half_angle: angle } = model.volume;
    const slope = Math.tan((Math.min(angle, 30) * Math.PI) / 180);
    context.lineWidth = 1.2 * pixelRatio();
    context.setLineDash([3 * pixelRatio(), 3 * pixelRatio()]);
    const corners = [[-near, near], [near, near], [far, far], [-far, far]].map(([side, z]) =>
      [((side * slope - box.left) / (box.right - box.left)) * width, ((z - box.near) / (box.far - box.near)) * height]);
    context.stroke(new Path2D(`M${corners.join("L")}Z`));
  }

  // --- frames and marks ----------------------------------------------------------------------------------
  const pixelRatio = () => Math.min(2, window.devicePixelRatio || 1);
  const sized = (canvas, wide, high) => Object.assign(canvas,
    { width: Math.round(wide * pixelRatio()), height: Math.round(high * pixelRatio()) });

  // An SVG in a host; with a label also a canvas below it, inside the margins. Both scale with the page.
  function figure(host, height, [top, right, bottom, left], label) {
    const width = Math.max(host.clientWidth, 160), wide = width - left - right;
    const high = typeof height === "function" ? height(wide) : height - top - bottom;
    const total = high + top + bottom;
    host.replaceChildren();
    const svg = d3.select(host).append("svg").attr("viewBox", `0 0 ${width} ${total}`).attr("aria-hidden", "true");
    const made = { wide, high, svg, plot: svg.append("g").attr("transform", `translate(${left},${top})`) };
    if (!label) return made;
    const canvas = host.insertBefore(document.createElement("canvas"), host.firstChild);
    Object.entries({ role: "img", "aria-label": label, tabindex: 0 }).forEach((pair) => canvas.setAttribute(...pair));
    sized(canvas, wide, high);
    host.style.aspectRatio = `${width} / ${total}`;
    const places = { left: left / width, top: top / total, width: wide / width, height: high / total };
    for (const [side, share] of Object.entries(places)) canvas.style[side] = `${100 * share}%`;
    return { ...made, canvas };
  }

  const axis = (parent, made, x, y) => parent.append("g").attr("class", "axis").attr("transform", `translate(${x},${y})`).call(made);
  const says = (parent, x, y, text, anchor = "start", kind = "") =>
    parent.append("text").attr("x", x).attr("y", y).attr("text-anchor", anchor).attr("class", kind).text(text);
  const bar = (parent, x, y, width, height, fill) => parent.append("rect").attr("x", x).attr("y", y)
    .attr("width", Math.max(0, width)).attr("height", Math.max(0, height)).attr("fill", fill);
  const some = (n, room) => d3.range(0, n, Math.max(1, Math.ceil(n / room))); // places for labels
  const rule = (parent, x1, y1, x2, y2, stroke, dash = null) => parent.append("line").attr("x1", x1).attr("y1", y1)
    .attr("x2", x2).attr("y2", y2).attr("stroke", stroke).attr("stroke-width", 1.4).attr("stroke-dasharray", dash);
  const curve = (parent, d, stroke, dash = null) => parent.append("path").attr("d", d).attr("fill", "none")
    .attr("stroke", stroke).attr("stroke-width", 1.8).attr("stroke-dasharray", dash);

  function colourBar(parent, wide, low, top, css) {
    const steps = 48, x = d3.scaleLinear().domain([low, top]).range([0, wide]);
    d3.range(steps).forEach((i) => bar(parent, (i * wide) / steps, 0, wide / steps + 0.6, 10, css(low + ((i + 0.5) / steps) * (top - low))));
    axis(parent, d3.axisBottom(x).tickValues([low, (low + top) / 2, top]).tickSize(4).tickFormat(short), 0, 10);
  }

  // --- tooltip -------------------------------------------------------------------------------------------
  const tip = byId("tip");
  const hideTip = () => { tip.hidden = true; };

  function showTip(x, y, title, rows, data = {}) {
    tip.replaceChildren();
    tip.appendChild(document.createElement("b")).textContent = title;
    const table = tip.appendChild(document.createElement("table"));
    for (const [label, text, chosen] of rows) {
      const row = Object.assign(table.insertRow(), { className: chosen ? "chosen" : "" });
      for (const words of [label, text]) row.insertCell().textContent = words;
    }
    for (const key of Object.keys(tip.dataset)) delete tip.dataset[key];
    Object.assign(tip.dataset, data);
    tip.hidden = false;
    const left = x + 16 + tip.offsetWidth > innerWidth ? x - 16 - tip.offsetWidth : x + 16;
    tip.style.left = `${Math.max(4, left)}px`;
    tip.style.top = `${Math.max(4, Math.min(y + 16, innerHeight - tip.offsetHeight - 4))}px`;
  }

  // --- planes at a glance -----------------------------------------------------------------------------------
  function drawGlance() {
    const host = byId("glance-chart");
    if (!host || !planeCount) return;
    const { planes } = model, { plot, wide: room, high } = figure(host, 290, [18, 12, 86, 46]);
    const wide = Math.min(room, planeCount * (planeCount < 6 ? 220 : 110));
    const x = d3.scaleBand().domain(planeNumbers).range([0, wide]);
    // One wild plane must not press the others flat: what lies beyond is cut and marked.
    const highest = d3.max(planes.max.filter(known)) || 1;
    let top = 1.05 * Math.min(highest, 6 * (d3.median(planes.q95.filter(known)) || highest));
    if (known(limits.rms) && limits.rms < 3 * top) top = Math.max(top, 1.05 * limits.rms);
    const y = d3.scaleLinear().domain([0, top]).range([high, 0]);
    axis(plot, d3.axisLeft(y).ticks(6), 0, 0);
    axis(plot, d3.axisBottom(x).tickValues(some(planeCount, wide / 34)).tickSize(0).tickPadding(5), 0, high);
    says(plot, -8, -8, unit, "end");
    if (known(limits.rms)) {
      const beyond = limits.rms > top;
      if (!beyond) rule(plot, 0, y(limits.rms), wide, y(limits.rms), BAD, "4 3");
      says(plot, wide, beyond ? -6 : y(limits.rms) - 5, `limit on RMS ${limits.rms}${beyond ? ", beyond this scale" : ""}`, "end", "bad");
    }
    const worst = planeNumbers.filter((p) => known(planes.rms[p])).sort((a, b) => planes.rms[b] - planes.rms[a]).slice(0, 8);
    planeNumbers.forEach((p) => drawPlane(plot, p, x(p) + x.bandwidth() / 2, y, x.bandwidth(), worst));
    plot.selectAll("text.bad").raise(); // over the marks of the planes that follow
    drawOrigins(plot, x, high + 26);
    planeNumbers.forEach((p) => bar(plot, x(p), 0, x.bandwidth(), high + 60, "transparent").attr("class", "hit").attr("data-plane", p));
  }

  function drawPlane(plot, p, at, y, band, worst) {
    const [rms, q95, max] = ["rms", "q95", "max"].map((name) => model.planes[name][p]);
    if (!known(rms)) { says(plot, at, y(0) - 4, "✕", "middle", "strong bad"); return; }
    const top = y.domain()[1], tick = Math.min(5, 0.4 * band), size = clamp(0.42 * band, 2.5, 5);
    rule(plot, at, y(Math.min(max, top)), at, y(0), "#c9d0d8");
    if (max > top) says(plot, at, -2, "▲", "middle");
    if (q95 <= top) rule(plot, at - tick, y(q95), at + tick, y(q95), INK);
    const height = y(Math.min(rms, top));
    if (known(limits.rms) && rms > limits.rms) {
      bar(plot, at - size, height - size, 2 * size, 2 * size, BAD);
      if (worst.includes(p)) says(plot, at + size + 3, height + 4, `${p}: ${length(rms)}`, "start", "strong bad");
    } else {
      plot.append("circle").attr("cx", at).attr("cy", height).attr("r", size).attr("fill", BLUE);
    }
  }

  function drawOrigins(plot, x, from) {
    const shares = model.planes.origins, height = 34;
    if (!shares.length) return;
    says(plot, -8, from + height / 2 + 4, "origin", "end");
    const wide = 0.8 * Math.min(x.bandwidth(), 60);
    const top = (kind, p) => from + height * d3.sum(shares.slice(0, kind), (share) => share[p]);
    d3.cross(planeNumbers, d3.range(4)).forEach(([p, kind]) =>
      bar(plot, x(p) + (x.bandwidth() - wide) / 2, top(kind, p), wide, shares[kind][p] * height, ORIGIN_COLOURS[kind]));
  }

  function startGlance() {
    const chart = byId("glance-chart");
    if (!chart) return;
    chart.addEventListener("pointerleave", hideTip);
    chart.addEventListener("pointermove", (event) => {
      const p = event.target.dataset.plane, { planes } = model;
      if (p === undefined) { hideTip(); return; }
      showTip(event.clientX, event.clientY, `plane ${p}`, planes.reason[p] ? [["no table", planes.reason[p]]]
        : [["RMS", length(planes.rms[p])], ["95 %", length(planes.q95[p])], ["99 %", length(planes.q99[p])],
          ["largest", length(planes.max[p])], ["points", count(planes.points[p])]]);
    });
    chart.addEventListener("click", (event) => {
      if (event.target.dataset.plane !== undefined && maps.length) showMap({ plane: event.target.dataset.plane });
    });
  }

  // --- maps ------------------------------------------------------------------------------------------------
  let large = null; // the large map as it stands: canvas, values, scales, block under the cursor
  // Larger is worse; a plane without the figure is worst.
  const badness = (map, value) => (!known(value) ? Infinity : map.worse === "low" ? -value : Math.abs(value));
  const isBeyond = (map, value) => known(map.plane_limit) && known(value) && badness(map, value) > badness(map, map.plane_limit);

  const ordered = (map) => (state.sort === "number" ? planeNumbers : planeNumbers.slice().sort((a, b) =>
    d3.descending(badness(map, map.planes[a]), badness(map, map.planes[b])) || a - b));

  function drawLegend(map, paint) {
    byId("origin-legend").hidden = map.kind !== "class";
    byId("map-legend").hidden = map.kind === "class";
    if (map.kind === "class") return;
    const { plot, wide } = figure(byId("map-legend"), 44, [8, 20, 20, 40]);
    const end = Math.min(wide - 70, 300), beyond = map.kind === "size" && known(map.limit);
    colourBar(plot, end, map.kind === "signed" ? -map.top : 0, map.top, paint.css);
    bar(plot, end + 12, 0, 10, 10, beyond ? ABOVE : paint.css(map.top));
    says(plot, end + 26, 9, beyond ? "above" : "and more");
  }

  function drawDepth(map) {
    const { plot, wide, high } = figure(byId("depth-chart"), 180, [10, 14, 34, 46]);
    const single = state.plane !== "", box = extent();
    const rows = map.band.map(([low, median, most], row) => ({ low, high: most, z: depthOf(row + 0.5),
      line: single ? map.depthValues[Number(state.plane) * CELLS + row] : median,
    })).filter((row) => known(row.high) && row.z >= box.near && row.z <= box.far);
    const words = map.kind === "class" ? "measured share" : map.title;
    byId("depth-title").textContent = `${words.replace(/^[a-z]/, (letter) => letter.toUpperCase())} by depth${isLength(map) ? `, ${unit}` : ""}` +
      (planeCount > 1 ? ` (line: ${single ? `plane ${state.plane}` : "median"}, band: 5–95 % of the planes)` : "");
    if (!rows.length) return;
    const x = d3.scaleLinear().domain([box.near, box.far]).range([0, wide]);
    const [low, top] = d3.extent(rows.flatMap((row) => [0, row.low, row.high, row.line]).filter(known));
    const upper = Math.max(known(map.limit) && map.limit < 4 * top ? Math.max(top, map.limit) : top, map.kind === "class" ? 1 : 0.1 * map.top);
    const y = d3.scaleLinear().domain([low, upper]).nice().range([high, 0]);
    axis(plot, d3.axisLeft(y).ticks(5), 0, 0);
    axis(plot, d3.axisBottom(x).ticks(6), 0, high);
    says(plot, wide, high + 30, `depth z, ${unit}`, "end");
    curve(plot, d3.area().x((row) => x(row.z)).y0((row) => y(row.low)).y1((row) => y(row.high))(rows), "none").attr("fill", "#cfe3f1");
    const line = d3.line().defined((row) => known(row.line)).x((row) => x(row.z)).y((row) => y(row.line));
    curve(plot, line(rows), BLUE).attr("stroke-linecap", "round").attr("stroke-width", rows.length > 1 ? 1.8 : 6);
    if (known(map.limit) && map.limit <= upper) rule(plot, 0, y(map.limit), wide, y(map.limit), BAD, "4 3");
  }

  function drawLarge(map, paint) {
    const { plane } = state, box = extent();
    const name = planeCount === 1 ? "plane 0" : plane === "" ? "all planes together" : `plane ${plane}`;
    byId("map-title").textContent = `${map.title}, ${name}`;
    byId("all-planes").hidden = plane === "";
    const shape = (width) => (width * (box.far - box.near)) / (box.right - box.left);
    const { canvas, plot, wide, high } = figure(byId("large-map"), shape, [18, 10, 34, 40], `Map of the blocks: ${map.title}, ${name}`);
    const z = d3.scaleLinear().domain([box.near, box.far]).range([0, high]);
    const y = d3.scaleLinear().domain([box.left, box.right]).range([0, wide]);
    axis(plot, d3.axisLeft(z).ticks(Math.max(2, high / 45)), 0, 0);
    axis(plot, d3.axisBottom(y).ticks(6), 0, high);
    says(plot, wide, high + 30, `y, ${unit}`, "end");
    says(plot, -8, -8, `z, ${unit}`, "end");
    const values = plane === "" ? map.allValues : ofPlane(map, Number(plane));
    paintMap(canvas, values, paint);
    large = { canvas, values, y, z, plane: planeCount === 1 ? "0" : plane, block: -1, cursor: curve(plot, null, "#000") };
  }

  function smallButton(plane) {
    const button = Object.assign(document.createElement("button"), { type: "button" });
    button.dataset.plane = plane;
    const reason = model.planes && model.planes.reason[plane];
    const picture = button.appendChild(document.createElement(reason ? "span" : "canvas"));
    if (reason) Object.assign(picture, { className: "none", textContent: "failed", title: reason });
    button.append(Object.assign(document.createElement("b"), { textContent: plane }), " ", document.createElement("span"));
    return button;
  }

  function drawSmall(map, paint) {
    const host = byId("small-maps"), box = extent();
    const least = planeCount <= 2 ? 250 : planeCount <= 6 ? 180 : planeCount <= 20 ? 120 : planeCount <= 50 ? 92 : 64;
    host.style.setProperty("--mini", `min(${least}px, 46%)`);
    if (!host.firstChild) host.append(...planeNumbers.map(smallButton));
    const buttons = Array.from(host.children).sort((a, b) => a.dataset.plane - b.dataset.plane);
    const width = Math.max(40, buttons[0].clientWidth - 6);
    const height = (width * (box.far - box.near)) / (box.right - box.left);
    for (const plane of ordered(map)) {
      const button = buttons[plane], picture = button.firstChild, value = map.planes[plane];
      host.appendChild(button);
      button.lastChild.textContent = known(value) ? planeWritten(map, value) : "";
      button.lastChild.className = isBeyond(map, value) ? "beyond" : "";
      button.setAttribute("aria-pressed", String(state.plane === String(plane)));
      button.setAttribute("aria-label", `plane ${plane}, ${map.plane_words} ${planeWritten(map, value)}`);
      picture.style.aspectRatio = `${width} / ${height}`;
      if (picture.tagName !== "CANVAS") continue;
      sized(picture, width, height);
      paintMap(picture, ofPlane(map, plane), paint);
    }
  }

  function drawMaps() {
    if (!maps.length) return;
    const map = mapOf(state.map), paint = painter(map);
    for (const button of document.querySelectorAll("#maps .buttons button")) {
      button.setAttribute("aria-pressed", String(Object.entries(button.dataset).every(([key, value]) => state[key] === value)));
    }
    byId("map-words").textContent = `${map.words} Beside the number of a plane: ${map.plane_words}${isLength(map) ? `, ${unit}` : ""}.`;
    drawLarge(map, paint);
    drawLegend(map, paint);
    drawDepth(map);
    drawSmall(map, paint);
  }

  function showMap(changes) {
    change(changes);
    drawMaps();
    byId("maps").scrollIntoView();
  }

  function tellBlock(block, plane, x, y) {
    const line = Math.floor(block / CELLS), row = block % CELLS, map = mapOf(state.map);
    const where = `line ${line}, depth ${row} (${rangeOf(row)})`, data = { map: map.id, plane, line, cell: row };
    if (plane !== "") {
      const at = Number(plane) * BLOCKS + block;
      const rows = maps.map((other) => [other.title, written(other, other.values[at]), other === map]);
      showTip(x, y, `plane ${plane}, ${where}`, rows, { ...data, value: String(map.values[at]) });
      return;
    }
    const value = large.values[block];
    const of = (p) => map.values[p * BLOCKS + block], there = planeNumbers.filter((p) => known(of(p)));
    const rows = [[map.title, written(map, value), true], ["planes with a figure", `${there.length} of ${planeCount}`]];
    if (map.kind === "class") {
      ORIGINS.forEach((name, kind) => rows.push([name, String(there.filter((p) => of(p) === kind).length)]));
    } else if (there.length) {
      const most = there.reduce((a, b) => (Math.abs(of(b)) > Math.abs(of(a)) ? b : a));
      rows.push(["largest", `${written(map, of(most))}, plane ${most}`]);
    }
    showTip(x, y, `all planes, ${where}`, rows, { ...data, value: String(value) });
  }

  function outline(block) {
    const line = Math.floor(block / CELLS), row = block % CELLS;
    const corners = [[line, row], [line + 1, row], [line + 1, row + 1], [line, row + 1]];
    large.block = block;
    large.cursor.attr("d", block < 0 ? null : `M${corners.map(([l, k]) => [large.y(sideOf(l, k)), large.z(depthOf(k))]).join("L")}Z`);
  }

  function pointed(canvas, event) { // where the pointer is, as shares of the canvas's sides
    const { left, top, width, height } = canvas.getBoundingClientRect();
    return [(event.clientX - left) / width, (event.clientY - top) / height];
  }

  function pointAtMap(event) {
    const canvas = event.target.closest("canvas");
    if (!canvas) { hideTip(); return; }
    const [u, v] = pointed(canvas, event), box = extent();
    const block = blockAt(box.left + u * (box.right - box.left), box.near + v * (box.far - box.near));
    if (canvas === large.canvas) outline(block);
    if (block < 0) hideTip();
    else tellBlock(block, canvas === large.canvas ? large.plane : canvas.parentNode.dataset.plane, event.clientX, event.clientY);
  }

  const ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

  function walkMap(event) {
    const step = ARROWS[event.key];
    if (!step || event.target !== large.canvas) return;
    event.preventDefault();
    const { lines, rows } = model.extent;
    const [line, row] = large.block < 0 ? [lines, rows].map((ends) => Math.floor((ends[0] + ends[1] - 1) / 2))
      : [clamp(Math.floor(large.block / CELLS) + step[0], 0, LINES - 1), clamp((large.block % CELLS) + step[1], 0, CELLS - 1)];
    outline(line * CELLS + row);
    const place = large.cursor.node().getBoundingClientRect();
    tellBlock(large.block, large.plane, place.right, place.bottom);
    large.canvas.setAttribute("aria-label", tip.textContent);
  }

  function startMaps() {
    if (!maps.length) return;
    const leave = () => { hideTip(); outline(-1); };
    byId("maps").addEventListener("pointermove", pointAtMap);
    byId("maps").addEventListener("pointerleave", leave);
    byId("maps").addEventListener("keydown", walkMap);
    document.addEventListener("keydown", (event) => { if (event.key === "Escape") leave(); });
    byId("maps").addEventListener("click", (event) => {
      const button = event.target.closest("button");
      if (!button) return;
      const again = button.id === "all-planes" || button.dataset.plane === state.plane;
      change(again ? { plane: "" } : { ...button.dataset });
      drawMaps();
    });
    document.addEventListener("click", (event) => {
      if (event.target.tagName !== "A" || !mapOf(event.target.dataset.map)) return;
      event.preventDefault();
      showMap({ map: event.target.dataset.map, plane: "" });
    });
  }

  // --- poses and residuals -----------------------------------------------------------------------------------
  function drawPoses() {
    if (!poses) return;
    const columns = poses.columns.length, off = new Set(poses.off.map(([p, c]) => p * columns + c));
    const { canvas, plot, wide, high } = figure(byId("pose-map"), () => clamp(26 * planeCount, 60, 330), [4, 6, 34, 40],
      "Median residual of each frame on each plane");
    const context = canvas.getContext("2d");
    const edge = (i, n, size) => Math.round((i * size) / n);
    context.font = `${10 * pixelRatio()}px system-ui, sans-serif`;
    poses.values.forEach((value, i) => {
      const p = Math.floor(i / columns), c = i % columns;
      const x = edge(c, columns, canvas.width), y = edge(p, planeCount, canvas.height);
      context.fillStyle = off.has(i) ? "#000" : known(value) ? blueRed(0.5 + value / (2 * poses.top)) : NONE;
      context.fillRect(x, y, edge(c + 1, columns, canvas.width) - x, edge(p + 1, planeCount, canvas.height) - y);
      if (wide < 40 * columns || high < 14 * planeCount) return; // else there is room for the figure itself
      context.fillStyle = off.has(i) || Math.abs(value) > 0.6 * poses.top ? "#fff" : INK;
      context.fillText(length(value), x + 4 * pixelRatio(), y + 12 * pixelRatio());
    });
    const x = d3.scaleBand().domain(d3.range(columns)).range([0, wide]);
    const y = d3.scaleBand().domain(planeNumbers).range([0, high]);
    axis(plot, d3.axisLeft(y).tickValues(some(planeCount, 12)).tickSize(0).tickPadding(5), 0, 0);
    axis(plot, d3.axisBottom(x).tickValues(some(columns, wide / 36)).tickSize(0).tickPadding(5).tickFormat((c) => poses.columns[c]), 0, high);
    says(plot, wide, high + 30, poses.by_number ? "frame" : "rank of the frame on its plane", "end");
    says(plot, -36, high + 16, "plane");
    const legend = figure(byId("pose-legend"), 34, [2, 6, 20, 40]).plot;
    colourBar(legend, 180, -poses.top, poses.top, (value) => blueRed(0.5 + value / (2 * poses.top)));
    canvas.onpointerleave = hideTip;
    canvas.onpointermove = (event) => {
      const [u, v] = pointed(canvas, event);
      const p = Math.floor(v * planeCount), c = Math.floor(u * columns), value = poses.values[p * columns + c];
      if (!known(value)) { hideTip(); return; }
      const frame = poses.by_number ? poses.columns[c] : poses.frames[p][c];
      const rows = [["median residual", `${minus(value.toFixed(4))} ${unit}`]];
      if (off.has(p * columns + c)) rows.push(["beyond 4 robust σ", "measure again"]);
      showTip(event.clientX, event.clientY, `plane ${p}, frame ${frame}`, rows, { plane: p, frame, value: String(value) });
    };
  }

  function drawHistogram() {
    if (!histogram) return;
    const { low, width, counts, mean, sigma } = histogram;
    const { plot, wide, high } = figure(byId("histogram"), 330, [16, 14, 40, 52]);
    const end = low + width * counts.length;
    const x = d3.scaleLinear().domain(width > 0 ? [low, end] : [-1, 1]).range([0, wide]);
    const normal = (r) => ((histogram.points * width) / (sigma * Math.sqrt(2 * Math.PI))) * Math.exp(-0.5 * ((r - mean) / sigma) ** 2);
    const top = Math.max(d3.max(counts), sigma > 0 ? normal(mean) : 0);
    const y = d3.scaleLinear().domain([0, 1.05 * top]).range([high, 0]);
    axis(plot, d3.axisLeft(y).ticks(5, top >= 10000 ? "~s" : ",d"), 0, 0);
    axis(plot, d3.axisBottom(x).ticks(Math.min(9, wide / 52)), 0, high);
    const step = wide / counts.length;
    counts.forEach((n, i) => bar(plot, i * step, y(n), Math.max(0.5, step - 0.6), high - y(n), "#9cc5e3"));
    const line = d3.line().x(x).y((r) => y(normal(r)));
    if (sigma > 0) curve(plot, line(d3.range(161).map((i) => low + (i * (end - low)) / 160)), INK);
    says(plot, wide, 4, `σ ${sigma.toPrecision(3)} ${unit}`, "end", "strong");
    says(plot, wide, high + 34, `signed residual, ${unit}`, "end");
    says(plot, 0, high + 34, `beyond: ${count(histogram.below)} left, ${count(histogram.above)} right`);
  }

  // --- the fan in space ----------------------------------------------------------------------------------------
  const view = { yaw: -0.62, pitch: 0.42 };
  const isBad = (p) => Boolean(model.planes) && known(limits.rms) && model.planes.rms[p] > limits.rms;

  function drawFan() {
    if (byId("fan")) byId("fan").hidden = !fan;
    if (!fan) return;
    const alive = d3.range(fan.x.length).filter((p) => fan.x[p]);
    const step = Math.ceil(alive.length / 16);
    const planes = alive.filter((p, i) => i % step === 0 || isBad(p));
    const fewer = step > 1 ? `; every ${step}${{ 2: "nd", 3: "rd" }[step] || "th"} plane and those over the limit` : "";
    byId("fan-words").textContent = `The sheets in space as the table has them${mapOf("rms") ? ", coloured by RMS residual" : ""}${fewer}. ` +
      "Drag, or use the arrow keys, to turn.";
    const { canvas } = figure(byId("fan-frame"), (width) => Math.min(400, 0.8 * width), [0, 0, 0, 0], "The sheets in space");
    canvas.style.touchAction = "pan-y";
    const turn = (yaw, pitch) => {
      view.yaw += yaw;
      view.pitch = clamp(view.pitch + pitch, -1.5, 1.5);
      paintFan(canvas, planes);
    };
    canvas.onpointerdown = (event) => canvas.setPointerCapture(event.pointerId);
    canvas.onpointermove = (event) => { if (event.buttons) turn(0.008 * event.movementX, 0.008 * event.movementY); };
    canvas.onkeydown = (event) => {
      if (!ARROWS[event.key]) return;
      event.preventDefault();
      turn(...ARROWS[event.key].map((angle) => 0.1 * angle));
    };
    turn(0, 0);
  }

  // Right and down on the screen, and away from the eye; z points down.
  function seen([x, y, z]) {
    const across = Math.cos(view.yaw) * x + Math.sin(view.yaw) * y, away = Math.cos(view.yaw) * y - Math.sin(view.yaw) * x;
    return [across, Math.cos(view.pitch) * z + Math.sin(view.pitch) * away, Math.cos(view.pitch) * away - Math.sin(view.pitch) * z];
  }

  function paintFan(canvas, planes) {
    const context = canvas.getContext("2d"), ratio = pixelRatio(), { width, height } = canvas;
    const rms = mapOf("rms"), paint = rms && painter(rms);
    const at = (p, l, k) => seen([fan.x[p][l][k], fan.y[l][k], fan.z[k]]);
    const patches = planes.flatMap((p) => d3.cross(d3.range(fan.y.length - 1), d3.range(fan.z.length - 1)).map(([l, k]) => {
      const corners = [at(p, l, k), at(p, l + 1, k), at(p, l + 1, k + 1), at(p, l, k + 1)];
      return { p, corners, away: d3.mean(corners, (corner) => corner[2]) };
    }));
    const points = patches.flatMap((patch) => patch.corners).concat([seen([0, 0, 0])]);
    const [left, right] = d3.extent(points, (point) => point[0]), [top, bottom] = d3.extent(points, (point) => point[1]);
    const scale = 0.86 * Math.min(width / (right - left || 1), height / (bottom - top || 1));
    const screen = ([u, v]) => [width / 2 + scale * (u - (left + right) / 2), height / 2 + scale * (v - (top + bottom) / 2)];
    context.clearRect(0, 0, width, height);
    Object.assign(context, { strokeStyle: "#fff", lineWidth: ratio });
    for (const patch of patches.sort((a, b) => b.away - a.away)) {
      const shape = new Path2D(`M${patch.corners.map(screen).join("L")}Z`);
      Object.assign(context, { globalAlpha: isBad(patch.p) ? 0.9 : 0.55, fillStyle: paint ? paint.css(model.planes.rms[patch.p]) : "#8fc1e0" });
      context.fill(shape);
      context.globalAlpha = 0.5;
      context.stroke(shape);
    }
    Object.assign(context, { globalAlpha: 1, font: `${11 * ratio}px system-ui, sans-serif`, fillStyle: INK, strokeStyle: INK });
    const write = (text, [u, v]) => context.fillText(text, clamp(u, 2, width - 20 * ratio), clamp(v, 10 * ratio, height - 3));
    const [x, y] = screen(seen([0, 0, 0]));
    context.fillRect(x - 2 * ratio, y - 2 * ratio, 4 * ratio, 4 * ratio);
    write("device at z = 0", [x + 6 * ratio, y + 4 * ratio]);
    for (const p of [planes[0], planes[planes.length - 1]]) write(String(p), screen(at(p, 1, fan.z.length - 1)).map((u) => u + 10 * ratio));
    const base = [42 * ratio, height - 48 * ratio];
    for (const [name, direction] of Object.entries({ x: [1, 0, 0], y: [0, 1, 0], z: [0, 0, 1] })) {
      const [u, v] = seen(direction).map((part) => 28 * ratio * part);
      context.stroke(new Path2D(`M${base}l${u},${v}`));
      write(name, [base[0] + 1.25 * u - 3 * ratio, base[1] + 1.25 * v + 4 * ratio]);
    }
  }

  // --- field, compensation ----------------------------------------------------------------------------------------
  function drawDirections() {
    if (!model.field) return;
    const listed = model.field.directions;
    const { plot, wide, high } = figure(byId("directions"), 44 * listed.length + 40, [4, 60, 36, 4]);
    const sigmas = listed.map((direction) => direction.sigma).filter((sigma) => known(sigma) && sigma > 0);
    const low = 10 ** Math.floor(Math.log10(Math.min(d3.min(sigmas) || 0.001, 0.01)));
    const x = d3.scaleLog().domain([low, Math.max(2, 1.2 * (d3.max(sigmas) || 1))]).range([0, wide]);
    axis(plot, d3.axisBottom(x).ticks(5, "~g"), 0, high);
    says(plot, wide, high + 32, `standard deviation, ${unit}`, "end");
    rule(plot, x(1), 0, x(1), high, BAD, "4 3");
    listed.forEach(({ name, sigma, endless, fixed, weak }, i) => {
      const words = endless ? "moves no sheet: trust no figure along it" : !known(sigma) ? "too few frames to tell"
        : !fixed ? "not fixed: trust no figure along it" : weak ? "weak: take more poses" : "fixed";
      const end = endless ? wide : known(sigma) ? x(Math.max(sigma, low)) : 0;
      says(plot, 0, 44 * i + 12, `${name} — ${words}`, "start", fixed ? "strong" : "strong bad");
      bar(plot, 0, 44 * i + 17, Math.max(1, end), 13, !fixed ? BAD : weak ? WARN : BLUE);
      says(plot, end + 6, 44 * i + 28, endless ? "∞" : known(sigma) ? d3.format(".2~g")(sigma) : "–", "start", "strong");
    });
  }

  function drawCompensation() {
    if (!model.compensation) return;
    const { temperature, planes, shift, largest } = model.compensation;
    const { plot, wide, high } = figure(byId("compensation-chart"), 320, [20, 70, 38, 48]);
    const lines = planes.map((plane, i) => ({ label: `plane ${plane}`, values: shift[i],
      colour: d3.interpolateViridis((0.85 * i) / Math.max(1, planes.length - 1)) }));
    lines.push({ label: "largest", values: largest, colour: "#5b6675", dash: "5 4" });
    const x = d3.scaleLinear().domain(d3.extent(temperature)).range([0, wide]);
    const y = d3.scaleLinear().domain(d3.extent(lines.flatMap((line) => line.values).filter(known))).nice().range([high, 0]);
    axis(plot, d3.axisLeft(y).ticks(6), 0, 0);
    axis(plot, d3.axisBottom(x).ticks(7), 0, high);
    says(plot, -8, -8, unit, "end");
    says(plot, wide, high + 32, "temperature, °C", "end");
    rule(plot, 0, y(0), wide, y(0), "#dde2e8");
    const path = d3.line().defined(known).x((_, i) => x(temperature[i])).y(y);
    let free = -Infinity; // labels beside the ends are pushed apart where they would cover one another
    for (const line of lines.sort((a, b) => b.values[b.values.length - 1] - a.values[a.values.length - 1])) {
      curve(plot, path(line.values), line.colour, line.dash);
      free = Math.max(free + 13, y(line.values[line.values.length - 1]));
      says(plot, wide + 6, free + 4, line.label).style("fill", line.colour);
    }
  }

  // --- tables --------------------------------------------------------------------------------------------------
  function sortTable() {
    const table = byId("planes"), [column, way] = state.order.split("-");
    const heads = table ? Array.from(table.tHead.rows[0].cells) : [];
    const at = heads.findIndex((head) => head.dataset.column === column);
    if (at < 0) return;
    heads.forEach((head) => head.removeAttribute("aria-sort"));
    heads[at].setAttribute("aria-sort", way === "asc" ? "ascending" : "descending");
    const number = (row) => Number(row.cells[0].dataset.value);
    const value = (row) => Number(row.cells[at].dataset.value); // not a number where there is none: last
    const rows = Array.from(table.tBodies[0].rows).sort((a, b) => Number.isNaN(value(a)) - Number.isNaN(value(b)) ||
      (way === "asc" ? value(a) - value(b) : value(b) - value(a)) || number(a) - number(b));
    table.tBodies[0].append(...rows);
  }

  function startTables() {
    for (const button of document.querySelectorAll("#planes th button")) {
      const head = Object.assign(button, { disabled: false }).parentNode;
      button.onclick = () => {
        change({ order: `${head.dataset.column}-${head.getAttribute("aria-sort") === "descending" ? "asc" : "desc"}` });
        sortTable();
      };
    }
  }

  // --- the page --------------------------------------------------------------------------------------------------
  function draw() {
    nets.clear();
    [drawGlance, drawMaps, drawPoses, drawHistogram, drawFan, drawDirections, drawCompensation].forEach((drawn) => drawn());
  }

  // Paper is narrow: the figures are drawn for its width, so that their text stays legible.
  function print(on) {
    document.documentElement.classList.toggle("printing", on);
    document.querySelectorAll("details").forEach((part) => { part.open = part.open || on; });
    draw();
  }

  const say = (text) => Object.assign(byId("trouble"), { hidden: false, textContent: `${text} Verdict, findings and tables are complete.` });

  async function start() {
    if (typeof DecompressionStream === "undefined") {
      say("This browser cannot unpack the figures; Chromium 80, Firefox 113 and Safari 16.4 can.");
      return;
    }
    document.documentElement.classList.remove("plain");
    await Promise.all(maps.map(async (map) => {
      [map.values, map.allValues, map.depthValues] = await Promise.all([map.blocks, map.all, map.depth].map(unpack));
    }));
    if (poses) poses.values = await unpack(poses.median);
    readFragment();
    [startMaps, startTables, startGlance, draw, sortTable].forEach((step) => step());
    addEventListener("hashchange", () => { readFragment(); drawMaps(); sortTable(); });
    addEventListener("beforeprint", () => print(true));
    addEventListener("afterprint", () => print(false));
    let width = innerWidth, waiting = 0;
    addEventListener("resize", () => {
      clearTimeout(waiting);
      if (innerWidth !== width) waiting = setTimeout(() => { width = innerWidth; draw(); }, 120);
    });
    document.documentElement.dataset.ready = String(performance.now());
  }

  start().catch((error) => { say("A figure could not be drawn."); throw error; });
})();
