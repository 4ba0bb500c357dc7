/** Warnings and errors; those that differ in numbers only are one. */
class WarningsPanel {
  constructor({ onSelect }) {
    this.host = document.getElementById("warnings");
    this.onSelect = onSelect;
  }

  setLog(log) {
    const count = { title: "Count", width: "70px", isNumber: true, value: row => row.count,
      text: row => kCount.format(row.count) };
    const table = new Table(this.host.querySelector(".table"), {
      label: "Warnings and errors",
      sort: { column: count, isDescending: true },
      rowClass: row => `level-${row.level}`,
      onSelect: row => this.onSelect(row),
      columns: [
        { title: "", width: "24px", value: row => "VDIWEF".indexOf(row.level),
          text: row => row.level },
        count,
        { title: "First", width: "126px", value: row => row.wall,
          text: row => formatWall(row.wall) },
        { title: "Tag", width: "minmax(70px, 140px)", value: row => log.tags[row.tag],
          text: row => log.tags[row.tag] },
        { title: "Text of the first", width: "minmax(200px, 1fr)", value: row => row.text,
          fill: fillText },
      ],
    });
    table.setRows(log.complaints);
    this.host.querySelector(".summary").textContent = log.complaints.length > 0
      ? "Texts that differ in numbers only are counted together. A click shows the first."
      : "No record is a warning or an error.";
  }
}
