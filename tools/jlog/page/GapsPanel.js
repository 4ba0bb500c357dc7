/** The gaps that the tool has found between the requests of each module. */
class GapsPanel {
  constructor({ onSelect }) {
    this.host = document.getElementById("gaps");
    this.onSelect = onSelect;
  }

  setLog(log) {
    const number = (title, width, value, text, hint) =>
      ({ title, width, isNumber: true, value, text: row => text(value(row), row), hint });
    // The whole log has absent numbers alone.
    const ofModule = format => (value, row) => row.module ? format(value) : "";
    const count = number("Gaps", "60px", row => row.gaps.length, ofModule(kCount.format));
    this.table = new Table(this.host.querySelector(".modules"), {
      label: "Modules",
      onSelect: row => this.choose(this.table.selected === row ? null : row),
      sort: { column: count, isDescending: true },
      columns: [
        { title: "Module", width: "minmax(80px, 1fr)", value: row => row.module,
          text: row => row.module || "all" },
        number("Requests", "80px", row => row.requests, ofModule(kCount.format)),
        number("Median ms", "90px", row => row.median, ofModule(formatMs), "between two requests"),
        number("Limit ms", "90px", row => row.limit, ofModule(formatMs), "A gap is longer"),
        count,
        {
          title: "Absent numbers",
          width: "minmax(110px, 1.5fr)",
          value: row => row.absent.length,
          fill: (cell, row) => {
            cell.textContent = cell.title = row.absent.map(({ first, last }) =>
              first === last ? first : `${first}–${last}`).join(", ");
          },
        },
      ],
    });
    const interval = number("ms", "90px", gap => gap.interval, formatMs);
    this.list = new Table(this.host.querySelector(".list"), {
      label: "Gaps",
      onSelect: gap => this.onSelect(gap),
      sort: { column: interval, isDescending: true },
      columns: [
        { title: "Begins", width: "126px", value: gap => gap.begin,
          text: gap => formatWall(log.wallOf(gap.begin)) },
        { title: "Module", width: "minmax(80px, 1fr)", value: gap => gap.module,
          text: gap => gap.module },
        interval,
        number("× median", "80px", gap => gap.interval / Math.max(gap.median, 1),
          ratio => ratio.toFixed(1)),
        number("Before request", "110px", gap => log.request[gap.scope], number => String(number)),
      ],
    });
    this.modules = log.cadences.map(cadence => ({
      ...cadence,
      gaps: cadence.gaps.map(gap => ({
        ...gap,
        module: cadence.module,
        median: cadence.median,
        begin: log.begin[gap.scope] - gap.interval,
      })),
    }));
    this.table.setRows(this.modules);
    this.choose(null);
  }

  choose(module) {
    this.table.select(module);
    this.list.setRows((module ? [module] : this.modules).flatMap(({ gaps }) => gaps));
  }
}
