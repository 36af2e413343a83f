"use strict";
(() => {
  // The page is whole without this script. It makes one version the selected one, filters the list,
  // and compares any two versions.
  const data = JSON.parse(document.getElementById("data").textContent);
  const byId = (id) => document.getElementById(id);
  const rows = [...byId("versions").children];
  const articles = rows.map((row) => byId(row.dataset.version));
  const heads = new Map(data.heads);
  document.documentElement.classList.add("script");

  // Returns an element with a class and children. Texts become text nodes, never markup.
  function element(name, style, ...children) {
    const made = document.createElement(name);
    if (style) made.className = style;
    made.append(...children);
    return made;
  }

  // Appends text. Characters that nobody sees, and bytes that are no text, get a frame.
  const hidden = new RegExp("[\\u0000-\\u0008\\u000A-\\u001F\\u007F-\\u009F\\u00AD\\u061C\\u180E" +
    "\\u200B-\\u200F\\u2028-\\u202E\\u2060-\\u206F\\uFDD0-\\uFDEF\\uFEFF\\uFFF9-\\uFFFB" +
    "\\uFFFE\\uFFFF\\u{E0000}-\\u{E0FFF}\\uD800-\\uDFFF]", "u");
  function appendText(target, text) {
    for (;;) {
      const at = text.search(hidden);
      if (at < 0) break;
      const code = text.codePointAt(at);
      if (at > 0) target.append(text.slice(0, at));
      const hex = code.toString(16).toUpperCase();
      const name = code >= 0xDC80 && code <= 0xDCFF ? "\\x" + hex.slice(2)
        : "U+" + hex.padStart(code > 0xFFFF ? 6 : 4, "0");
      target.append(element("span", "u", name));
      text = text.slice(at + (code > 0xFFFF ? 2 : 1));
    }
    target.append(text);
    return target;
  }

  // Selecting a version.
  let selected = -1;
  function select(index, scrolls) {
    if (index < 0 || index >= rows.length) return;
    for (const list of [rows, articles]) {
      if (selected >= 0) list[selected].classList.remove("on");
      list[index].classList.add("on");
    }
    selected = index;
    byId("changes").scrollTop = 0;
    if (scrolls) rows[index].scrollIntoView({ block: "nearest" });
  }
  function selectFromAddress() {
    const index = articles.findIndex((article) => "#" + article.id === location.hash);
    if (index >= 0) select(index, true);
  }
  rows.forEach((row, index) => row.addEventListener("click", (event) => {
    if (event.target.closest("a")) event.preventDefault();
    history.replaceState(null, "", "#" + articles[index].id);
    select(index, false);
  }));
  addEventListener("hashchange", selectFromAddress);
  addEventListener("keydown", (event) => {
    if (event.target.closest("input, select, button, summary")) return;
    const step = { ArrowDown: 1, j: 1, ArrowUp: -1, k: -1 }[event.key];
    if (!step || event.ctrlKey || event.metaKey || event.altKey) return;
    let index = selected + step;
    while (rows[index] && rows[index].hidden) index += step;
    if (!rows[index]) return;
    event.preventDefault();
    select(index, true);
  });

  // Filtering the list.
  function fill(list, names) {
    for (const [name, value] of names) {
      const option = element("option");
      option.value = value;
      appendPlain(option, name);
      list.append(option);
    }
  }
  // An option has no elements inside.
  function appendPlain(target, text) {
    target.textContent = appendText(element("span"), text).textContent;
  }
  function reachedFrom(head) {
    const found = new Set();
    const work = [head];
    while (work.length > 0) {
      const index = work.pop();
      if (index < 0 || found.has(index)) continue;
      found.add(index);
      work.push(data.versions[index].parent, ...data.versions[index].merges);
    }
    return found;
  }
  const texts = articles.map((article) => article.querySelector(".about").textContent.toLowerCase());
  const authors = rows.map((row) => row.querySelector(".who").textContent);
  fill(byId("author"), [...new Set(authors)].sort().map((name) => [name, name]));
  fill(byId("branch"), data.heads.map(([name]) => [name, name]));
  function filter() {
    const text = byId("text").value.trim().toLowerCase();
    const author = byId("author").value;
    const path = byId("path").value.trim();
    const reached = byId("branch").value ? reachedFrom(heads.get(byId("branch").value)) : null;
    let count = 0;
    rows.forEach((row, index) => {
      const changed = data.versions[index].files;
      row.hidden = !(texts[index].includes(text) && (!author || authors[index] === author) &&
        (!reached || reached.has(index)) && (!path || changed.some(([one]) => one.includes(path))));
      if (!row.hidden) ++count;
    });
    byId("versions").classList.toggle("filtered", count < rows.length);
    byId("count").textContent = count + " of " + rows.length + " versions";
  }
  byId("filter").addEventListener("input", filter);
  byId("filter").addEventListener("submit", (event) => event.preventDefault());
  byId("filter").hidden = false;

  // The files of a version: those of the next older version in the list, with the changes.
  function filesOf(index) {
    const line = [];
    for (; index >= 0; index = data.versions[index].parent) line.push(index);
    const files = new Map();
    for (const at of line.reverse()) {
      for (const [path, content] of data.versions[at].files) {
        if (content < 0) files.delete(path); else files.set(path, content);
      }
    }
    return files;
  }

  // Returns pairs of equal elements of two lists, by the shortest edit script. Beyond a bound, what is
  // between the equal beginnings and ends counts as replaced.
  function equalPairs(before, after) {
    const pairs = [];
    let first = 0, a = before.length, b = after.length;
    while (first < a && first < b && before[first] === after[first]) pairs.push([first, first++]);
    const tail = [];
    while (a > first && b > first && before[a - 1] === after[b - 1]) tail.push([--a, --b]);
    const n = a - first, m = b - first, most = Math.min(n + m, 1500);
    const trace = [];
    let reach = new Map([[1, 0]]), done = -1;
    for (let d = 0; d <= most && done < 0; ++d) {
      trace.push(reach);
      const next = new Map();
      for (let k = -d; k <= d; k += 2) {
        const down = k === -d || (k !== d && (reach.get(k - 1) ?? -1) < (reach.get(k + 1) ?? -1));
        let x = down ? reach.get(k + 1) ?? 0 : (reach.get(k - 1) ?? 0) + 1;
        if (x > n || x - k > m) { next.set(k, x); continue; }
        while (x < n && x - k < m && before[first + x] === after[first + x - k]) ++x;
        next.set(k, x);
        if (x >= n && x - k >= m) { done = d; break; }
      }
      reach = next;
    }
    if (done >= 0) {
      const middle = [];
      let x = n, y = m;
      for (let d = done; d >= 0; --d) {
        const from = trace[d], k = x - y;
        const down = k === -d || (k !== d && (from.get(k - 1) ?? -1) < (from.get(k + 1) ?? -1));
        const beforeX = d === 0 ? 0 : down ? from.get(k + 1) : from.get(k - 1);
        const beforeY = d === 0 ? 0 : beforeX - (down ? k + 1 : k - 1);
        while (x > beforeX && y > beforeY && before[first + x - 1] === after[first + y - 1]) {
          middle.push([first + --x, first + --y]);
        }
        x = beforeX;
        y = beforeY;
      }
      pairs.push(...middle.reverse());
    }
    return pairs.concat(tail.reverse());
  }

  const words = (line) => line.match(/[\p{L}\p{N}_]+|\s+|./gsu) || [];
  function markedCells(before, after) {
    const cells = [element("td", "del"), element("td", "add")];
    const sides = [words(before), words(after)];
    const pairs = equalPairs(sides[0], sides[1]);
    const hasWord = pairs.some(([index]) => /\S/.test(sides[0][index]));
    cells.forEach((cell, side) => {
      const kept = new Set(pairs.map((pair) => pair[side]));
      let mark = null;  // of the words that differ up to here
      sides[side].forEach((word, index) => {
        const differs = hasWord && !kept.has(index);
        mark = differs ? mark || cell.appendChild(element("mark")) : null;
        appendText(mark || cell, word);
      });
      cell.normalize();
    });
    return cells;
  }

  function textTable(before, after) {
    const split = (text) => text === "" ? [] : text.replace(/\n$/, "").split("\n");
    const left = split(before), right = split(after);
    const body = element("tbody");
    const pairs = [...equalPairs(left, right), [left.length, right.length]];
    const row = (...cells) => body.append(element("tr", "", ...cells));
    const number = (index) => element("td", "n", String(index + 1));
    const gap = (text) => {
      const cell = element("td", "", text);
      cell.colSpan = 4;
      body.append(element("tr", "gap", cell));
    };
    const context = 3, most = 3000;
    let a = 0, b = 0, kept = [], shown = false;
    const flush = (isEnd) => {
      const begin = shown ? context : 0, end = isEnd ? kept.length : kept.length - context;
      kept.forEach(([x, y], index) => {
        if (index >= begin && index < end) {
          if (index === begin) gap(end - begin + (end - begin === 1 ? " equal line" : " equal lines"));
          return;
        }
        row(number(x), appendText(element("td"), left[x]), number(y), appendText(element("td"), right[y]));
      });
      kept = [];
    };
    for (const [x, y] of pairs) {
      if (body.childElementCount > most) {
        gap("The rest of this comparison is left out.");
        break;
      }
      if (a < x || b < y) {
        flush(false);
        shown = true;
        for (let i = 0; a + i < x || b + i < y; ++i) {
          const hasLeft = a + i < x, hasRight = b + i < y;
          const both = hasLeft && hasRight ? markedCells(left[a + i], right[b + i]) : null;
          row(hasLeft ? number(a + i) : element("td", "n"),
            both ? both[0] : hasLeft ? appendText(element("td", "del"), left[a + i]) : element("td", "none"),
            hasRight ? number(b + i) : element("td", "n"),
            both ? both[1] : hasRight ? appendText(element("td", "add"), right[b + i]) : element("td", "none"));
        }
      }
      if (x < left.length && y < right.length) kept.push([x, y]);
      a = x + 1;
      b = y + 1;
    }
    flush(true);
    const columns = element("colgroup", "", element("col", "n"), element("col"), element("col", "n"), element("col"));
    return element("table", "diff", columns, body);
  }

  function hexView(bytes, other) {
    const view = element("pre", "hex");
    let first = 0;
    while (first < bytes.length && bytes[first] === other[first]) ++first;
    first = Math.min(first, Math.max(bytes.length - 1, 0)) & ~15;
    const end = Math.min(bytes.length, first + 24 * 16);
    const note = (count, where) => {
      if (count > 0) view.append(element("span", "n", count + " bytes " + where + " left out"), "\n");
    };
    note(first, "before");
    for (let at = first; at < end; at += 16) {
      view.append(element("span", "n", at.toString(16).padStart(8, "0")), " ");
      let characters = "";
      for (let i = at; i < at + 16; ++i) {
        if (i >= bytes.length) { view.append("   "); continue; }
        const digits = bytes[i].toString(16).padStart(2, "0");
        view.append(" ", bytes[i] === other[i] ? digits : element("mark", "", digits));
        characters += bytes[i] >= 32 && bytes[i] < 127 ? String.fromCharCode(bytes[i]) : "\u00B7";
      }
      view.append("  ", element("span", "c", characters), "\n");
    }
    note(bytes.length - end, "after");
    return view;
  }

  // A content is ["t", text], ["i", media type, base64], ["b", base64], or ["x", size] if left out.
  function bytesOf(content) {
    if (!content) return new Uint8Array();
    if (content[0] === "t") return new TextEncoder().encode(content[1]);
    return Uint8Array.from(atob(content[content.length - 1]), (c) => c.charCodeAt(0));
  }
  function figure(content, other, caption) {
    if (!content) return element("div");
    const made = element("figure", "", element("figcaption", "", caption));
    if (content[0] === "i") {
      const image = element("img");
      image.alt = caption;
      image.src = "data:" + content[1] + ";base64," + content[2];
      made.append(image);
    } else {
      made.append(hexView(bytesOf(content), bytesOf(other)));
    }
    return made;
  }
  function comparison(before, after) {
    for (const content of [before, after]) {
      if (content && content[0] === "x") {
        return element("p", "quiet", content[1] > 0
          ? "A content of " + content[1] + " bytes is left out of this page." : "The content isn't in this page.");
      }
    }
    const isText = [before, after].every((content) => !content || content[0] === "t");
    if (isText) return textTable(before ? before[1] : "", after ? after[1] : "");
    return element("div", "pair", figure(before, after, "before"), figure(after, before, "after"));
  }

  // Makes a removed and an added text that have at least half of their lines in common one change.
  function joinMoves(changes) {
    const linesOf = (content) => data.contents[content][0] === "t" ? data.contents[content][1].split("\n") : [];
    const most = 50;
    const gone = changes.filter((change) => change.kind === "removed").slice(0, most);
    for (const change of changes.filter((one) => one.kind === "added").slice(0, most)) {
      const lines = new Set(linesOf(change.after));
      const isLike = (other) => {
        const before = linesOf(other.before);
        return other.kind === "removed" &&
          2 * before.filter((line) => lines.has(line)).length > Math.max(before.length, lines.size);
      };
      const old = gone.find(isLike);
      if (!old) continue;
      Object.assign(change, { kind: "moved and changed", oldPath: old.path, before: old.before });
      old.kind = "";
    }
    return changes.filter((change) => change.kind);
  }

  function changesBetween(from, to) {
    const before = filesOf(from), after = filesOf(to);
    const changes = [];
    const removed = new Map();
    for (const [path, content] of before) {
      if (!after.has(path)) removed.set(content, [...(removed.get(content) || []), path]);
    }
    for (const [path, content] of after) {
      const old = before.get(path);
      if (old === content) continue;
      if (old !== undefined) {
        changes.push({ kind: "changed", path, before: old, after: content });
      } else if (removed.get(content)?.length) {
        changes.push({ kind: "moved", path, oldPath: removed.get(content).shift(), before: content, after: content });
      } else {
        changes.push({ kind: "added", path, after: content });
      }
    }
    for (const [content, paths] of removed) {
      for (const path of paths) changes.push({ kind: "removed", path, before: content });
    }
    return joinMoves(changes).sort((a, b) => a.path < b.path ? -1 : a.path > b.path ? 1 : 0);
  }

  function compare() {
    const result = byId("result");
    const changes = changesBetween(Number(byId("from").value), Number(byId("to").value));
    result.replaceChildren(element("p", "quiet", changes.length === 0 ? "The two versions have the same files."
      : changes.length + (changes.length === 1 ? " file differs." : " files differ.")));
    changes.forEach((change, index) => {
      const name = appendText(element("code"), change.path);
      const title = element("summary", "", element("span", "kind " + change.kind, change.kind), element("bdi", "", name));
      if (change.oldPath) title.append(appendText(element("span", "quiet", "was "), change.oldPath));
      const box = element("details", "", title);
      const draw = () => {
        if (box.open && box.childElementCount === 1) {
          box.append(change.kind === "moved" ? element("p", "quiet", "The content is the same.")
            : comparison(data.contents[change.before], data.contents[change.after]));
        }
      };
      box.addEventListener("toggle", draw);
      box.open = index < 10;
      draw();
      result.append(box);
    });
  }
  const names = rows.map((row, index) => [row.querySelector("a").lastElementChild.textContent.slice(0, 70) + " (" +
    row.querySelector(".id").textContent + ")", String(index)]);
  for (const id of ["from", "to"]) fill(byId(id), names);
  if (rows.length > 0) {
    byId("from").value = String(Math.max(data.versions[0].parent, 0));
    byId("to").value = "0";
    select(0, false);
    selectFromAddress();
  }
  byId("pick").addEventListener("submit", (event) => {
    event.preventDefault();
    compare();
  });
  byId("pick").hidden = false;
  byId("compare").hidden = false;
})();
