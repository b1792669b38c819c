// The time line: a bar each for a stretch of the last day or week. One bar is in the tab order; arrows move.
import {byId, count, dayName, el, hours} from './dom.js';
import {get} from './api.js';

const spans = {day: {seconds: 1800, bars: 48}, week: {seconds: 10800, bars: 56}};
const kinds = ['critical', 'error', 'warning', 'other'];
let span = 'day';
let chosen = null;  // start of the chosen stretch
let select = () => {};
let turn = 0;

function label(from, to, counts, total) {
  const parts = kinds.slice(0, 3).map((kind, i) => counts[i] ? count(counts[i], kind) : '').filter(Boolean);
  if (counts[3]) parts.push(parts.length ? `${counts[3]} others` : count(counts[3], 'event'));
  const day = span === 'week' ? `${dayName(from)} ` : '';
  return `${day}${hours(from)} to ${hours(to)}: ${total ? parts.join(', ') : 'no events'}`;
}

function bar(from, to, counts, most) {
  const total = counts.reduce((sum, n) => sum + n, 0);
  const text = label(from, to, counts, total);
  const pressed = chosen === from.getTime();
  const stack = el('span', {class: 'stack', 'aria-hidden': 'true'});
  // By the root, so that one bad hour leaves the others to be seen.
  stack.style.height = total ? `${Math.max(6, 100 * Math.sqrt(total / most))}%` : '0';
  kinds.forEach((kind, i) => {
    if (!counts[i]) return;
    const piece = el('span', {class: kind});
    piece.style.flexGrow = counts[i];
    stack.append(piece);
  });
  const button = el('button', {type: 'button', class: 'stretch', title: text, 'aria-label': text,
                               'aria-pressed': String(pressed), tabindex: pressed ? '0' : '-1'}, stack);
  button.addEventListener('click', () => choose(button, from, to));
  button.addEventListener('focus', () => {
    for (const other of byId('bars').children) other.tabIndex = other === button ? 0 : -1;
  });
  return button;
}

function choose(button, from, to) {
  const again = chosen === from.getTime();
  chosen = again ? null : from.getTime();
  for (const other of byId('bars').children) other.setAttribute('aria-pressed', String(other === button && !again));
  select(again ? null : {from, to});
}

export function forgetChoice() {
  chosen = null;
  for (const other of byId('bars').children) other.setAttribute('aria-pressed', 'false');
}

function showAxis(since, seconds, bars) {
  const axis = byId('axis');
  axis.replaceChildren();
  const ticks = span === 'day' ? 4 : 7;
  for (let i = 0; i < ticks; ++i) {
    const date = new Date(since + Math.round(i * bars / ticks) * seconds * 1000);
    axis.append(el('span', {}, span === 'day' ? hours(date) : dayName(date).split(',')[0]));
  }
  axis.append(el('span', {}, 'now'));
}

export async function showTimeline() {
  const mine = ++turn;
  const {seconds, bars} = spans[span];
  // Whole stretches, so that bars stay what they are while time goes on.
  const end = Math.ceil(Date.now() / 1000 / seconds) * seconds;
  const since = end - seconds * bars;
  const answer = await get('api/timeline', {since: `@${since}`, until: `@${end - 1}`, seconds});
  if (mine !== turn) return;
  const group = byId('bars');
  const focused = [...group.children].indexOf(document.activeElement);
  const totals = answer.buckets.map(counts => counts.reduce((sum, n) => sum + n, 0));
  const most = Math.max(1, ...totals);
  group.replaceChildren(...answer.buckets.map((counts, i) => {
    const from = (since + i * seconds) * 1000;
    return bar(new Date(from), new Date(from + seconds * 1000), counts, most);
  }));
  if (focused >= 0) group.children[Math.min(focused, group.children.length - 1)].focus();
  else if (![...group.children].some(button => button.tabIndex === 0) && group.lastChild) group.lastChild.tabIndex = 0;
  showAxis(since * 1000, seconds, bars);
}

/** `onSelect({from, to})` when a stretch is chosen, null when it is given up. */
export function startTimeline(onSelect, refresh) {
  select = onSelect;
  for (const name of Object.keys(spans)) {
    byId(name).addEventListener('click', () => {
      if (span === name) return;
      span = name;
      for (const other of Object.keys(spans)) byId(other).setAttribute('aria-pressed', String(other === name));
      if (chosen !== null) select(null);
      forgetChoice();
      refresh();
    });
  }
  byId('bars').addEventListener('keydown', event => {
    const all = [...byId('bars').children];
    const at = all.indexOf(document.activeElement);
    const to = {ArrowLeft: at - 1, ArrowRight: at + 1, Home: 0, End: all.length - 1}[event.key];
    if (at < 0 || to === undefined) return;
    event.preventDefault();
    all[Math.min(all.length - 1, Math.max(0, to))].focus();
  });
}
