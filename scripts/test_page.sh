#!/usr/bin/env bash
# Exports logs as pages, opens them in a browser, and compares what it shows with the logs.
source "$(dirname "$0")/common.sh"

if [ "${1:-}" = --help ] || [ "${1:-}" = -h ]; then
    cat <<'TEXT'
usage: scripts/test_page.sh

Lets the camera host log, once to its end and once until it crashes, exports both as pages, and a
log by hand that holds what pages trip over. Opens the pages in Chromium, without a screen, and
compares tables, a request, the crash and what keys do with what a
script reads in the logs. The pages and pictures of them stay in build/page.
TEXT
    exit 0
fi

need_packages chromium python3
build_preset release --target camera_host jlog
jlog=build/release/tools/jlog/jlog
out=build/page
rm -rf "$out"
mkdir -p "$out"

# Exports the log folder $1 as page $2.
export_page() {
    "$jlog" export html "$1" -o "$out/$2.html"
}

# Opens page $1 at the address #$2 with a script that notes what it sees, and compares that with
# file $3. Any message on the console is an error. More arguments are Chromium's.
check_page() {
    local page=$1 address=$2 expected=$3 seen=$out/$1.seen
    # Without a screen there are next to no frames.
    local timed='<body><script>window.requestAnimationFrame = draw => setTimeout(draw, 16);</script>'
    {
        sed "0,/^<body>\$/s|^<body>\$|$timed|" "$out/$page.html"
        echo "<script>$(<"$out/driver.js")</script>"
    } >"$out/$page-driven.html"
    timeout 120 chromium --headless=new --no-sandbox --disable-gpu --user-data-dir="$out/profile" \
        --window-size=1400,1400 --virtual-time-budget=20000 --enable-logging=stderr "${@:4}" \
        --dump-dom "file://$PWD/$out/$page-driven.html#$address" \
        >"$out/$page.dom" 2>"$out/$page.log"
    ! grep -F CONSOLE "$out/$page.log" || die "the page $page complains"
    sed -n '/<pre id="seen">/,/<\/pre>/p' "$out/$page.dom" |
        sed 's/.*<pre id="seen">//; s/<\/pre>.*//; s/&lt;/</g; s/&gt;/>/g; s/&amp;/\&/g' >"$seen"
    diff "$expected" "$seen" || die "the page $page shows what is not in the log"
    echo "the page $page shows what is in the log: $(wc -l <"$seen") lines"
}

# Takes a picture $1 of page $2 at the address #$3, $4 wide and $5 high; the rest is Chromium's.
take_picture() {
    timeout 120 chromium --headless=new --no-sandbox --disable-gpu --user-data-dir="$out/profile" \
        --window-size="$4,$5" --virtual-time-budget=20000 --screenshot="$out/$1.png" "${@:6}" \
        "file://$PWD/$out/$2.html#$3" 2>/dev/null
    [ -s "$out/$1.png" ] || die "no picture $1"
}

cat >"$out/driver.js" <<'SCRIPT'
(async () => {
  const lines = [];
  const find = selector => document.querySelector(selector);
  const rows = selector => [...document.querySelectorAll(`${selector} .body .row:not([hidden])`)]
    .sort((a, b) => a.index - b.index)
    .map(row => [...row.children].map(cell => cell.textContent).join("|").replaceAll(/\|+$/g, ""));
  const until = async test => {
    while (!test()) {
      await new Promise(resolve => setTimeout(resolve, 20));
    }
  };
  const settle = () => until(() => find("html").dataset.completeMs &&
    !find("#request .summary").textContent.includes("…"));
  const press = async key => {
    document.activeElement.dispatchEvent(new KeyboardEvent("keydown", { key, bubbles: true }));
    await settle();
  };
  const filter = text => {
    find("#filter").value = text;
    find("#filter").dispatchEvent(new Event("input"));
    return find("#requests .table").getAttribute("aria-rowcount");
  };
  // Whether the mouse meets a request on its way down the middle of the lanes.
  const hover = number => {
    const { left, top, width, height } = find("#lanes canvas").getBoundingClientRect();
    let isMet = false;
    for (let y = 0; y < height; y += 4) {
      find("#lanes canvas").dispatchEvent(new MouseEvent("mousemove",
        { clientX: left + 124 + (width - 132) / 2, clientY: top + y, bubbles: true }));
      const tip = find("#tooltip");
      isMet = isMet || (!tip.hidden && tip.textContent.includes(`request ${number},`));
    }
    return isMet ? "met" : "missed";
  };
  await settle();
  lines.push(`health ${find("#health").children[0].textContent}`);
  if (!find("#inflight").hidden) {
    lines.push(`crash ${find("#inflight h2").textContent} ${find("#inflight .cause").textContent}`);
    for (const thread of document.querySelectorAll("#inflight .thread")) {
      lines.push(`${thread.children[0].textContent}: ` +
        [...thread.querySelectorAll("li")].map(item =>
          `${[...item.children].map(part => part.textContent).join(" ")}, `).join("") +
        thread.querySelector(".text").textContent);
    }
  }
  lines.push(`requests ${find("#requests .table").getAttribute("aria-rowcount")}`);
  lines.push(...rows("#scopes"));
  await new Promise(resolve => setTimeout(resolve, 100));
  const canvas = find("#lanes canvas");
  const pixels = new Set(new Uint32Array(
    canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data.buffer));
  lines.push(`lanes ${pixels.size > 10 ? "drawn" : "empty"}`);
  lines.push(find("#request .summary").textContent, ...rows("#request .waterfall"),
    ...rows("#request .details"));
  await press("j");
  lines.push(`next ${location.hash}`);
  await press("k");
  lines.push(`back ${location.hash}`);
  await press("/");
  lines.push(`focus ${document.activeElement.id}`, `capture ${filter("capture")}`);
  filter("capture text:done SEQ=t2:4");
  await until(() => !find("#requests .count").textContent.includes("…"));
  lines.push(`text ${find("#requests .table").getAttribute("aria-rowcount")}`);
  await press("Escape");
  lines.push(`all ${find("#requests .table").getAttribute("aria-rowcount")}`);
  await press("Escape");
  await press("Escape");
  lines.push(`none ${location.hash}`);
  await press("k");
  await press("f");
  const first = location.hash.replace(/\D+/, "");
  lines.push(`first ${first} ${hover(first)}`);
  const range = () => find("#lanes .range").textContent;
  const before = range();
  canvas.dispatchEvent(new WheelEvent("wheel",
    { deltaY: -500, clientX: canvas.getBoundingClientRect().left + 300, bubbles: true }));
  await until(() => range() !== before);
  const pre = document.body.appendChild(document.createElement("pre"));
  pre.id = "seen";
  pre.textContent = lines.join("\n");
})();
SCRIPT

# A log by hand: an exit on another thread, scopes that a crash leaves open, a text in two lines,
# and texts that look like markup, are no UTF-8, or hold odd numbers.
write_odd_log() {
    local stamp='11-26 14:50:51.0' name=$1/cam_jlog_4242
    mkdir -p "$1"
    {
        echo "${stamp}00000  4242  4301 D JLog    : R AppRequest:1 M[Preview:4] +  :Preview #1"
        echo "${stamp}00100  4242  4301 D JLog    : R AppRequest:1 M[Preview:4] +  :Buffer #2"
        printf '%s00200  4242  4301 W Node    : </script><b>&amp;</b> \xff\xc3\xa9 007 0x1f 12345678901 3\n' "$stamp"
        printf '%s00210  4242  4301 V Node    : one line\n  and 2\n' "$stamp"
        echo "${stamp}01000  4242  4301 D JLog    : R AppRequest:1 M[Preview:4] -  :Preview #3"
        echo "${stamp}03100  4242  4302 D JLog    : R AppRequest:1 M[Preview:4] -  :Buffer #4"
        echo "${stamp}04000  4242  4301 D JLog    : R AppRequest:2 M[Preview:4] +  :Preview #5"
        echo "${stamp}04500  4242  4301 D JLog    : R AppRequest:2 M[Preview:4] +  :Submit #6"
        echo "${stamp}04600  4242  4301 E Node    : 100 % lost"
    } >"${name}_2026_1126_145051_01.txt"
    {
        echo "SIGSEGV : addr = 0x10"
        echo "${stamp}05000  4242  4302 D JLog    : R AppRequest:3 M[<i>:8] +  :Capture #7"
    } >"${name}_NE_2026_1126_145051_01.txt"
}

ANDROID_LOG_TAGS='*:F' build/release/examples/camera_host --mode 0x14 --seconds 1 \
    --folder "$out/logs" >"$out/camera_host.txt"
ANDROID_LOG_TAGS='*:F' build/release/examples/camera_host --mode 0x14 --seconds 1 --crash segv \
    --folder "$out/crash-logs" >>"$out/camera_host.txt"
write_odd_log "$out/odd-logs"

export_page "$out/logs" demo
export_page "$out/crash-logs" crash
export_page "$out/odd-logs" odd

/usr/bin/python3 scripts/expect_page.py 5 "$out"/logs/*.txt >"$out/demo.expected"
check_page demo request=5 "$out/demo.expected"
/usr/bin/python3 scripts/expect_page.py 5 "$out"/crash-logs/cam_jlog_*.txt >"$out/crash.expected"
check_page crash request=5 "$out/crash.expected"
cat >"$out/odd.expected" <<'TEXT'
health serials complete
crash SIGSEGV address 0x10
Thread 4301: #2 Preview › Preview open for 1.000 ms, #2 Preview › Submit open for 500 µs, E Node: 100 % lost
Thread 4302: #3 <i> › Capture open for 0 µs, D JLog: R AppRequest:3 M[<i>:8] +  :Capture #7
requests 3
Preview › Buffer|1|3.000|3.000|3.000|1
Preview › Preview|1|1.000|1.000|1.000|1
lanes drawn
Request 1 · 14:50:51.000000 · 3.100 ms · 2 scopes · 2 records of details · Preview
0.000|4301|Preview › Preview|1.000
0.100|4301 →|Preview › Buffer|3.000
0.200|4301|W|Preview › Preview|Node|</script><b>&amp;</b> �é 007 0x1f 12345678901 3
0.210|4301|V|Preview › Preview|Node|one line ⏎   and 2
next #request=2
back #request=1
focus filter
capture 1
text 0
all 3
none #tab=request
first 1 met
TEXT
check_page odd request=1 "$out/odd.expected"

dark=--blink-settings=preferredColorScheme=0
take_picture light demo request=5 1400 900
take_picture dark odd request=2 1400 900 "$dark"
take_picture latency demo tab=latency 1400 900 "$dark"
take_picture narrow odd request=1 800 1500
echo "pages and pictures are in $out"
