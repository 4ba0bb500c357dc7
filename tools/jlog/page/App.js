/** Holds the panels together: what one of them selects, the others show. */
class App {
  constructor(about, logs) {
    this.about = about;
    this.logs = logs;        // elements
    this.loaded = new Map();
    this.request = null;
    this.colours = new Colours();
    const get = id => document.getElementById(id);
    const select = request => this.select(request, true);
    this.lanes = new Lanes({
      colours: this.colours,
      onSelect: select,
      onHover: (scope, event, time) => this.showTip(scope, event, time),
      onView: () => this.viewChanged(),
    });
    this.requestPanel = new RequestPanel({ colours: this.colours });
    this.viewPanel = new ViewPanel({ onSelect: select });
    this.latency = new LatencyPanel({
      colours: this.colours,
      onSelect: select,
      onHover: (scope, event) => this.showTip(scope, event, null),
    });
    this.gaps = new GapsPanel({ onSelect: gap => this.showGap(gap) });
    this.warnings = new WarningsPanel({ onSelect: warning => this.showWarning(warning) });
    document.querySelector("#top h1").textContent = about.title;
    this.filter = get("filter");
    this.filter.addEventListener("input", () => this.applyFilter());
    this.initSeries(get("series"));
    this.initTheme(get("theme"));
    this.initTabs();
    this.initSplitter();
    const help = get("help");
    get("help-button").addEventListener("click", () => help.showModal());
    help.addEventListener("click", () => help.close());
    document.addEventListener("keydown", event => this.key(event));
    for (const button of document.querySelectorAll("[data-zoom]")) {
      button.addEventListener("click", () => this.zoom(button.dataset.zoom));
    }
    window.addEventListener("hashchange", () => this.readHash());
  }

  initSeries(element) {
    const { series } = this.about;
    element.hidden = series.length < 2;
    element.replaceChildren(...series.map(({ pid, start }, i) =>
      new Option(`pid ${pid}, ${formatStart(start)}`, i)));
    element.addEventListener("change", () => this.open(Number(element.value)));
  }

  initTheme(button) {
    const root = document.documentElement;
    const media = matchMedia("(prefers-color-scheme: dark)");
    const repaint = () => {
      Object.assign(this.colours, new Colours());
      this.lanes.redraw();
      this.latency.draw();
      for (const table of [this.scopeTable, this.requestPanel.waterfall]) {
        table?.draw(true);
      }
    };
    button.addEventListener("click", () => {
      const isDark = (root.dataset.theme || (media.matches ? "dark" : "light")) === "dark";
      root.dataset.theme = isDark ? "light" : "dark";
      repaint();
    });
    media.addEventListener("change", repaint);
  }

  initTabs() {
    this.tabs = [...document.querySelectorAll("[role=tab]")];
    this.tabs.forEach((tab, i) => {
      tab.addEventListener("click", () => this.openTab(tab));
      tab.addEventListener("keydown", event => {
        const by = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
        if (by) {
          event.stopPropagation();
          const next = this.tabs[(i + by + this.tabs.length) % this.tabs.length];
          next.focus();
          this.openTab(next);
        }
      });
    });
    this.openTab(this.tabs.find(({ id }) => id === "tab-latency"));
  }

  openTab(tab) {
    for (const other of this.tabs) {
      const isOpen = other === tab;
      other.setAttribute("aria-selected", isOpen);
      other.tabIndex = isOpen ? 0 : -1;
      document.getElementById(other.getAttribute("aria-controls")).hidden = !isOpen;
    }
    this.tab = tab.getAttribute("aria-controls");
    if (this.log) {
      this.showTab();
      this.writeHash();
    }
  }

  showTab() {
    const [from, to] = this.lanes.view;
    if (this.tab === "latency") {
      this.latency.show(from, to, this.request);
    } else if (this.tab === "view" && this.details) {
      clearTimeout(this.viewTimer);
      this.viewTimer = setTimeout(() => this.viewPanel.show(from, to), 150);
    }
  }

  viewChanged() {
    const view = String(this.lanes.view);
    if (view !== this.lastView) {
      this.lastView = view;
      this.showTab();
    }
  }

  initSplitter() {
    const splitter = document.querySelector(".splitter");
    splitter.addEventListener("pointerdown", event => {
      splitter.setPointerCapture(event.pointerId);
      const begin = event.clientY - this.lanes.host.offsetHeight;
      splitter.onpointermove = move => {
        const { style } = this.lanes.host;
        style.height = style.maxHeight = `${Math.max(90, move.clientY - begin)}px`;
      };
    });
    splitter.addEventListener("lostpointercapture", () => { splitter.onpointermove = null; });
  }

  /** Shows a series. */
  async open(index) {
    if (!this.loaded.has(index)) {
      this.loaded.set(index, new Log(this.about.series[index], await inflate(this.logs[index])));
    }
    this.index = index;
    this.log = this.loaded.get(index);
    document.getElementById("series").value = index;
    const { log } = this;
    this.request = null;
    this.showFacts();
    this.makeScopes();
    this.makeRequests();
    this.lanes.setLog(log);
    this.latency.setLog(log);
    this.gaps.setLog(log);
    this.warnings.setLog(log);
    showInFlight(document.getElementById("inflight"), log, request => this.select(request));
    this.openDetails();
    this.showTab();
  }

  /** The details stand at the end of the page: the browser may not have read them yet. */
  openDetails() {
    this.details = null;
    if (document.readyState === "loading") {
      return;
    }
    const { log, index } = this;
    this.details = new Details(log, this.about.hasDetails, [...document.querySelectorAll(".details[data-series]")]
      .filter(element => Number(element.dataset.series) === index));
    this.requestPanel.setLog(log, this.details);
    this.viewPanel.setLog(log, this.details);
    note("completeMs");
    this.readHash();
    this.showTab();
  }

  showFacts() {
    const { log } = this;
    const { health } = log;
    const fact = (title, text, hint) => {
      const group = document.createElement("div");
      group.title = hint || "";
      for (const [tag, content] of [["dt", title], ["dd", text]]) {
        group.appendChild(document.createElement(tag)).textContent = content;
      }
      return group;
    };
    const boxes = log.files.filter(file => file.isBlackBox).length;
    const crashes = log.files.filter(file => file.isCrash).length - boxes;
    const kinds = [[log.files.length - crashes - boxes, ""], [crashes, " crash"], [boxes, " box"]];
    document.getElementById("facts").replaceChildren(
      fact("pid", log.pid),
      fact("start", formatStart(log.start)),
      fact("files", kinds.filter(([n]) => n > 0).map(kind => kind.join("")).join(" + "),
        log.files.map(({ name, bytes }) => `${name}, ${kCount.format(bytes)} bytes`).join("\n")),
      fact("records", kCount.format(health.records)),
      fact("scopes", kCount.format(log.count)),
      fact("threads", log.threads.length),
      fact("span", formatDuration(log.span),
        `${formatWall(log.wallOf(0))} to ${formatWall(log.wallOf(log.span))}`));

    const chips = [];
    if (log.events === 0) {
      chips.push(["note", "no serials"]);
    } else if (health.lost > 0) {
      chips.push(["bad", `${formatCount(health.lost, "serial")} lost`]);
    } else {
      chips.push(["good", "serials complete"]);
    }
    const add = (state, count, text) => count > 0 && chips.push([state, text]);
    add("bad", health.oddSerials, `${formatCount(health.oddSerials, "serial")} out of order`);
    add("bad", health.torn, `${kCount.format(health.torn)} torn`);
    add("bad", health.skippedBytes, `${formatCount(health.skippedBytes, "byte")} skipped`);
    add("note", health.cutTexts, `${formatCount(health.cutTexts, "text")} cut`);
    add("note", health.continuations, formatCount(health.continuations, "continuation line"));
    add("note", health.repeats, `${formatCount(health.repeats, "record")} twice`);
    add("note", log.steps.length, formatCount(log.steps.length, "clock step"));
    document.getElementById("health").replaceChildren(...chips.map(([state, text]) => {
      const chip = document.createElement("li");
      chip.className = state;
      chip.textContent = text;
      return chip;
    }));
    const problem = document.getElementById("problem");
    problem.hidden = log.problems.length === 0;
    problem.textContent = log.problems.join("\n");
  }

  makeScopes() {
    const { log } = this;
    const ms = (title, key) => ({ title, width: "62px", isNumber: true, value: row => row[key],
      text: row => formatMs(row[key]) });
    const p99 = ms("p99", "p99");
    this.scopeTable = new Table(document.querySelector("#scopes .table"), {
      label: "Scopes by name",
      sort: { column: p99, isDescending: true },
      onSelect: row => {
        this.scopeTable.select(row);
        this.latency.choose(row.name);
        this.openTab(this.tabs.find(tab => tab.id === "tab-latency"));
      },
      columns: [
        {
          title: "Module › scope",
          width: "minmax(110px, 1fr)",
          value: row => log.names[row.name].full,
          fill: (cell, row) => {
            const swatch = document.createElement("i");
            swatch.className = "swatch";
            swatch.style.background = this.colours.ofName(row.name);
            cell.replaceChildren(swatch, log.names[row.name].full);
            const { full, id, crosses } = log.names[row.name];
            cell.title = `${full}, module ID ${id.toString(16)}${crosses ? ", crosses threads" : ""}`;
          },
        },
        { title: "Count", width: "58px", isNumber: true, value: row => row.count,
          text: row => kCount.format(row.count) },
        ms("p50", "p50"),
        p99,
        ms("Max", "max"),
        {
          title: "Slowest",
          width: "66px",
          isNumber: true,
          hint: "The request with the longest",
          value: row => log.request[row.slowest],
          fill: (cell, row) => {
            const request = log.requestOf[row.slowest];
            const button = document.createElement("button");
            button.type = "button";
            button.className = "link";
            button.textContent = request.number;
            button.setAttribute("aria-label", `Request ${request.number}`);
            button.addEventListener("click", event => {
              event.stopPropagation();
              this.select(request);
            });
            cell.replaceChildren(button);
          },
        },
      ],
    });
    this.scopeTable.setRows(log.statistics);
  }

  makeRequests() {
    const { log } = this;
    const begin = { title: "Begin", width: "124px", isNumber: true, ascends: true,
      value: request => request.begin, text: request => formatWall(log.wallOf(request.begin)) };
    const duration = request => formatMs(request.duration);
    this.requestTable = new Table(document.querySelector("#requests .table"), {
      label: "Requests",
      sort: { column: begin, isDescending: false },
      onSelect: request => this.select(request),
      rowClass: request => request.isOpen ? "open" : "",
      columns: [
        { title: "Request", width: "62px", isNumber: true, ascends: true,
          value: request => request.number, text: request => request.number },
        begin,
        { title: "ms", width: "72px", isNumber: true, value: request => request.duration,
          fill: (cell, request) => {
            cell.textContent = request.isOpen ? `≥ ${duration(request)}` : duration(request);
            cell.title = request.isOpen ? "a scope has no exit" : "";
          } },
        { title: "Modules", width: "minmax(60px, 1fr)", value: request => log.modulesOf(request),
          fill: (cell, request) => {
            cell.textContent = cell.title = log.modulesOf(request);
          } },
        {
          title: "Slowest scope",
          width: "minmax(90px, 1fr)",
          value: request => log.nameOf(request.slowest).full,
          hint: "The longest inside another one",
          fill: (cell, request) => {
            cell.textContent = log.nameOf(request.slowest).name;
            cell.title = log.nameOf(request.slowest).full;
          },
        },
        { title: "ms", width: "68px", isNumber: true, hint: "of the slowest scope",
          value: request => log.duration[request.slowest],
          text: request => formatMs(log.duration[request.slowest]) },
      ],
    });
    this.applyFilter();
  }

  /** Words that all must be met: a number of a request, part of a module or scope, "open", or a
   *  duration like ">5" in milliseconds. What is behind "text:" must be in a request's details. */
  async applyFilter() {
    const { log } = this;
    const run = this.filterRun = {};
    const count = document.querySelector("#requests .count");
    const [typed, ...texts] = this.filter.value.toLowerCase().split("text:");
    const words = typed.replace(/([<>])\s+/g, "$1")
      .replace(/(\d)\s*ms\b/g, "$1").split(/\s+/).filter(Boolean);
    const tests = words.map(word => {
      const limit = /^[<>]=?\d/.test(word) ? parseFloat(word.replace(/^[<>]=?/, "")) * 1000 : NaN;
      if (!isNaN(limit)) {
        return word[0] === ">" ? request => request.duration > limit
          : request => request.duration < limit;
      }
      if (/^#?\d+$/.test(word)) {
        const number = Number(word.replace("#", ""));
        return request => request.number === number;
      }
      if (word === "open") {
        return request => request.isOpen;
      }
      const names = new Set(d3.range(log.names.length)
        .filter(name => log.names[name].full.toLowerCase().includes(word)));
      return request => request.scopes.some(i => names.has(log.name[i]));
    });
    const needle = texts.join("text:").trim();
    if (needle !== "" && this.details) {
      count.textContent = "searching …";
      const found = await this.details.findRequests(needle, () => run !== this.filterRun);
      if (run !== this.filterRun) {
        return;
      }
      tests.push(request => found.has(request));
    }
    const rows = log.requests.filter(request => tests.every(test => test(request)));
    this.requestTable.setRows(rows);
    this.requestTable.select(this.request);
    count.textContent = tests.length > 0
      ? `${kCount.format(rows.length)} of ${kCount.format(log.requests.length)}`
      : kCount.format(rows.length);
  }

  /** `isInPlace`: it is in sight among the threads already. */
  select(request, isInPlace = false) {
    this.request = request;
    this.requestTable.select(request);
    this.lanes.select(request, isInPlace);
    if (this.details) {
      this.requestPanel.show(request);
    }
    if (request) {
      this.openTab(this.tabs[0]);
    }
    this.writeHash();
  }

  showGap({ begin, interval, scope }) {
    this.lanes.select(this.log.requestOf[scope], true);
    this.lanes.show(begin - interval * 0.3, begin + interval * 1.3);
  }

  showWarning({ wall }) {
    const kAround = 500;
    const time = this.log.timeOf(wall);
    this.lanes.show(time - kAround, time + kAround);
    this.openTab(this.tabs.find(({ id }) => id === "tab-view"));
  }

  writeHash() {
    const parts = this.about.series.length > 1 ? [`series=${this.index}`] : [];
    if (this.request) {
      parts.push(`request=${this.request.number}`);
    }
    if (this.tab !== "request" || !this.request) {
      parts.push(`tab=${this.tab}`);
    }
    history.replaceState(null, "", `#${parts.join("&")}`);
  }

  async readHash() {
    const hash = new URLSearchParams(location.hash.slice(1));
    const index = Number(hash.get("series") ?? this.index);
    if (index !== this.index && this.about.series[index]) {
      await this.open(index);
      return;  // open() reads the rest
    }
    const wanted = Number(hash.get("request") ?? NaN);
    const request = this.log.requests.find(({ number }) => number === wanted);
    if (request && request !== this.request) {
      this.select(request);
    }
    const tab = this.tabs.find(({ id }) => id === `tab-${hash.get("tab")}`);
    if (tab) {
      this.openTab(tab);
    }
  }

  zoom(how) {
    const zooms = {
      in: () => this.lanes.zoomBy(0.5),
      out: () => this.lanes.zoomBy(2),
      all: () => this.lanes.show(0, this.log.span),
      request: () => this.lanes.showRequest(),
    };
    zooms[how]();
  }

  key(event) {
    if (event.ctrlKey || event.metaKey || event.altKey || !this.log) {
      return;
    }
    if (event.target === this.filter) {
      if (event.key === "Escape" && this.filter.value !== "") {
        this.filter.value = "";
        this.applyFilter();
      } else if (event.key === "Escape" || event.key === "Enter") {
        this.filter.blur();
      } else if (event.key === "ArrowDown" || event.key === "ArrowUp") {
        this.step(event.key === "ArrowDown" ? 1 : -1);
      } else {
        return;
      }
      event.preventDefault();
      return;
    }
    if (event.target.matches("select, dialog")) {
      return;
    }
    const keys = {
      "/": () => this.filter.select(),
      j: () => this.step(1),
      k: () => this.step(-1),
      ArrowDown: () => this.step(1),
      ArrowUp: () => this.step(-1),
      ArrowLeft: () => this.lanes.panBy(-0.2),
      ArrowRight: () => this.lanes.panBy(0.2),
      "+": () => this.zoom("in"),
      "=": () => this.zoom("in"),
      "-": () => this.zoom("out"),
      0: () => this.zoom("all"),
      f: () => this.zoom("request"),
      t: () => document.getElementById("theme").click(),
      "?": () => document.getElementById("help").showModal(),
      Escape: () => this.select(null, true),
    };
    if (Object.hasOwn(keys, event.key)) {
      event.preventDefault();
      keys[event.key]();
    }
  }

  step(by) {
    const request = this.requestTable.neighbour(by);
    if (request) {
      this.select(request);
    }
  }

  /** What is under the mouse. */
  showTip(scope, event, time) {
    const tip = document.getElementById("tooltip");
    tip.hidden = scope === null;
    if (scope === null) {
      return;
    }
    const { log } = this;
    const [entered, left] = [log.thread[scope], log.exitThread[scope]].map(i => log.threads[i].tid);
    const lines = [
      log.nameOf(scope).full,
      `request ${log.request[scope]}, serial #${log.serial[scope]}`,
      `${formatWall(log.wallOf(log.begin[scope]))}, ${formatDuration(log.duration[scope])}` +
        (log.flags[scope] & kInFlight ? ", in flight" : log.flags[scope] & kNoExit
          ? ", no exit" : log.flags[scope] & kNoEnter ? ", no enter" : ""),
      entered === left ? `thread ${entered}` : `thread ${entered}, left on ${left}`,
    ];
    if (time !== null) {
      lines.push(`here ${formatWall(log.wallOf(time))}`);
    }
    tip.textContent = lines.join("\n");
    const x = Math.min(event.clientX + 14, innerWidth - tip.offsetWidth - 8);
    const y = event.clientY + 18 + tip.offsetHeight > innerHeight
      ? event.clientY - tip.offsetHeight - 10 : event.clientY + 18;
    tip.style.transform = `translate(${x}px, ${y}px)`;
  }
}

/** "2026_1126_145046" for people. */
function formatStart(start) {
  return start.replace(/^(\d{4})_(\d\d)(\d\d)_(\d\d)(\d\d)(\d\d)$/, "$1-$2-$3 $4:$5:$6");
}

/** Notes how long the browser took since it was told to open the page. */
function note(name) {
  document.documentElement.dataset[name] = Math.round(performance.now());
}

async function main() {
  const about = await inflateJson(document.getElementById("about"));
  if (about.series.length === 0) {
    document.getElementById("problem").textContent = "The log holds nothing that was selected.";
    document.getElementById("problem").hidden = false;
    return;
  }
  const app = new App(about, [...document.querySelectorAll(".scopes")]);
  const first = Number(new URLSearchParams(location.hash.slice(1)).get("series") ?? 0);
  await app.open(about.series[first] ? first : 0);
  app.lanes.draw();
  note("readyMs");
  if (!app.details) {
    document.addEventListener("DOMContentLoaded", () => app.openDetails());
  }
}

main().catch(error => {
  document.getElementById("problem").textContent = `This page cannot be shown: ${error.message}`;
  document.getElementById("problem").hidden = false;
  throw error;
});
