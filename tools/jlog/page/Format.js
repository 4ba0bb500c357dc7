// How numbers and times are written.

const kMilliseconds =
  new Intl.NumberFormat("en", { minimumFractionDigits: 3, maximumFractionDigits: 3 });
const kCount = new Intl.NumberFormat("en");

/** For columns: three decimals are exact. */
function formatMs(microseconds) {
  return kMilliseconds.format(microseconds / 1000);
}

function formatCount(count, noun) {
  return `${kCount.format(count)} ${noun}${count === 1 ? "" : "s"}`;
}

function formatDuration(microseconds) {
  if (microseconds < 1000) {
    return `${Math.round(microseconds)} µs`;
  }
  if (microseconds < 1e6) {
    return `${(microseconds / 1000).toFixed(3)} ms`;
  }
  if (microseconds < 120e6) {
    return `${(microseconds / 1e6).toFixed(3)} s`;
  }
  return `${Math.floor(microseconds / 60e6)} min ${Math.round(microseconds / 1e6) % 60} s`;
}

/** For axes: "2 ms" in place of "2.000 ms". */
function formatShort(microseconds) {
  return formatDuration(microseconds).replace(/(\.\d*?)0+ /, "$1 ").replace(". ", " ");
}

/** A clock's time with as many digits behind the seconds as asked for. */
function formatWall(microseconds, digits = 6) {
  const whole = Math.floor(microseconds);
  const seconds = Math.floor(whole / 1e6);
  const two = number => String(number).padStart(2, "0");
  const clock = [seconds / 3600 % 24, seconds / 60 % 60, seconds % 60]
    .map(part => two(Math.floor(part))).join(":");
  const fraction = String(whole - seconds * 1e6).padStart(6, "0").slice(0, digits);
  return digits > 0 ? `${clock}.${fraction}` : clock;
}

/** Round times for some `count` ticks between two times of the wall. */
function wallTicks(from, to, count) {
  const steps = [];
  for (let decade = 1; decade < 1e6; decade *= 10) {
    steps.push(decade, 2 * decade, 5 * decade);
  }
  steps.push(...[1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 21600, 86400]
    .map(seconds => seconds * 1e6));
  const step = steps.find(size => (to - from) / size <= count) || 86400e6;
  const digits = step >= 1e6 ? 0 : 6 - Math.floor(Math.log10(step) + 1e-9);
  const ticks = [];
  for (let tick = Math.ceil(from / step) * step; tick <= to; tick += step) {
    ticks.push(tick);
  }
  return { ticks, digits };
}
