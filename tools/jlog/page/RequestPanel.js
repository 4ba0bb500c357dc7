/** All of a text in one line. */
function fillText(cell, { text }) {
  cell.textContent = text.replaceAll("\n", " ⏎ ");
  cell.title = text;
  cell.className = "whole";
}

/** The details of scopes, in a table. */
function makeDetailsTable(host, log, extra) {
  return new Table(host, {
    label: "Details",
    onHover: extra.onHover,
    onSelect: extra.onSelect,
    rowClass: row => `level-${row.level}`,
    columns: [
      extra.timeColumn,
      { title: "Thread", width: "62px", isNumber: true, text: row => log.threads[row.thread].tid },
      { title: "", width: "24px", text: row => row.level, hint: "Level" },
      {
        title: "Scope",
        width: "minmax(90px, 200px)",
        text: row => row.scope < 0 ? "" : log.nameOf(row.scope).full,
        hint: "The innermost open scope of the thread",
      },
      { title: "Tag", width: "minmax(70px, 130px)", text: row => row.tag },
      {
        title: "Text",
        width: "minmax(200px, 1fr)",
        fill: fillText,
      },
    ],
  });
}

/** One request: its scopes as bars over time, and what was logged in them. */
class RequestPanel {
  constructor({ colours }) {
    this.host = document.getElementById("request");
    this.colours = colours;
  }

  setLog(log, details) {
    this.log = log;
    this.details = details;
    this.x = d3.scale.linear();
    this.axis = document.createElementNS("http://www.w3.org/2000/svg", "svg");
    const offset = i => this.log.begin[i] - this.request.begin;
    this.waterfall = new Table(this.host.querySelector(".waterfall"), {
      label: "Scopes of the request",
      rowClass: i => log.isWhole(i) ? "" : "open",
      onSelect: i => this.choose(i),
      columns: [
        { title: "at ms", width: "72px", isNumber: true, text: i => formatMs(offset(i)) },
        {
          title: "Thread",
          width: "62px",
          isNumber: true,
          fill: (cell, i) => {
            const [entered, left] =
              [log.thread[i], log.exitThread[i]].map(thread => log.threads[thread].tid);
            cell.textContent = entered === left ? entered : `${entered} →`;
            cell.title = entered === left ? "" : `left on ${left}`;
          },
        },
        {
          title: "Scope",
          width: "minmax(120px, 240px)",
          fill: (cell, i) => {
            cell.textContent = log.nameOf(i).full;
            cell.style.paddingLeft = `${6 + 12 * this.depths.get(i)}px`;
            cell.title = `${log.nameOf(i).full}, serial #${log.serial[i]}`;
          },
        },
        { title: "ms", width: "72px", isNumber: true, text: i => formatMs(log.duration[i]) },
        {
          title: "",
          width: "minmax(120px, 1fr)",
          head: this.axis,
          fill: (cell, i) => this.fillBar(cell, i),
        },
      ],
    });
    this.table = makeDetailsTable(this.host.querySelector(".details"), log, {
      onHover: row => this.mark(row),
      timeColumn: {
        title: "at ms",
        width: "72px",
        isNumber: true,
        text: row => formatMs(row.time - this.request.begin),
      },
    });
    new ResizeObserver(() => this.drawAxis()).observe(this.host);
    this.show(null);
  }

  async show(request) {
    this.request = request;
    this.found = [];
    this.chosen = null;
    const summary = this.host.querySelector(".summary");
    this.waterfall.host.hidden = this.table.host.hidden = !request;
    if (!request) {
      summary.textContent = "No request is selected: click one in the table or among the threads.";
      return;
    }
    const { log } = this;
    // By time; of a thread in the order of its enters.
    const scopes = request.scopes.slice().sort((a, b) => log.begin[a] - log.begin[b] || a - b);
    this.indent(scopes);
    this.x.domain([request.begin, Math.max(request.drawnEnd, request.begin + 1)]).range([0, 100]);
    this.waterfall.selected = null;
    this.waterfall.body.scrollTop = 0;
    this.waterfall.setRows(scopes);
    this.drawAxis();
    this.table.setRows([]);
    const describe = count => {
      summary.textContent = [
        `Request ${request.number}`,
        formatWall(log.wallOf(request.begin)),
        formatDuration(request.duration) + (request.isOpen ? " (open)" : ""),
        formatCount(scopes.length, "scope"),
        count,
        log.modulesOf(request),
      ].join(" · ");
    };
    describe("…");
    const found = await this.details.find(request.begin, request.drawnEnd,
      scope => scope >= 0 && log.requestOf[scope] === request);
    if (this.request !== request) {
      return;  // another one was selected meanwhile
    }
    this.found = found;
    describe(this.details.describe(found.length));
    this.times = d3.nest().key(row => row.scope).map(found);
    this.waterfall.draw(true);
    this.table.body.scrollTop = 0;
    this.table.setRows(found);
  }

  /** How deep a scope is among those of its request. */
  indent(scopes) {
    const { log } = this;
    this.times = {};
    this.depths = new Map();
    const open = [];  // by lane
    for (const i of scopes) {
      const lane = log.laneOf(i);
      const outer = open[lane] || (open[lane] = []);
      while (outer.length > 0 && log.depth[outer.at(-1)] >= log.depth[i]) {
        outer.pop();
      }
      this.depths.set(i, lane < log.threads.length ? outer.length : 0);
      outer.push(i);
    }
  }

  /** Shows the details of one scope alone, or again of all. */
  choose(i) {
    this.chosen = this.chosen === i ? null : i;
    this.waterfall.select(this.chosen, false);
    this.table.setRows(this.chosen === null
      ? this.found : this.found.filter(row => row.scope === this.chosen));
  }

  mark(row) {
    this.waterfall.host.classList.toggle("marked", Boolean(row));
    this.waterfall.host.style.setProperty("--mark", row ? `${this.x(row.time)}%` : "0");
  }

  fillBar(cell, i) {
    const { log, x } = this;
    cell.className = "bars";
    const bar = document.createElement("i");
    bar.className = log.isWhole(i) ? "bar" : "bar cut";
    bar.style.left = `${x(log.begin[i])}%`;
    bar.style.width = `${x(log.end(i)) - x(log.begin[i])}%`;
    bar.style.background = this.colours.ofName(log.name[i]);
    const marks = (this.times[i] || []).slice(0, 200).map(row => {
      const mark = document.createElement("i");
      mark.className = `mark level-${row.level}`;
      mark.style.left = `${x(row.time)}%`;
      return mark;
    });
    cell.replaceChildren(bar, ...marks);
  }

  drawAxis() {
    const width = this.axis.parentNode.clientWidth - 12;
    if (!this.request || width < 50) {
      return;
    }
    const scale = d3.scale.linear().domain([0, this.x.domain()[1] - this.x.domain()[0]])
      .range([0, width]);
    d3.select(this.axis).attr("width", width).attr("height", 20)
      .call(d3.svg.axis().scale(scale).orient("top").ticks(width / 90).innerTickSize(4)
        .outerTickSize(0).tickFormat(time => time === 0 ? "" : formatShort(time)));
  }
}

/** What all threads logged in the time that the lanes show. */
class ViewPanel {
  constructor({ onSelect }) {
    this.host = document.getElementById("view");
    this.onSelect = onSelect;
  }

  setLog(log, details) {
    this.log = log;
    this.details = details;
    this.table = makeDetailsTable(this.host.querySelector(".details"), log, {
      onSelect: row => {
        if (row.scope >= 0) {
          this.onSelect(log.requestOf[row.scope]);
        }
      },
      timeColumn: {
        title: "Time",
        width: "126px",
        text: row => formatWall(log.wallOf(row.time)),
      },
    });
  }

  async show(from, to) {
    const kMost = 200000;
    const summary = this.host.querySelector(".summary");
    const atMost = d3.sum(this.details.blocks.filter(block => block.from <= to && block.to >= from),
      block => block.count);
    const key = this.key = `${from} ${to}`;
    if (atMost > kMost) {
      summary.textContent = `Some ${formatCount(atMost, "record")}: zoom in to see them.`;
      this.table.setRows([]);
      return;
    }
    const found = await this.details.find(from, to, () => true);
    if (this.key === key) {
      summary.textContent = `${this.details.describe(found.length)}, of all requests and of none`;
      this.table.setRows(found);
    }
  }
}
