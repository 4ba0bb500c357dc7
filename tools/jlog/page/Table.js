/** A table that makes elements only for the rows in sight, all of one height.
 *
 *  A column has a `title`, a `width` as a grid knows it, `text(row)`, and as it likes `isNumber`,
 *  `value(row)` to sort by, `hint`, `fill(cell, row)` in place of a text, and a `head` element. */
class Table {
  constructor(host, { label, columns, sort, onSelect, rowClass, onHover }) {
    this.host = host;
    this.columns = columns;
    this.onSelect = onSelect;
    this.onHover = onHover;
    this.rowClass = rowClass || (() => "");
    this.sort = sort;  // { column, isDescending }
    this.rows = [];
    this.selected = null;
    host.replaceChildren();
    host.setAttribute("role", "grid");
    host.setAttribute("aria-label", label);
    host.style.setProperty("--columns", columns.map(column => column.width).join(" "));
    this.head = this.addRow(host, "head");
    this.head.replaceChildren(...columns.map(column => this.makeHead(column)));
    this.body = host.appendChild(document.createElement("div"));
    this.body.className = "body";
    this.body.tabIndex = 0;
    this.body.setAttribute("role", "rowgroup");
    this.height = this.body.appendChild(document.createElement("div"));
    this.height.className = "height";
    this.pool = [];
    this.body.addEventListener("scroll", () => this.draw());
    new ResizeObserver(() => this.draw()).observe(this.body);
  }

  addRow(parent, name) {
    const row = parent.appendChild(document.createElement("div"));
    row.className = `row ${name}`;
    row.setAttribute("role", "row");
    return row;
  }

  makeHead(column) {
    const cell = document.createElement("div");
    cell.setAttribute("role", "columnheader");
    cell.className = column.isNumber ? "number" : "";
    if (column.head) {
      cell.append(column.head);
    } else if (column.value && this.sort) {
      const button = cell.appendChild(document.createElement("button"));
      button.type = "button";
      button.textContent = column.title;
      button.addEventListener("click", () => {
        const isDescending = this.sort.column === column
          ? !this.sort.isDescending : Boolean(column.isNumber && !column.ascends);
        this.sort = { column, isDescending };
        this.setRows(this.rows);
      });
    } else {
      cell.textContent = column.title;
    }
    cell.title = column.hint || "";
    return cell;
  }

  setRows(rows) {
    this.rows = rows.slice();
    if (this.sort && this.sort.column) {
      const { column, isDescending } = this.sort;
      const sign = isDescending ? -1 : 1;
      const keyed = this.rows.map(row => [column.value(row), row]);
      keyed.sort(([a], [b]) => sign * (a < b ? -1 : a > b ? 1 : 0));
      this.rows = keyed.map(([, row]) => row);
    }
    this.columns.forEach((column, i) => {
      const isSorted = this.sort && this.sort.column === column;
      this.head.children[i].setAttribute("aria-sort",
        isSorted ? (this.sort.isDescending ? "descending" : "ascending") : "none");
    });
    this.host.setAttribute("aria-rowcount", this.rows.length);
    this.height.style.height = `${this.rows.length * kRowHeight}px`;
    this.draw(true);
  }

  select(row, isRevealed = true) {
    this.selected = row;
    const index = row === null ? -1 : this.rows.indexOf(row);
    if (index >= 0 && isRevealed) {
      const top = index * kRowHeight;
      const { scrollTop, clientHeight } = this.body;
      if (top < scrollTop || top + kRowHeight > scrollTop + clientHeight) {
        this.body.scrollTop = top - clientHeight / 2;
      }
    }
    this.draw(true);
  }

  /** The row `by` places behind the selected one, or the first. */
  neighbour(by) {
    const index = this.rows.indexOf(this.selected);
    return this.rows[index < 0 ? 0 : Math.max(0, Math.min(this.rows.length - 1, index + by))];
  }

  draw(isChanged = false) {
    const first = Math.max(0, Math.floor(this.body.scrollTop / kRowHeight) - 4);
    const count = Math.min(this.rows.length - first,
      Math.ceil(this.body.clientHeight / kRowHeight) + 8);
    while (this.pool.length < count) {
      this.pool.push(this.makeRow());
    }
    this.pool.forEach((element, i) => {
      element.hidden = i >= count;
      if (i < count && (isChanged || element.index !== first + i)) {
        this.fill(element, first + i);
      }
    });
  }

  makeRow() {
    const element = this.addRow(this.height, "");
    for (const column of this.columns) {
      const cell = element.appendChild(document.createElement("div"));
      cell.setAttribute("role", "gridcell");
      cell.className = column.isNumber ? "number" : "";
    }
    if (this.onSelect) {
      element.addEventListener("click", event => this.onSelect(this.rows[element.index], event));
    }
    if (this.onHover) {
      element.addEventListener("mouseenter", () => this.onHover(this.rows[element.index]));
      element.addEventListener("mouseleave", () => this.onHover(null));
    }
    return element;
  }

  fill(element, index) {
    const row = this.rows[index];
    element.index = index;
    element.style.top = `${index * kRowHeight}px`;
    element.className = `row ${this.rowClass(row)}`;
    element.setAttribute("aria-rowindex", index + 1);
    element.setAttribute("aria-selected", row === this.selected);
    this.columns.forEach((column, i) => {
      const cell = element.children[i];
      if (column.fill) {
        column.fill(cell, row);
      } else {
        cell.textContent = column.text(row);
      }
    });
  }
}

const kRowHeight = 22;  // page.css has the same
