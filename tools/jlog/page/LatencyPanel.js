/** The durations of the scopes of a name over time. */
class LatencyPanel {
  constructor({ onSelect, onHover, colours }) {
    this.host = document.getElementById("latency");
    this.select = this.host.querySelector("select");
    this.plot = this.host.querySelector(".plot");
    this.canvas = this.plot.querySelector("canvas");
    this.svg = d3.select(this.plot.querySelector("svg"));
    this.colours = colours;
    this.isInView = this.host.querySelector("input");
    this.isInView.addEventListener("change", () => this.draw());
    this.select.addEventListener("change", () => this.choose(Number(this.select.value)));
    this.canvas.addEventListener("click", event => {
      const i = this.scopeAt(event);
      if (i !== null) {
        onSelect(this.log.requestOf[i]);
      }
    });
    this.canvas.addEventListener("mousemove", event => onHover(this.scopeAt(event), event));
    this.canvas.addEventListener("mouseleave", () => onHover(null));
    new ResizeObserver(() => this.draw()).observe(this.plot);
  }

  setLog(log) {
    this.log = log;
    this.scopes = null;
    this.select.replaceChildren(
      ...log.statistics.map(({ name }) => new Option(log.names[name].full, name)));
    if (log.statistics.length > 0) {
      this.choose(log.statistics[0].name);
    }
  }

  choose(name) {
    this.name = name;
    this.select.value = name;
    this.scopes = this.log.names[name].scopes.filter(i => this.log.isWhole(i))
      .sort((a, b) => this.log.begin[a] - this.log.begin[b]);
    this.draw();
  }

  show(from, to, request) {
    this.view = [from, to];
    this.request = request;
    this.draw();
  }

  draw() {
    const width = this.plot.clientWidth;
    const height = this.plot.clientHeight;
    if (!this.scopes || !this.view || width === 0) {
      return;
    }
    const { log, colours } = this;
    const ratio = window.devicePixelRatio || 1;
    this.canvas.width = width * ratio;
    this.canvas.height = height * ratio;
    const context = this.canvas.getContext("2d");
    context.scale(ratio, ratio);
    const stat = log.statistics.find(({ name }) => name === this.name);
    const least = d3.min(this.scopes, i => log.duration[i]);
    const decade = Math.floor(Math.log10(Math.max(least, 1)));
    const [from, to] = this.isInView.checked ? this.view : [0, Math.max(log.span, 1)];
    this.x = d3.scale.linear().domain([from, to]).range([64, width - 12]);
    this.y = d3.scale.log().domain([10 ** decade, Math.max(stat.max * 1.3, 10 ** (decade + 1))])
      .range([height - 24, 8]).clamp(true);
    if (this.view[1] - this.view[0] < to - from) {
      context.fillStyle = colours.hover;
      const left = this.x(this.view[0]);
      context.fillRect(left, 8, Math.max(this.x(this.view[1]) - left, 1), height - 32);
    }
    this.drawAxes(width, height, stat);

    // Of the points that fall on one pixel the first is drawn.
    const bisect = d3.bisector(i => log.begin[i]).left;
    const end = bisect(this.scopes, to + 1);
    const taken = new Set();
    this.points = [];
    for (let k = bisect(this.scopes, from); k < end; ++k) {
      const i = this.scopes[k];
      const x = Math.round(this.x(log.begin[i]));
      const y = Math.round(this.y(Math.max(log.duration[i], 1)));
      const pixel = y * 8192 + x;
      if (!taken.has(pixel)) {
        taken.add(pixel);
        this.points.push([x, y, i]);
      }
    }
    context.fillStyle = colours.accent;
    this.points.forEach(([x, y]) => context.fillRect(x - 1, y - 1, 3, 3));
    if (this.request) {
      context.strokeStyle = colours.error;
      context.lineWidth = 2;
      this.request.scopes.filter(i => log.name[i] === this.name).forEach(i => {
        context.beginPath();
        context.arc(this.x(log.begin[i]), this.y(Math.max(log.duration[i], 1)), 5, 0, 7);
        context.stroke();
      });
    }
    this.host.querySelector("[role=status]").textContent =
      `${formatCount(this.scopes.length, "scope")} · p50 ${formatDuration(stat.p50)} · ` +
      `p99 ${formatDuration(stat.p99)} · max ${formatDuration(stat.max)}`;
  }

  drawAxes(width, height, stat) {
    const { svg, log } = this;
    svg.attr("width", width).attr("height", height).selectAll("*").remove();
    const [from, to] = this.x.domain();
    const wall = log.wallOf(from);
    const { ticks, digits } = wallTicks(wall, wall + to - from, width / 130);
    svg.append("g").attr("class", "axis").attr("transform", `translate(0,${height - 20})`)
      .call(d3.svg.axis().scale(this.x).orient("bottom").outerTickSize(0).innerTickSize(4)
        .tickValues(ticks.map(tick => tick - wall + from))
        .tickFormat(time => this.x(time) > width - 50
          ? "" : formatWall(Math.round(time - from + wall), digits)));
    const [least, most] = this.y.domain();
    const steps = most / least > 1e3 ? [1] : [1, 2, 5];
    const values = d3.range(0, 12).flatMap(power => steps.map(step => step * 10 ** power))
      .filter(value => value >= least && value <= most);
    svg.append("g").attr("class", "axis grid").attr("transform", "translate(64,0)")
      .call(d3.svg.axis().scale(this.y).orient("left").innerTickSize(-(width - 76)).outerTickSize(0)
        .tickValues(values).tickFormat(formatShort));
    for (const [label, value] of [["p50", stat.p50], ["p99", stat.p99]]) {
      const y = Math.round(this.y(Math.max(value, 1))) + 0.5;
      svg.append("line").attr("class", "level").attr("x1", 64).attr("x2", width - 12)
        .attr("y1", y).attr("y2", y);
      svg.append("text").attr("class", "level").attr("x", width - 14).attr("y", y - 3)
        .attr("text-anchor", "end").text(label);
    }
  }

  scopeAt({ offsetX, offsetY }) {
    let best = null;
    let least = 8 * 8;
    for (const [x, y, i] of this.points || []) {
      const distance = (x - offsetX) ** 2 + (y - offsetY) ** 2;
      if (distance < least) {
        least = distance;
        best = i;
      }
    }
    return best;
  }
}
