// The logs, as tools/jlog/export packs them.

// What a scope lacks: Html.cpp has the same.
const kNoExit = 1;
const kNoEnter = 2;
const kInFlight = 4;

/** Takes what Packer.h has packed off its front. */
class Unpacker {
  constructor(bytes) {
    this.bytes = bytes;
    this.at = 0;
  }

  number() {
    let byte = this.bytes[this.at++];
    if (byte < 128) {
      return byte;
    }
    let number = byte & 127;
    for (let scale = 128; byte >= 128; scale *= 128) {
      byte = this.bytes[this.at++];
      number += (byte & 127) * scale;
    }
    return number;
  }

  signed() {
    const number = this.number();
    return number % 2 === 0 ? number / 2 : -(number + 1) / 2;
  }

  /** Bytes that are no UTF-8 become U+FFFD. */
  text() {
    const length = this.number();
    this.at += length;
    return Unpacker.decoder.decode(this.bytes.subarray(this.at - length, this.at));
  }

  numbers(count) {
    const numbers = new Uint32Array(count);
    for (let i = 0; i < count; ++i) {
      numbers[i] = this.number();
    }
    return numbers;
  }
}
Unpacker.decoder = new TextDecoder("utf-8", { ignoreBOM: true });

async function inflate(element) {
  const deflated = Uint8Array.from(atob(element.textContent), c => c.charCodeAt(0));
  const stream = new Blob([deflated]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

async function inflateJson(element) {
  return JSON.parse(Unpacker.decoder.decode(await inflate(element)));
}

/** The scopes of a series in columns, with what follows from them. Times are in microseconds since
 *  its first record. */
class Log {
  constructor(about, bytes) {
    Object.assign(this, about);
    this.names = about.names.map(([module, id, name, crosses]) =>
      ({ module, id, name, crosses, full: `${module} › ${name}`, scopes: [] }));
    this.count = about.scopes;
    this.unpack(new Unpacker(bytes));
    this.group();
  }

  unpack(unpacker) {
    const count = this.count;
    this.thread = unpacker.numbers(count);
    this.name = unpacker.numbers(count);
    this.depth = unpacker.numbers(count);
    this.flags = unpacker.numbers(count);
    this.request = new Uint32Array(count);
    this.begin = new Float64Array(count);
    this.duration = new Float64Array(count);
    this.serial = new Uint32Array(count);
    this.exitThread = this.thread.slice();
    const lasts = new Map();
    for (let i = 0; i < count; ++i) {
      const lane = this.laneOf(i);
      this.request[i] = (lasts.get(lane) || 0) + unpacker.signed();
      lasts.set(lane, this.request[i]);
    }
    for (let i = 0, begin = 0; i < count; ++i) {
      this.begin[i] = begin += unpacker.signed();
    }
    for (let i = 0; i < count; ++i) {
      this.duration[i] = unpacker.number();
    }
    for (let i = 0, serial = 0; i < count; ++i) {
      this.serial[i] = serial += unpacker.signed();
    }
    for (let i = 0; i < count; ++i) {
      if (this.names[this.name[i]].crosses) {
        this.exitThread[i] = unpacker.number();
      }
    }
  }

  /** A thread, or behind those a name that crosses threads. */
  laneOf(i) {
    const name = this.name[i];
    return this.names[name].crosses ? this.threads.length + name : this.thread[i];
  }

  /** Finds the rows of the lanes and the requests, as listRequests() does. */
  group() {
    const kSecond = 1e6;
    this.lanes = [];  // sparse; of each lane the rows by depth, of each row the scopes by time
    this.requests = [];
    this.requestOf = [];
    const lasts = new Map();  // by number
    for (let i = 0; i < this.count; ++i) {
      this.names[this.name[i]].scopes.push(i);
      this.addToRow(i);
      const number = this.request[i];
      let request = lasts.get(number);
      if (!request || (!request.isOpen && this.begin[i] > request.end + kSecond)) {
        request = {
          number,
          begin: this.begin[i],
          end: this.begin[i],       // of its last event
          drawnEnd: this.begin[i],  // an open scope lasts longer
          isOpen: false,
          slowest: i,
          scopes: [],
        };
        lasts.set(number, request);
        this.requests.push(request);
      }
      const isOpen = (this.flags[i] & kNoExit) !== 0;
      request.end = Math.max(request.end, isOpen ? this.begin[i] : this.end(i));
      request.drawnEnd = Math.max(request.drawnEnd, this.end(i));
      request.isOpen = request.isOpen || isOpen;
      // The first scope is around the others, and says little.
      if (request.slowest === request.scopes[0] ||
          this.measured(i) > this.measured(request.slowest)) {
        request.slowest = i;
      }
      request.scopes.push(i);
      this.requestOf.push(request);
    }
    for (const request of this.requests) {
      request.duration = request.end - request.begin;
    }
  }

  addToRow(i) {
    const laneIndex = this.laneOf(i);
    const lane = this.lanes[laneIndex] || (this.lanes[laneIndex] = []);
    while (lane.length <= this.depth[i]) {
      lane.push([]);
    }
    const row = lane[this.depth[i]];
    let at = row.push(i) - 1;
    for (; at > 0 && this.begin[row[at - 1]] > this.begin[i]; --at) {
      row[at] = row[at - 1];
    }
    row[at] = i;
  }

  measured(i) { return this.isWhole(i) ? this.duration[i] : -1; }
  end(i) { return this.begin[i] + this.duration[i]; }
  isWhole(i) { return (this.flags[i] & (kNoExit | kNoEnter)) === 0; }
  nameOf(i) { return this.names[this.name[i]]; }
  modulesOf(request) {
    return [...new Set(request.scopes.map(i => this.nameOf(i).module))].join(", ");
  }

  /** On the wall, since 1970. */
  wallOf(time) {
    let offset = 0;
    for (const [begin, change] of this.steps) {
      offset = begin <= time ? change : offset;
    }
    return this.firstTime + time + offset;
  }

  /** The reverse: the first time that was so on the wall. */
  timeOf(wall) {
    const time = wall - this.firstTime;
    const times = [time, ...this.steps.map(([, offset]) => time - offset)];
    return times.find(candidate => this.wallOf(candidate) === wall) ?? time;
  }
}

/** The details of a series, in blocks that are unpacked when somebody asks for them. */
class Details {
  constructor(log, isComplete, elements) {
    this.log = log;
    this.isComplete = isComplete;
    this.blocks = elements.map(element => ({
      element,
      count: Number(element.dataset.records),
      from: Number(element.dataset.from),
      to: Number(element.dataset.to),
      rows: null,
    }));
  }

  describe(count) {
    return this.isComplete ? `${formatCount(count, "record")} of details` : "without details";
  }

  /** Those between two times that `takes` a row of a block, in the order they were logged. */
  async find(from, to, takes) {
    const found = [];
    const blocks = this.blocks.filter(block => block.from <= to && block.to >= from);
    for (const block of blocks) {
      const rows = block.rows || await this.unpack(block);
      for (let i = 0; i < rows.count; ++i) {
        if (rows.times[i] >= from && rows.times[i] <= to && takes(rows.scopes[i])) {
          found.push(this.row(rows, i));
        }
      }
    }
    // The neighbours of a request are likely asked for next.
    this.blocks.filter(block => !blocks.slice(-4).includes(block))
      .forEach(block => { block.rows = null; });
    return found;
  }

  /** The requests with a text that holds `needle`, in whatever case. Empty once `isOff()`. */
  async findRequests(needle, isOff) {
    const has = text => text.toLowerCase().includes(needle);
    const isInPiece = !/\d/.test(needle);  // no number of a text can be part of it
    const found = new Set();
    for (const block of this.blocks) {
      const rows = block.rows || await this.unpack(block);
      block.rows = null;
      if (isOff()) {
        return new Set();
      }
      const matches = rows.patterns.map(pattern => pattern.some(has));
      for (let i = 0; i < rows.count; ++i) {
        if (rows.scopes[i] >= 0 &&
            (matches[rows.texts[i]] || (!isInPiece && has(this.textOf(rows, i))))) {
          found.add(this.log.requestOf[rows.scopes[i]]);
        }
      }
    }
    return found;
  }

  textOf(rows, i) {
    const pattern = rows.patterns[rows.texts[i]];
    let text = pattern[0];
    for (let k = 1; k < pattern.length; ++k) {
      text += rows.values[rows.firstValues[i] + k - 1] + pattern[k];
    }
    return text;
  }

  row(rows, i) {
    return {
      time: rows.times[i],
      thread: rows.threads[i],
      scope: rows.scopes[i],
      level: String.fromCharCode(rows.levels[i]),
      tag: this.log.tags[rows.tags[i]],
      text: this.textOf(rows, i),
    };
  }

  async unpack(block) {
    const unpacker = new Unpacker(await inflate(block.element));
    const count = unpacker.number();
    const patterns = Array.from({ length: unpacker.number() }, () =>
      Array.from({ length: unpacker.number() + 1 }, () => unpacker.text()));
    const times = new Float64Array(count);
    for (let i = 0, time = 0; i < count; ++i) {
      times[i] = time += unpacker.signed();
    }
    const threads = unpacker.numbers(count);
    const scopes = new Int32Array(count);
    const lasts = [];
    for (let i = 0; i < count; ++i) {
      lasts[threads[i]] = (lasts[threads[i]] || 0) + unpacker.signed();
      scopes[i] = lasts[threads[i]] - 1;  // -1: outside all scopes
    }
    const levels = unpacker.numbers(count);
    const tags = unpacker.numbers(count);
    const texts = unpacker.numbers(count);
    const firstValues = new Uint32Array(count);
    const values = [];
    const lastValues = patterns.map(pattern => new Array(pattern.length - 1).fill(0));
    for (let i = 0; i < count; ++i) {
      firstValues[i] = values.length;
      const last = lastValues[texts[i]];
      for (let k = 0; k < last.length; ++k) {
        values.push(last[k] += unpacker.signed());
      }
    }
    block.rows =
      { count, patterns, times, threads, scopes, levels, tags, texts, firstValues, values };
    return block.rows;
  }
}
