// Elements, times and counts. Texts become text nodes, never markup.

/** Make an element: attributes (true: present, false or null: absent; functions: listeners), then children. */
export function el(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (typeof value === 'function') element.addEventListener(name, value);
    else if (value === true) element.setAttribute(name, '');
    else if (value !== false && value != null) element.setAttribute(name, value);
  }
  element.append(...children.filter(child => child != null));
  return element;
}

export const byId = id => document.getElementById(id);

/** Set a text only when it changes, so that nothing is read aloud again. */
export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

export const severities = ['critical', 'error', 'warning', 'info'];

const plurals = {critical: 'critical', error: 'errors', warning: 'warnings', info: 'notes', event: 'events', problem: 'problems'};
export const number = count => count.toLocaleString('en');
export const count = (n, word) => `${number(n)} ${n === 1 ? (word === 'info' ? 'note' : word) : plurals[word]}`;

const clock = new Intl.DateTimeFormat(undefined, {hour: '2-digit', minute: '2-digit', second: '2-digit', hourCycle: 'h23'});
const shortClock = new Intl.DateTimeFormat(undefined, {hour: '2-digit', minute: '2-digit', hourCycle: 'h23'});
const day = new Intl.DateTimeFormat(undefined, {weekday: 'short', day: 'numeric', month: 'short'});
const sameDay = (a, b) => a.toDateString() === b.toDateString();

/** "09:30:00" today, else "Mon, 1 May 09:30:00". */
export function when(date, now = new Date()) {
  return sameDay(date, now) ? clock.format(date) : `${day.format(date)}, ${clock.format(date)}`;
}
export const hours = date => shortClock.format(date);
export const dayName = date => day.format(date);

/** "12 s", "5 min", "3 h 20 min", "12 d 4 h". */
export function age(milliseconds) {
  const s = Math.max(0, Math.floor(milliseconds / 1000));
  const two = (large, unit, small, rest) => `${large} ${unit}` + (small ? ` ${small} ${rest}` : '');
  if (s < 60) return `${s} s`;
  if (s < 3600) return `${Math.floor(s / 60)} min`;
  if (s < 86400) return two(Math.floor(s / 3600), 'h', Math.floor(s / 60) % 60, 'min');
  return two(Math.floor(s / 86400), 'd', Math.floor(s / 3600) % 24, 'h');
}

/** A time that says when exactly on hover. */
export function timeElement(iso, text, attributes = {}) {
  return el('time', {datetime: iso, title: new Date(iso).toLocaleString(), ...attributes}, text);
}

/** Call `work` once things have been quiet for `ms`, but at least every second while they are not. */
export function debounce(work, ms) {
  let timer = 0, first = 0;
  return () => {
    const now = Date.now();
    if (!timer) first = now;
    clearTimeout(timer);
    timer = setTimeout(() => { timer = 0; work(); }, Math.max(0, Math.min(ms, first + 1000 - now)));
  };
}
