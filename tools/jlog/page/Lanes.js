// Geometry in pixels.
const kGutter = 124;
const kSlice = 16;
const kLeast = 1.5;  // the width of the shortest scope
const kLanePad = 5;
const kFont = "11px system-ui, sans-serif";

/** The scopes by thread over time, on a canvas.
 *
 *  A row of a lane holds scopes one after the other, so drawing takes a binary search for each
 *  pixel at most, however many scopes there are. */
class Lanes {
  constructor({ onSelect, onView, onHover, colours }) {
    this.host = document.getElementById("lanes");
    this.scroller = this.host.querySelector(".scroller");
    this.canvas = this.host.querySelector("canvas");
    this.axis = d3.select(this.host).select(".axis svg");
    this.range = this.host.querySelector(".range");
    this.onSelect = onSelect;
    this.onView = onView;
    this.onHover = onHover;
    this.colours = colours;
    this.x = d3.scale.linear();
    this.request = null;
    this.cursor = null;
    this.zoom = d3.behavior.zoom().on("zoom", () => {
      const drag = d3.event.sourceEvent;
      if (drag && drag.type === "mousemove") {
        this.scroller.scrollTop -= drag.movementY;
      }
      this.clamp();
      this.redraw();
    });
    d3.select(this.canvas).call(this.zoom).on("dblclick.zoom", null);
    // D3 would take the wheel that is to scroll.
    this.canvas.addEventListener("wheel", event => {
      if (event.shiftKey) {
        event.stopImmediatePropagation();
        event.preventDefault();
        this.scroller.scrollTop += event.deltaY || event.deltaX;
      }
    }, { capture: true, passive: false });
    this.canvas.addEventListener("mousemove", event => this.hover(event));
    this.canvas.addEventListener("mouseleave", () => this.hover(null));
    this.canvas.addEventListener("click", event => this.click(event));
    this.canvas.addEventListener("dblclick", () => this.showRequest());
    this.scroller.addEventListener("scroll", () => this.redraw());
    new ResizeObserver(() => this.resize()).observe(this.scroller);
  }

  setLog(log) {
    this.log = log;
    this.request = null;
    this.span = Math.max(log.span, 1);
    this.lanes = [];
    let top = kLanePad;
    // Object.keys: `lanes` is sparse.
    for (const index of Object.keys(log.lanes).map(Number)) {
      const rows = log.lanes[index];
      const thread = log.threads[index];
      const name = log.names[index - log.threads.length];
      this.lanes.push({
        index,
        top,
        rows,
        title: thread ? `Thread ${thread.tid}` : name.name,
        note: thread ? "" : `${name.module}, asynchronous`,
      });
      top += Math.max(rows.length, thread ? 1 : 2) * kSlice + 2 * kLanePad;
    }
    this.height = top;
    this.host.querySelector(".height").style.height = `${top}px`;
    this.domain = [0, this.span];
    this.resize();
  }

  /** The times in sight. */
  get view() { return this.x.domain(); }

  resize() {
    if (!this.log || this.scroller.clientWidth === 0) {
      return;
    }
    const width = this.scroller.clientWidth;
    const height = this.scroller.clientHeight;
    const ratio = window.devicePixelRatio || 1;
    this.width = width;
    this.canvas.style.height = `${height}px`;
    this.canvas.width = width * ratio;
    this.canvas.height = height * ratio;
    this.context = this.canvas.getContext("2d");
    this.context.setTransform(ratio, 0, 0, ratio, 0, 0);
    this.axis.attr("width", width).attr("height", 22);
    this.base = d3.scale.linear().domain([0, this.span]).range([kGutter, width - 8]);
    // A pixel for some hundredth of a microsecond, the unit of the log, and no more.
    this.zoom.scaleExtent([1, Math.max(1, this.span / 5)]);
    this.show(...this.domain);
    this.draw();  // the new size has cleared the canvas
  }

  show(from, to) {
    const least = Math.min(5, this.span);
    if (to - from < least) {
      const middle = (from + to) / 2;
      [from, to] = [middle - least / 2, middle + least / 2];
    }
    const scale = Math.max(1, this.span / (to - from));
    this.zoom.x(this.x.domain([0, this.span]).range(this.base.range()));
    this.zoom.scale(scale).translate([kGutter - this.base(from) * scale, 0]);
    this.clamp();
    this.redraw();
  }

  /** Keeps the view within the log. */
  clamp() {
    const [left, right] = this.base.range();
    const scale = this.zoom.scale();
    const x = this.zoom.translate()[0];
    this.zoom.translate([Math.min(left * (1 - scale), Math.max(right * (1 - scale), x)), 0]);
    this.domain = this.x.domain().slice();
  }

  zoomBy(factor) {
    const [from, to] = this.view;
    const middle = this.cursor === null ? (from + to) / 2 : this.x.invert(this.cursor);
    this.show(middle - (middle - from) * factor, middle + (to - middle) * factor);
  }

  panBy(part) {
    const [from, to] = this.view;
    const by = Math.max(-from, Math.min(this.span - to, (to - from) * part));
    this.show(from + by, to + by);
  }

  showRequest() {
    if (this.request) {
      const { begin, drawnEnd } = this.request;
      const pad = Math.max((drawnEnd - begin) * 0.15, 2);
      this.show(begin - pad, drawnEnd + pad);
    }
  }

  /** Marks a request; unless `isInPlace`, brings it into sight. */
  select(request, isInPlace) {
    this.request = request;
    if (request && !isInPlace) {
      this.reveal(this.log.laneOf(request.scopes[0]));
      const [from, to] = this.view;
      const size = to - from;
      const { begin, drawnEnd } = request;
      const length = drawnEnd - begin;
      if (length > size || length < size / 40) {
        const around = Math.max(length * 4, 50);
        this.show(begin - around, drawnEnd + around);
      } else if (begin < from || drawnEnd > to) {
        const left = (begin + drawnEnd - size) / 2;
        this.show(left, left + size);
      }
    }
    this.redraw();
  }

  /** Scrolls to a lane, if it is out of sight. */
  reveal(index) {
    const lane = this.lanes.find(candidate => candidate.index === index);
    const { scrollTop, clientHeight } = this.scroller;
    if (lane.top < scrollTop || lane.top + kSlice > scrollTop + clientHeight) {
      this.scroller.scrollTop = lane.top - clientHeight / 2;
    }
  }

  redraw() {
    if (!this.isDue) {
      this.isDue = true;
      requestAnimationFrame(() => {
        this.isDue = false;
        this.draw();
      });
    }
  }

  draw() {
    if (!this.context) {
      return;
    }
    const { context, colours, width } = this;
    const height = this.scroller.clientHeight;
    context.fillStyle = colours.panel;
    context.fillRect(0, 0, width, height);
    context.font = kFont;
    context.textBaseline = "middle";
    const ticks = this.drawAxis();
    context.fillStyle = colours.line;
    ticks.forEach(x => context.fillRect(Math.round(x), 0, 1, height));
    if (this.request) {
      const from = Math.max(kGutter, this.x(this.request.begin));
      context.globalAlpha = 0.12;
      context.fillStyle = colours.accent;
      context.fillRect(from, 0, Math.max(1, this.x(this.request.drawnEnd) - from), height);
      context.globalAlpha = 1;
    }
    context.save();
    context.translate(0, -this.scroller.scrollTop);
    for (const lane of this.lanes) {
      this.drawLane(lane);
    }
    context.restore();
    if (this.cursor !== null) {
      context.fillStyle = colours.muted;
      context.fillRect(Math.round(this.cursor), 0, 1, height);
    }
    this.onView();
  }

  drawAxis() {
    const [from, to] = this.view;
    const wall = this.log.wallOf(from);
    const { ticks, digits } = wallTicks(wall, wall + to - from, Math.max(2, this.width / 130));
    const scale = this.x.copy();
    this.axis.call(d3.svg.axis().scale(scale).orient("top").outerTickSize(0).innerTickSize(4)
      .tickValues(ticks.map(tick => tick - wall + from))
      .tickFormat(time => scale(time) > this.width - 50
        ? "" : formatWall(Math.round(time - from + wall), digits)));
    this.range.textContent = `${formatWall(wall)}, ${formatDuration(to - from)} in view`;
    return ticks.map(tick => this.x(tick - wall + from));
  }

  drawLane(lane) {
    const { context, colours } = this;
    const sight = this.scroller.scrollTop;
    const isInSight = (top, bottom) => bottom >= sight && top <= sight + this.scroller.clientHeight;
    const bottom = lane.top + lane.rows.length * kSlice;
    if (!isInSight(lane.top, bottom + kSlice)) {
      return;
    }
    context.fillStyle = colours.line;
    context.fillRect(0, lane.top - kLanePad, this.width, 1);
    context.fillStyle = colours.text;
    context.fillText(lane.title, 10, lane.top + kSlice / 2, kGutter - 18);
    context.fillStyle = colours.muted;
    context.fillText(lane.note, 10, lane.top + kSlice * 1.5, kGutter - 18);
    context.save();
    context.beginPath();
    context.rect(kGutter, lane.top, this.width - kGutter, bottom - lane.top);
    context.clip();
    lane.rows.forEach((row, depth) => {
      const top = lane.top + depth * kSlice;
      if (isInSight(top, top + kSlice)) {
        this.drawRow(row, top);
      }
    });
    context.restore();
  }

  /** The first scope of a row that ends at or behind a time. */
  search(row, time) {
    let low = 0;
    let high = row.length;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (this.log.end(row[middle]) < time) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }

  drawRow(row, top) {
    const { log, context, colours, x } = this;
    const [from, to] = this.view;
    const perPixel = (to - from) / (this.width - kGutter);
    for (let k = this.search(row, from); k < row.length && log.begin[row[k]] <= to;) {
      const i = row[k];
      const left = Math.max(x(log.begin[i]), kGutter - 2);
      const right = Math.min(x(log.end(i)), this.width + 2);
      const size = Math.max(right - left, kLeast);
      const isChosen = log.requestOf[i] === this.request;
      context.globalAlpha = this.request && !isChosen ? 0.45 : 1;
      context.fillStyle = colours.ofName(log.name[i]);
      context.fillRect(left, top, size > 3 ? size - 1 : size, kSlice - 1);
      if (!log.isWhole(i)) {
        context.fillStyle = colours.error;
        context.fillRect(log.flags[i] & kNoEnter ? left : left + size - 2, top, 2, kSlice - 1);
      }
      if (size > 24) {
        this.drawLabel(i, Math.max(left, kGutter), right, top);
      }
      // What begins sooner would be drawn over this one.
      k = size > kLeast ? k + 1 : Math.max(k + 1, this.search(row, log.end(i) + kLeast * perPixel));
    }
    context.globalAlpha = 1;
    this.drawChosen(row, top);
  }

  /** The request's own scopes, which others may hide. */
  drawChosen(row, top) {
    const { log, context, colours, x } = this;
    if (!this.request) {
      return;
    }
    context.fillStyle = colours.accent;
    const end = this.request.drawnEnd;
    for (let k = this.search(row, this.request.begin);
      k < row.length && log.begin[row[k]] <= end; ++k) {
      if (log.requestOf[row[k]] === this.request) {
        const left = x(log.begin[row[k]]);
        context.fillRect(left, top + kSlice - 3, Math.max(x(log.end(row[k])) - left - 1, 2), 2);
      }
    }
  }

  drawLabel(i, left, right, top) {
    const { log, context, colours } = this;
    const room = right - left - 7;
    const name = log.nameOf(i).name;
    const full = `${name} #${log.request[i]}`;
    const text = [full, name].find(candidate => context.measureText(candidate).width <= room);
    if (text) {
      context.fillStyle = colours["slice-text"];
      context.fillText(text, left + 3, top + kSlice / 2);
    }
  }

  /** The scope at a place of the canvas, or within 2 pixels. */
  scopeAt(x, y) {
    const top = y + this.scroller.scrollTop;
    const lane = this.lanes.find(({ top: begin, rows }) =>
      top >= begin && top < begin + rows.length * kSlice);
    if (!lane || x < kGutter) {
      return null;
    }
    const row = lane.rows[Math.floor((top - lane.top) / kSlice)];
    const exact = this.search(row, this.x.invert(x));
    if (exact < row.length && this.log.begin[row[exact]] <= this.x.invert(x)) {
      return row[exact];
    }
    const near = this.search(row, this.x.invert(x - 2));
    const isNear = near < row.length && this.log.begin[row[near]] <= this.x.invert(x + 2);
    return isNear ? row[near] : null;
  }

  hover(event) {
    const isInside = event && event.offsetX >= kGutter;
    this.cursor = isInside ? event.offsetX : null;
    const scope = isInside ? this.scopeAt(event.offsetX, event.offsetY) : null;
    this.canvas.style.cursor = scope === null ? "default" : "pointer";
    this.onHover(scope, event, isInside ? this.x.invert(event.offsetX) : null);
    this.redraw();
  }

  click(event) {
    const scope = this.scopeAt(event.offsetX, event.offsetY);
    if (scope !== null) {
      this.onSelect(this.log.requestOf[scope]);
    }
  }
}
