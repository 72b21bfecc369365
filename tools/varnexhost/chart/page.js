"use strict";
// Draws each panel of the page's data with uPlot. Times are seconds since midnight, as the files have them: no zone of
// the reader's moves them.
(function () {
  const page = JSON.parse(document.getElementById("chart-data").textContent);
  const steps = [1, 5, 15, 30, 60, 300, 600, 900, 1800, 3600, 7200, 10800, 21600, 43200];
  const seriesColours = 8;
  const markHeight = 22;

  function colour(name) {
    return getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
  }

  function clock(seconds, withSeconds) {
    const two = number => String(Math.floor(number)).padStart(2, "0");
    return two(seconds / 3600) + ":" + two(seconds / 60 % 60) + (withSeconds ? ":" + two(seconds % 60) : "");
  }

  function amount(value, unit) {
    return value == null ? "–" : (Number.isInteger(value) ? value : value.toFixed(1)) + " " + unit;
  }

  function element(tag, className) {
    const made = document.createElement(tag);
    made.className = className;
    return made;
  }

  // The tables side by side on one time axis, which runs from the page's first moment to its last.
  function dataOf(panel) {
    const tables = panel.tables.map(table => [table.times, ...table.series.map(series => series.values)]);
    const data = uPlot.join([[[page.from, page.to]], ...tables]);
    if (panel.threshold !== null) {
      data.push(data[0].map(() => panel.threshold));
    }
    return data;
  }

  function seriesOf(panel) {
    const series = [{ label: "Time", value: (plot, value) => value == null ? "–" : clock(value, true) }];
    for (const table of panel.tables) {
      for (const one of table.series) {
        const stroke = colour("series" + (series.length - 1) % seriesColours);
        series.push({
          label: one.name, stroke: stroke, width: 1.5, value: (plot, value) => amount(value, panel.unit),
          ...(table.line ? {} : { paths: () => null, points: { show: true, size: 12, width: 2, stroke: colour("text"), fill: stroke } })
        });
      }
    }
    if (panel.threshold !== null) {
      series.push({
        label: "Alert threshold", stroke: colour("alert"), width: 2, dash: [8, 5], points: { show: false },
        value: () => amount(panel.threshold, panel.unit)
      });
    }
    return series;
  }

  // Bands where samples failed or are missing; at least as wide as an eye can see.
  function gapsPlugin(panel) {
    const bands = panel.gaps.map(() => element("div", "gap"));
    function place(plot) {
      const scale = plot.scales.x;
      panel.gaps.forEach(([from, to], i) => {
        const shown = to >= scale.min && from <= scale.max;
        bands[i].hidden = !shown;
        if (shown) {
          const left = plot.valToPos(Math.max(from, scale.min), "x");
          const right = plot.valToPos(Math.min(to, scale.max), "x");
          bands[i].style.left = left + "px";
          bands[i].style.width = Math.max(right - left, 2) + "px";
        }
      });
    }
    return { hooks: { ready: plot => { plot.under.append(...bands); place(plot); }, draw: place } };
  }

  // A numbered line for each alert, which leads to its row of the table. Numbers that would cover each other go lower.
  function marksPlugin(panel) {
    const marks = panel.alerts.map(alert => {
      const mark = element("div", "mark");
      const link = element("a", "");
      link.href = "#" + alert.row;
      link.textContent = alert.number;
      link.title = alert.text;
      link.setAttribute("aria-label", "Alert " + alert.number + ": " + alert.text);
      mark.append(link);
      return mark;
    });
    function place(plot) {
      const ends = [];
      panel.alerts.forEach((alert, i) => {
        const shown = alert.time >= plot.scales.x.min && alert.time <= plot.scales.x.max;
        marks[i].hidden = !shown;
        if (shown) {
          const left = plot.valToPos(alert.time, "x");
          const found = ends.findIndex(end => end <= left);
          const row = found < 0 ? ends.length : found;
          marks[i].style.left = left - 1 + "px";
          marks[i].firstChild.style.top = row * markHeight + "px";
          ends[row] = left + marks[i].firstChild.offsetWidth;
        }
      });
    }
    return { hooks: { ready: plot => { plot.over.append(...marks); place(plot); }, draw: place } };
  }

  function sizeOf(box) {
    return { width: box.clientWidth, height: box.clientWidth < 600 ? 240 : 300 };
  }

  // Where there is room, as wide in every panel, so that the same time is below the same time.
  function widthOfLabels(plot, labels) {
    const needed = 24 + 7 * Math.max(5, ...(labels || []).map(label => label.length));
    return plot.width < 600 ? needed : Math.max(needed, 94);
  }

  function axesOf(panel) {
    const look = { stroke: colour("text"), grid: { stroke: colour("line"), width: 1 },
                   ticks: { stroke: colour("line"), width: 1 } };
    return [
      { ...look, incrs: steps, space: 48,
        values: (plot, splits, axis, space, step) => splits.map(split => clock(split, step < 60)) },
      { ...look, size: widthOfLabels,
        values: (plot, splits) => splits.map(split => split + " " + panel.unit) }
    ];
  }

  // What was really handed to the chart, for whoever checks the page.
  function tell(box, plot, panel) {
    const samples = plot.data.slice(1, plot.data.length - (panel.threshold !== null ? 1 : 0));
    box.dataset.series = samples.length;
    box.dataset.points = samples.reduce((sum, values) => sum + values.filter(Number.isFinite).length, 0);
    box.dataset.threshold = panel.threshold !== null ? plot.data[plot.data.length - 1][0] : "none";
    box.dataset.marks = box.querySelectorAll(".mark:not([hidden]) a").length;
    box.dataset.gaps = box.querySelectorAll(".gap:not([hidden])").length;
  }

  function draw(box, panel) {
    return new uPlot({
      ...sizeOf(box),
      scales: {
        x: { time: false, range: (self, least, most) => [least, most] },
        y: { range: (self, least, most) => [0, Math.max(panel.top, most * 1.05)] }
      },
      cursor: { sync: { key: "day" }, drag: { x: true, y: false } },
      legend: { markers: { width: 0, fill: (plot, i) => plot.series[i].stroke(plot, i) } },
      axes: axesOf(panel), series: seriesOf(panel),
      plugins: [gapsPlugin(panel), marksPlugin(panel), { hooks: { ready: plot => tell(box, plot, panel) } }]
    }, dataOf(panel), (made, begin) => {
      box.replaceChildren(made.root);
      begin();
    });
  }

  const boxes = page.panels.map(panel => document.getElementById(panel.id));
  let plots = [];
  function drawAll() {
    plots.forEach(plot => plot.destroy());
    plots = page.panels.map((panel, i) => draw(boxes[i], panel));
  }
  drawAll();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawAll);
  const observer = new ResizeObserver(() => plots.forEach((plot, i) => {
    if (plot.width !== boxes[i].clientWidth) {
      plot.setSize(sizeOf(boxes[i]));
    }
  }));
  boxes.forEach(box => observer.observe(box));
})();
