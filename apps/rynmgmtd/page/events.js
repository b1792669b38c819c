// The list of events, the newest first: all, those of a search, or those of a stretch of the time line.
import {byId, dayName, el, hours, timeElement, when} from './dom.js';
import {eventDetails, unfolding} from './details.js';
import {get} from './api.js';

const pageSize = 50;
const keptAtMost = 500;
let filter = {};
let range = null;
let oldest = 0;
let newest = 0;
let turn = 0;

function row(event) {
  const kind = event.category === 'problem' ? event.severity : event.category;
  const summary = [
    timeElement(event.time, when(new Date(event.time)), {class: 'time'}), ' ',
    el('span', {class: 'badge'}, event.category === 'problem' ? event.severity : event.category), ' ',
    el('span', {class: 'text'}, event.text || event.name),
  ];
  if (event.damage) summary.push(' ', el('span', {class: 'badge damaged'}, 'damaged'));
  return el('li', {'data-id': event.id}, unfolding(summary, () => eventDetails(event), {class: `event ${kind}`}));
}

function showRange() {
  const text = range ? `${dayName(range.from)}, ${hours(range.from)} to ${hours(range.to)}` : '';
  byId('events-range').textContent = text;
  byId('events-all').hidden = !range;
}

function parameters(more) {
  // Until the last microsecond of the stretch: its end is the next one's.
  const until = range ? new Date(range.to.getTime() - 1).toISOString().replace('Z', '999Z') : '';
  return {...filter, since: range ? range.from.toISOString() : '', until, limit: pageSize, ...more};
}

async function load(more, place) {
  const mine = ++turn;
  const answer = await get('api/events', parameters(more));
  if (mine !== turn) return;
  place(answer);
  byId('events-none').hidden = byId('events').children.length > 0;
}

/** Show the newest that fit. */
export async function showEvents(search, stretch) {
  filter = {q: search};
  range = stretch;
  showRange();
  await load({}, answer => {
    byId('events').replaceChildren(...answer.events.map(row));
    oldest = answer.events.length ? answer.events[answer.events.length - 1].id : 0;
    newest = answer.events.length ? answer.events[0].id : 0;
    byId('events-more').hidden = !answer.more;
  });
}

export async function showEarlier() {
  const before = byId('events').children.length;
  await load({before: oldest}, answer => {
    byId('events').append(...answer.events.map(row));
    if (answer.events.length) oldest = answer.events[answer.events.length - 1].id;
    byId('events-more').hidden = !answer.more;
    byId('events').children[before]?.querySelector('summary').focus();
  });
}

/** Put a new event in front, unless it is not looked for. */
export function addEvent(event) {
  if (range || event.id <= newest) return;
  const words = (filter.q || '').toLowerCase();
  if (words && !`${event.name}\n${event.text}`.toLowerCase().includes(words)) return;
  newest = event.id;
  const list = byId('events');
  list.prepend(row(event));
  byId('events-none').hidden = true;
  while (list.children.length > keptAtMost && !list.lastChild.contains(document.activeElement)) {
    list.lastChild.remove();
    oldest = Number(list.lastChild.dataset.id);
    byId('events-more').hidden = false;
  }
}
