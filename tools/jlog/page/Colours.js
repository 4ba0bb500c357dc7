/** What a canvas paints with: the colours of page.css, as they are now. */
class Colours {
  constructor() {
    const probe = document.getElementById("probe");
    const get = name => {
      probe.style.color = `var(--${name})`;
      return getComputedStyle(probe).color;
    };
    for (const name of
      ["text", "muted", "line", "panel", "accent", "hover", "error", "slice-text"]) {
      this[name] = get(name);
    }
    // Neighbours in the list differ most.
    this.names = [250, 55, 155, 310, 95, 200, 20, 280, 125, 340, 75, 225]
      .map(hue => {
        probe.style.color = `oklch(var(--slice) ${hue})`;
        return getComputedStyle(probe).color;
      });
  }

  ofName(name) { return this.names[name % this.names.length]; }
}
