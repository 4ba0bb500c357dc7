/** Where each thread was when the process ended, by a crash file or by its black box. */
function showInFlight(host, log, onSelect) {
  const make = (tag, name, ...content) => {
    const element = document.createElement(tag);
    element.className = name;
    element.append(...content);
    return element;
  };
  const crash = log.crashes.at(-1);
  host.hidden = !crash;
  if (!crash) {
    return;
  }
  const makeScope = i => {
    const request = log.requestOf[i];
    const button = make("button", "", `#${request.number}`);
    button.type = "button";
    button.setAttribute("aria-label", `Request ${request.number}`);
    button.addEventListener("click", () => onSelect(request));
    return make("li", "", button, make("span", "name", log.nameOf(i).full),
      make("span", "age", `open for ${formatDuration(crash.time - log.begin[i])}`));
  };
  const stacks = new Map(crash.threads.map(({ thread, scopes }) => [thread, scopes]));
  const makeThread = index => {
    const { tid, last } = log.threads[index];
    const scopes = stacks.get(index) || [];
    const record = make("p", `last level-${last.level}`,
      make("span", "age", `${formatDuration(Math.max(0, crash.time - last.time))} before`),
      make("span", "text", `${last.level} ${last.text}`));
    record.title = last.text;
    return make("div", "thread", make("strong", "", `Thread ${tid}`),
      scopes.length > 0 ? make("ol", "stack", ...scopes.map(makeScope))
        : make("span", "idle", "in no scope"),
      record);
  };
  const [title, text] = describeCause(crash);
  const count = d3.sum(crash.threads, ({ scopes }) => scopes.length);
  // Threads that were in a scope first.
  const indices = d3.range(log.threads.length)
    .filter(i => log.threads[i].last)
    .sort((a, b) => stacks.has(b) - stacks.has(a) || a - b);
  host.replaceChildren(
    make("header", "", make("h2", "", title), make("p", "cause", text),
      make("p", "hint", count > 0 ? `${formatCount(count, "scope")} in flight`
        : "no scope was in flight")),
    make("div", "threads", ...indices.map(makeThread)));
}

function describeCause({ cause, isBlackBox }) {
  if (isBlackBox) {
    return ["Black box", cause];
  }
  const [signal, address] = cause.split(" : addr = ");
  return [signal || "Crash", address ? `address ${address}` : "the crash file names no signal"];
}
